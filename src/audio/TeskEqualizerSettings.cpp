#include "audio/TeskEqualizerSettings.h"

#include "audio/SettingsValues.h"

namespace tesk {
namespace {
const QString kBandsKey = QStringLiteral("Bands");
}

TeskEqualizerSettings::TeskEqualizerSettings()
    : mName(tr("Manual"))
    , mBands(kBandCount, 0.0) {}

TeskEqualizerSettings::TeskEqualizerSettings(const QVariantMap& dictionary)
    : TeskEqualizerSettings() {
    if (const auto bands = numberListValue(dictionary.value(kBandsKey)))
        mBands = *bands;
}

std::unique_ptr<TeskEqualizerSettings> TeskEqualizerSettings::preset(const QString& name,
                                                                     const QList<double>& bands) {
    auto settings = std::make_unique<TeskEqualizerSettings>();
    settings->mName = name;
    settings->mBands = bands;
    return settings;
}

std::unique_ptr<TeskEqualizerSettings> TeskEqualizerSettings::flatPreset() {
    return preset(tr("Flat"), QList<double>(kBandCount, 0.0));
}

std::unique_ptr<TeskEqualizerSettings> TeskEqualizerSettings::isolateBassPreset() {
    return preset(tr("Isolate Bass"), {0, 0, 0, 0, -20, -20, -20, -20, -20, -20});
}

std::unique_ptr<TeskEqualizerSettings> TeskEqualizerSettings::isolateMidsPreset() {
    // Named "Isolate Midrange" here although the effects panel's menu says "Isolate Mids".
    return preset(tr("Isolate Midrange"), {-20, -20, -20, 0, 0, 0, 0, -20, -20, -20});
}

QVariantMap TeskEqualizerSettings::dictionaryRepresentation() const {
    QVariantList bands;
    for (double gain : mBands)
        bands.push_back(gain);
    return {{kBandsKey, bands}};
}

std::unique_ptr<TeskEqualizerSettings> TeskEqualizerSettings::copy() const {
    auto settings = std::make_unique<TeskEqualizerSettings>();
    settings->setBands(mBands);
    settings->setName(mName);
    return settings;
}

bool TeskEqualizerSettings::isEqual(const TeskEqualizerSettings& other) const {
    return mBands == other.mBands;
}

void TeskEqualizerSettings::setName(const QString& name) {
    mName = name;
    emit nameChanged();
}

void TeskEqualizerSettings::setBands(const QList<double>& bands) {
    mBands = bands;
    emit bandsChanged();
}

double TeskEqualizerSettings::gainOfBand(int index) const {
    return index >= 0 && index < mBands.size() ? mBands[index] : 0.0;
}

} // namespace tesk
