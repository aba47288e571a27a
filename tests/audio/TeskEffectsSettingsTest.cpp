#include "audio/TeskEffectsSettings.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace tesk;

namespace {

/// Counts the notifications of one key path.
class Counter : public KeyValueObserver {
public:
    Counter(QObject* object, const QString& keyPath) { addObserver(object, this, keyPath); }
    void observeValueForKeyPath(const QString&, QObject*, const void*) override { ++count; }
    int count = 0;
};

QVariantMap throughJson(const QVariantMap& dictionary) {
    const QByteArray json = QJsonDocument(QJsonObject::fromVariantMap(dictionary)).toJson();
    return QJsonDocument::fromJson(json).object().toVariantMap();
}

const QList<double> kFlatBands(10, 0.0);

} // namespace

TEST(TeskEqualizerSettings, PresetsCopiesAndEquality) {
    EXPECT_EQ(TeskEqualizerSettings().name(), "Manual");
    EXPECT_EQ(TeskEqualizerSettings().bands(), kFlatBands);
    EXPECT_EQ(TeskEqualizerSettings::flatPreset()->name(), "Flat");
    const auto bass = TeskEqualizerSettings::isolateBassPreset();
    EXPECT_EQ(bass->name(), "Isolate Bass");
    EXPECT_EQ(bass->bands(), (QList<double>{0, 0, 0, 0, -20, -20, -20, -20, -20, -20}));
    const auto mids = TeskEqualizerSettings::isolateMidsPreset();
    EXPECT_EQ(mids->name(), "Isolate Midrange");
    EXPECT_EQ(mids->bands(), (QList<double>{-20, -20, -20, 0, 0, 0, 0, -20, -20, -20}));

    const auto copy = bass->copy();
    EXPECT_EQ(copy->name(), "Isolate Bass"); // equalizer copies keep the name
    EXPECT_TRUE(copy->isEqual(*bass));
    EXPECT_TRUE(TeskEqualizerSettings().isEqual(*TeskEqualizerSettings::flatPreset()));
    EXPECT_FALSE(bass->isEqual(*mids));
    copy->setBands({0, 0, 0});
    EXPECT_FALSE(copy->isEqual(*TeskEqualizerSettings::flatPreset()));
    EXPECT_EQ(bass->bands().size(), 10); // the copy shares nothing
}

TEST(TeskVocalReductionEffectSettings, PresetsCopiesEqualityAndRoundingObservedThroughRawEdges) {
    const TeskVocalReductionEffectSettings manual;
    EXPECT_EQ(manual.name(), "Manual");
    EXPECT_EQ(manual.lowFrequency(), 0.0);
    EXPECT_EQ(manual.highFrequency(), 0.0);
    const auto male = TeskVocalReductionEffectSettings::maleVocalPreset();
    const auto female = TeskVocalReductionEffectSettings::femaleVocalPreset();
    EXPECT_EQ(male->name(), "Male Vocals");
    EXPECT_EQ(female->name(), "Female Vocals");
    EXPECT_EQ(female->lowFrequency(), 350.0);
    EXPECT_EQ(female->highFrequency(), 3500.0);

    const auto copy = male->copy();
    EXPECT_EQ(copy->name(), "Manual"); // copies are the user's own band
    EXPECT_EQ(copy->lowFrequency(), 120.0);
    EXPECT_EQ(copy->highFrequency(), 2800.0);
    EXPECT_TRUE(copy->isEqual(*male));
    copy->setHighFrequency(2800.0000001);
    EXPECT_FALSE(copy->isEqual(*male));

    // Half to even, after a trip through single precision; each rounded edge notifies with its
    // own raw one.
    TeskVocalReductionEffectSettings band;
    Counter low(&band, "roundLowFrequency");
    Counter high(&band, "roundHighFrequency");
    const std::pair<double, unsigned> cases[] = {
        {120.5, 120}, {121.5, 122}, {122.5, 122}, {2799.6, 2800}, {0.49, 0}};
    for (const auto& [hertz, rounded] : cases) {
        band.setLowFrequency(hertz);
        EXPECT_EQ(high.count, low.count - 1) << hertz;
        band.setHighFrequency(hertz);
        EXPECT_EQ(high.count, low.count) << hertz;
        EXPECT_EQ(band.roundLowFrequency(), rounded) << hertz;
        EXPECT_EQ(band.roundHighFrequency(), rounded) << hertz;
    }
    EXPECT_EQ(low.count, 5);
}

