#include "effects/TeskEffectsViewController.h"
#include "effects/PresetMenuRule.h"

#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"

#include <QComboBox>
#include <QSlider>
#include <QSpinBox>
#include <gtest/gtest.h>

using namespace tesk;

TEST(PresetMenuRule, TheLastEqualPresetWinsAndNoneIsManual) {
    const struct {
        std::vector<bool> equal;
        int index;
    } cases[] = {{{false, false, false}, 0},
                 {{true, false, false}, 2},
                 {{true, false, true}, 4},
                 {{false, true, false}, 3},
                 {{}, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(
            presetMenuIndex(int(c.equal.size()), [&](int i) { return c.equal[std::size_t(i)]; }),
            c.index);
}

TEST(TeskEffectsViewController, MenusFollowTheSettingsAndEveryChoiceSwitchesTheEffectOn) {
    TeskEffectsSettings settings;
    TeskEffectsViewController panel;
    panel.setRepresentedObject(&settings);
    QComboBox* eq = panel.equalizerPresetsPopUp();
    EXPECT_EQ(eq->currentIndex(), 2); // a new document's bands are flat
    EXPECT_FALSE(settings.isEqualizerEnabled());

    // Choosing the preset already shown still switches the equalizer on.
    panel.equalizerPresetChanged(2);
    EXPECT_TRUE(settings.isEqualizerEnabled());

    // "Manual" before any manual edit keeps the flat values.
    panel.equalizerPresetChanged(0);
    EXPECT_TRUE(settings.equalizerSettings()->isEqual(*TeskEqualizerSettings::flatPreset()));

    // Isolate Bass, then one band moved: the menu says "Manual" at once, and "Manual" later
    // brings that edit back.
    panel.equalizerPresetChanged(3);
    EXPECT_EQ(eq->currentIndex(), 3);
    panel.bandSlider(9)->setValue(50); // +5 dB at 16 kHz
    EXPECT_EQ(eq->currentIndex(), 0);
    EXPECT_DOUBLE_EQ(settings.equalizerSettings()->bands()[9], 5.0);
    panel.equalizerPresetChanged(2);
    panel.equalizerPresetChanged(0);
    EXPECT_DOUBLE_EQ(settings.equalizerSettings()->bands()[9], 5.0);

    // Touching a band while the equalizer is off switches it on first.
    settings.setEqualizerEnabled(false);
    panel.bandSlider(0)->setValue(-30);
    EXPECT_TRUE(settings.isEqualizerEnabled());

    // The vocal band: a preset, then an edge typed in.
    settings.setVocalReductionEnabled(false);
    panel.vocalReductionPresetChanged(3);
    EXPECT_TRUE(settings.isVocalReductionEnabled());
    EXPECT_TRUE(settings.vocalReductionEffectSettings()->isEqual(
        *TeskVocalReductionEffectSettings::femaleVocalPreset()));
    EXPECT_EQ(panel.vocalReductionPresetsPopUp()->currentIndex(), 3);
    panel.lowEdgeBox()->setValue(300);
    EXPECT_DOUBLE_EQ(settings.vocalReductionEffectSettings()->lowFrequency(), 300.0);
    EXPECT_EQ(panel.vocalReductionPresetsPopUp()->currentIndex(), 0);

    // The pan slider switches panning on and rests at the centre within 0.05.
    panel.panSlider()->setValue(540);
    EXPECT_TRUE(settings.isPanningEnabled());
    EXPECT_DOUBLE_EQ(settings.panAmount(), 0.5);
    panel.panSlider()->setValue(1000);
    EXPECT_DOUBLE_EQ(settings.panAmount(), 1.0);
}
