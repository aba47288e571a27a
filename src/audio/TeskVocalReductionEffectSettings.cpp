#include "audio/TeskVocalReductionEffectSettings.h"

#include "audio/SettingsValues.h"

#include <cmath>

namespace tesk {
namespace {

const QString kLowFrequencyKey = QStringLiteral("LowFrequency");
const QString kHighFrequencyKey = QStringLiteral("HighFrequency");

/// lrintf rounds half to even in the default rounding mode (120.5 → 120, 121.5 → 122).
unsigned roundedHertz(double hertz) {
    return static_cast<unsigned>(std::lrintf(static_cast<float>(hertz)));
}

} // namespace

TeskVocalReductionEffectSettings::TeskVocalReductionEffectSettings()
    : mName(tr("Manual")) {}

TeskVocalReductionEffectSettings::TeskVocalReductionEffectSettings(const QVariantMap& dictionary)
    : TeskVocalReductionEffectSettings() {
    if (const auto low = numberValue(dictionary.value(kLowFrequencyKey)))
        mLowFrequency = *low;
    if (const auto high = numberValue(dictionary.value(kHighFrequencyKey)))
        mHighFrequency = *high;
}

std::unique_ptr<TeskVocalReductionEffectSettings>
TeskVocalReductionEffectSettings::preset(const QString& name, double lowFrequency,
                                         double highFrequency) {
    auto settings = std::make_unique<TeskVocalReductionEffectSettings>();
    settings->mName = name;
    settings->mLowFrequency = lowFrequency;
    settings->mHighFrequency = highFrequency;
    return settings;
}

std::unique_ptr<TeskVocalReductionEffectSettings>
TeskVocalReductionEffectSettings::maleVocalPreset() {
    return preset(tr("Male Vocals"), 120.0, 2800.0);
}

std::unique_ptr<TeskVocalReductionEffectSettings>
TeskVocalReductionEffectSettings::femaleVocalPreset() {
    return preset(tr("Female Vocals"), 350.0, 3500.0);
}

QVariantMap TeskVocalReductionEffectSettings::dictionaryRepresentation() const {
    return {{kLowFrequencyKey, mLowFrequency}, {kHighFrequencyKey, mHighFrequency}};
}

std::unique_ptr<TeskVocalReductionEffectSettings> TeskVocalReductionEffectSettings::copy() const {
    // The name stays "Manual" on purpose: a copied band is the user's own from then on.
    auto settings = std::make_unique<TeskVocalReductionEffectSettings>();
    settings->setHighFrequency(mHighFrequency);
    settings->setLowFrequency(mLowFrequency);
    return settings;
}

bool TeskVocalReductionEffectSettings::isEqual(
    const TeskVocalReductionEffectSettings& other) const {
    return mLowFrequency == other.mLowFrequency && mHighFrequency == other.mHighFrequency;
}

void TeskVocalReductionEffectSettings::setName(const QString& name) {
    mName = name;
    emit nameChanged();
}

void TeskVocalReductionEffectSettings::setLowFrequency(double hertz) {
    mLowFrequency = hertz;
    emit lowFrequencyChanged();
}

void TeskVocalReductionEffectSettings::setHighFrequency(double hertz) {
    mHighFrequency = hertz;
    emit highFrequencyChanged();
}

unsigned TeskVocalReductionEffectSettings::roundLowFrequency() const {
    return roundedHertz(mLowFrequency);
}

unsigned TeskVocalReductionEffectSettings::roundHighFrequency() const {
    return roundedHertz(mHighFrequency);
}

} // namespace tesk