TEST(TeskEffectsSettings, DefaultsAndNestedSettingsAreStoredAsCopies) {
    TeskEffectsSettings settings;
    EXPECT_FALSE(settings.isEqualizerEnabled());
    EXPECT_FALSE(settings.isVocalReductionEnabled());
    EXPECT_FALSE(settings.isPanningEnabled());
    EXPECT_FALSE(settings.isOutOfPhase());
    EXPECT_EQ(settings.panAmount(), 0.5);
    EXPECT_TRUE(settings.equalizerSettings()->isEqual(*TeskEqualizerSettings::flatPreset()));
    EXPECT_TRUE(settings.vocalReductionEffectSettings()->isEqual(
        *TeskVocalReductionEffectSettings::maleVocalPreset()));
    // Stored copies of a vocal preset lose the preset's name.
    EXPECT_EQ(settings.vocalReductionEffectSettings()->name(), "Manual");

    auto female = TeskVocalReductionEffectSettings::femaleVocalPreset();
    settings.setVocalReductionEffectSettings(female.get());
    EXPECT_NE(settings.vocalReductionEffectSettings(), female.get());
    female->setLowFrequency(1.0);
    EXPECT_EQ(settings.vocalReductionEffectSettings()->lowFrequency(), 350.0);

    // Setting the object it already holds is safe.
    settings.setEqualizerSettings(settings.equalizerSettings());
    EXPECT_EQ(settings.equalizerSettings()->bands(), kFlatBands);
}

TEST(TeskEffectsSettings, ChangesInsideNestedSettingsReachObserversOfTheOwnersKey) {
    TeskEffectsSettings settings;
    Counter equalizer(&settings, "equalizerSettings");
    Counter vocal(&settings, "vocalReductionEffectSettings");
    Counter bands(&settings, "equalizerSettings.bands");

    settings.vocalReductionEffectSettings()->setLowFrequency(200.0);
    settings.vocalReductionEffectSettings()->setHighFrequency(3000.0);
    EXPECT_EQ(vocal.count, 2);
    EXPECT_EQ(equalizer.count, 0);

    settings.equalizerSettings()->setBands(QList<double>(10, -3.0));
    EXPECT_EQ(equalizer.count, 1);
    EXPECT_GE(bands.count, 1);

    // After a replacement the new nested object is the one that is followed.
    auto bass = TeskEqualizerSettings::isolateBassPreset();
    settings.setEqualizerSettings(bass.get());
    const int afterReplacement = equalizer.count;
    bass->setBands(kFlatBands); // the caller's object is not ours
    EXPECT_EQ(equalizer.count, afterReplacement);
    const int bandsBefore = bands.count;
    settings.equalizerSettings()->setBands(kFlatBands);
    EXPECT_EQ(equalizer.count, afterReplacement + 1);
    EXPECT_GT(bands.count, bandsBefore);

    // Copies are independent and carry every value.
    settings.setPanAmount(0.8);
    settings.setOutOfPhase(true);
    const auto copy = settings.copy();
    EXPECT_EQ(copy->panAmount(), 0.8);
    EXPECT_TRUE(copy->isOutOfPhase());
    EXPECT_TRUE(copy->equalizerSettings()->isEqual(*settings.equalizerSettings()));
    const int beforeCopyChange = equalizer.count;
    copy->equalizerSettings()->setBands(QList<double>(10, 5.0));
    EXPECT_EQ(equalizer.count, beforeCopyChange);
}

