#include "audio/TeskEffectsSettings.h"

#include "audio/SettingsValues.h"

namespace tesk {
namespace {

const QString kEqualizerEnabledKey = QStringLiteral("EqualizerEnabled");
const QString kEqualizerSettingsKey = QStringLiteral("EqualizerSettings");
const QString kVocalReductionEnabledKey = QStringLiteral("VocalReductionEnabled");
const QString kVocalReductionSettingsKey = QStringLiteral("VocalReductionSettings");
const QString kOutOfPhaseKey = QStringLiteral("OutOfPhase");
const QString kPanningEnabledKey = QStringLiteral("PanningEnabled");
const QString kPanAmountKey = QStringLiteral("PanAmount");

// One context for the equalizer's bands, one shared by both edges of the vocal band.
const char kEqualizerContext[] = "effectsSettings.equalizerSettings";
const char kVocalReductionContext[] = "effectsSettings.vocalReductionEffectSettings";

} // namespace

TeskEffectsSettings::TeskEffectsSettings() {
    setEqualizerSettings(TeskEqualizerSettings::flatPreset().get());
    setVocalReductionEffectSettings(TeskVocalReductionEffectSettings::maleVocalPreset().get());
}

TeskEffectsSettings::TeskEffectsSettings(const QVariantMap& dictionary)
    : TeskEffectsSettings() {
    if (const auto enabled = booleanValue(dictionary.value(kEqualizerEnabledKey)))
        setEqualizerEnabled(*enabled);
    if (const auto nested = dictionaryValue(dictionary.value(kEqualizerSettingsKey))) {
        TeskEqualizerSettings settings(*nested);
        setEqualizerSettings(&settings);
    }
    if (const auto enabled = booleanValue(dictionary.value(kVocalReductionEnabledKey)))
        setVocalReductionEnabled(*enabled);
    if (const auto nested = dictionaryValue(dictionary.value(kVocalReductionSettingsKey))) {
        TeskVocalReductionEffectSettings settings(*nested);
        setVocalReductionEffectSettings(&settings);
    }
    if (const auto outOfPhase = booleanValue(dictionary.value(kOutOfPhaseKey)))
        setOutOfPhase(*outOfPhase);
    if (const auto enabled = booleanValue(dictionary.value(kPanningEnabledKey)))
        setPanningEnabled(*enabled);
    if (const auto amount = numberValue(dictionary.value(kPanAmountKey)))
        setPanAmount(*amount);
}

TeskEffectsSettings::~TeskEffectsSettings() {
    setEqualizerSettings(nullptr);
    setVocalReductionEffectSettings(nullptr);
}

QVariantMap TeskEffectsSettings::dictionaryRepresentation() const {
    QVariantMap dictionary{
        {kEqualizerEnabledKey, mEqualizerEnabled},
        {kVocalReductionEnabledKey, mVocalReductionEnabled},
        {kOutOfPhaseKey, mOutOfPhase},
        {kPanningEnabledKey, mPanningEnabled},
        {kPanAmountKey, mPanAmount},
    };
    if (mEqualizerSettings)
        dictionary.insert(kEqualizerSettingsKey, mEqualizerSettings->dictionaryRepresentation());
    if (mVocalReductionEffectSettings) {
        dictionary.insert(kVocalReductionSettingsKey,
                          mVocalReductionEffectSettings->dictionaryRepresentation());
    }
    return dictionary;
}

std::unique_ptr<TeskEffectsSettings> TeskEffectsSettings::copy() const {
    auto settings = std::make_unique<TeskEffectsSettings>();
    settings->setEqualizerEnabled(mEqualizerEnabled);
    settings->setEqualizerSettings(mEqualizerSettings.get());
    settings->setVocalReductionEnabled(mVocalReductionEnabled);
    settings->setVocalReductionEffectSettings(mVocalReductionEffectSettings.get());
    settings->setOutOfPhase(mOutOfPhase);
    settings->setPanningEnabled(mPanningEnabled);
    settings->setPanAmount(mPanAmount);
    return settings;
}

void TeskEffectsSettings::setEqualizerEnabled(bool enabled) {
    mEqualizerEnabled = enabled;
    emit equalizerEnabledChanged();
}

void TeskEffectsSettings::setEqualizerSettings(TeskEqualizerSettings* settings) {
    if (mEqualizerSettings)
        removeObserver(mEqualizerSettings.get(), this, QStringLiteral("bands"));
    // Copy before letting the old one go: the caller may pass our own object.
    auto copy = settings ? settings->copy() : nullptr;
    mEqualizerSettings = std::move(copy);
    if (mEqualizerSettings) {
        addObserver(mEqualizerSettings.get(), this, QStringLiteral("bands"), ObservingOption::None,
                    kEqualizerContext);
    }
    emit equalizerSettingsChanged();
}

void TeskEffectsSettings::setOutOfPhase(bool outOfPhase) {
    mOutOfPhase = outOfPhase;
    emit outOfPhaseChanged();
}

void TeskEffectsSettings::setPanningEnabled(bool enabled) {
    mPanningEnabled = enabled;
    emit panningEnabledChanged();
}

void TeskEffectsSettings::setPanAmount(double amount) {
    mPanAmount = amount;
    emit panAmountChanged();
}

void TeskEffectsSettings::setVocalReductionEnabled(bool enabled) {
    mVocalReductionEnabled = enabled;
    emit vocalReductionEnabledChanged();
}

void TeskEffectsSettings::setVocalReductionEffectSettings(
    TeskVocalReductionEffectSettings* settings) {
    if (TeskVocalReductionEffectSettings* old = mVocalReductionEffectSettings.get()) {
        removeObserver(old, this, QStringLiteral("lowFrequency"));
        removeObserver(old, this, QStringLiteral("highFrequency"));
    }
    auto copy = settings ? settings->copy() : nullptr;
    mVocalReductionEffectSettings = std::move(copy);
    if (TeskVocalReductionEffectSettings* now = mVocalReductionEffectSettings.get()) {
        addObserver(now, this, QStringLiteral("lowFrequency"), ObservingOption::None,
                    kVocalReductionContext);
        addObserver(now, this, QStringLiteral("highFrequency"), ObservingOption::None,
                    kVocalReductionContext);
    }
    emit vocalReductionEffectSettingsChanged();
}

void TeskEffectsSettings::observeValueForKeyPath(const QString&, QObject*, const void* context) {
    // A value inside a nested object changed: to our observers, our own key changed.
    if (context == kEqualizerContext)
        announceChange(this, "equalizerSettings");
    else if (context == kVocalReductionContext)
        announceChange(this, "vocalReductionEffectSettings");
}

} // namespace tesk