TEST(TeskEffectsSettings, DictionaryFormSurvivesJsonAndReadsMissingKeysAsDefaults) {
    TeskEffectsSettings settings;
    settings.setEqualizerEnabled(true);
    settings.setEqualizerSettings(TeskEqualizerSettings::isolateMidsPreset().get());
    settings.setVocalReductionEnabled(true);
    settings.vocalReductionEffectSettings()->setLowFrequency(333.25);
    settings.setPanningEnabled(true);
    settings.setOutOfPhase(true);
    settings.setPanAmount(0.125);

    const QVariantMap dictionary = throughJson(settings.dictionaryRepresentation());
    EXPECT_EQ(dictionary.value("VocalReductionSettings").toMap().keys(),
              (QStringList{"HighFrequency", "LowFrequency"}));
    const TeskEffectsSettings read(dictionary);
    EXPECT_TRUE(read.isEqualizerEnabled());
    EXPECT_TRUE(read.equalizerSettings()->isEqual(*TeskEqualizerSettings::isolateMidsPreset()));
    EXPECT_EQ(read.equalizerSettings()->name(), "Manual"); // names stay behind
    EXPECT_TRUE(read.isVocalReductionEnabled());
    EXPECT_EQ(read.vocalReductionEffectSettings()->lowFrequency(), 333.25);
    EXPECT_EQ(read.vocalReductionEffectSettings()->highFrequency(), 2800.0);
    EXPECT_TRUE(read.isPanningEnabled());
    EXPECT_TRUE(read.isOutOfPhase());
    EXPECT_EQ(read.panAmount(), 0.125);
    EXPECT_EQ(throughJson(read.dictionaryRepresentation()), dictionary);

    const TeskEffectsSettings empty{QVariantMap{}};
    EXPECT_EQ(empty.dictionaryRepresentation(), TeskEffectsSettings().dictionaryRepresentation());

    // A nested dictionary with one edge gets the nested default (0) for the other, not the
    // preset's.
    const TeskEffectsSettings lowOnly(
        QVariantMap{{"VocalReductionSettings", QVariantMap{{"LowFrequency", 90}}}});
    EXPECT_EQ(lowOnly.vocalReductionEffectSettings()->lowFrequency(), 90.0);
    EXPECT_EQ(lowOnly.vocalReductionEffectSettings()->highFrequency(), 0.0);
}

TEST(TeskEffectsSettings, DamagedDictionariesKeepDefaultsAndOddBandCountsReadAsZero) {
    const TeskEffectsSettings damaged(QVariantMap{
        {"EqualizerEnabled", "yes"},
        {"EqualizerSettings", QVariantMap{{"Bands", QVariantList{1, "x"}}}},
        {"VocalReductionSettings", 12},
        {"PanAmount", QVariantList{}},
        {"PanningEnabled", 1},
    });
    EXPECT_FALSE(damaged.isEqualizerEnabled());
    EXPECT_EQ(damaged.equalizerSettings()->bands(), kFlatBands);
    EXPECT_EQ(damaged.vocalReductionEffectSettings()->lowFrequency(), 120.0);
    EXPECT_EQ(damaged.panAmount(), 0.5);
    EXPECT_TRUE(damaged.isPanningEnabled()); // a number is a fine boolean

    const TeskEqualizerSettings shortBands(QVariantMap{{"Bands", QVariantList{-6.0, 3}}});
    EXPECT_EQ(shortBands.bands(), (QList<double>{-6.0, 3.0})); // kept as given
    EXPECT_EQ(shortBands.gainOfBand(1), 3.0);
    EXPECT_EQ(shortBands.gainOfBand(9), 0.0);
    EXPECT_EQ(shortBands.gainOfBand(-1), 0.0);
}
