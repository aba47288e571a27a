#pragma once

#include "audio/TeskEffectsSettings.h"

#include <QPointer>
#include <QWidget>
#include <array>
#include <memory>
#include <vector>

class QCheckBox;
class QHBoxLayout;
class QComboBox;
class QSlider;
class QSpinBox;

namespace tesk {

class SpectrumStrip;
class TeskEqualizerSettings;
class TeskVocalReductionEffectSettings;

/// The effects panel of a song's window: the equalizer, the vocal reduction and the pan mix,
/// each with its switch, the two preset menus ("Manual", a separator, then the presets), and
/// the live spectrum behind the editors. Its represented object is a document's effect
/// settings: every control follows it and writes to it. Touching an editor, or choosing any
/// preset (even the one shown), switches that effect on. Main thread.
class TeskEffectsViewController : public QWidget {
    Q_OBJECT
public:
    static constexpr int kBandCount = 10;

    explicit TeskEffectsViewController(QWidget* parent = nullptr);
    ~TeskEffectsViewController() override;

    /// The settings shown and edited; null shows nothing. Not owned.
    void setRepresentedObject(TeskEffectsSettings* settings);
    TeskEffectsSettings* representedObject() const { return mSettings; }

    /// The live spectrum, from the window's display timer: cheap, only stored until the next
    /// refresh.
    void setFrequencyTable(std::vector<float> table);
    void setFrequencyResponse(std::vector<float> spectrum, unsigned channel);
    void refreshFrequencyDisplays();

    // The controls, for the window's tests and for screen readers.
    QComboBox* equalizerPresetsPopUp() const { return mEqualizerPresets; }
    QComboBox* vocalReductionPresetsPopUp() const { return mVocalPresets; }
    QSlider* bandSlider(int band) const { return mBands[std::size_t(band)]; }
    QSpinBox* lowEdgeBox() const { return mLowEdge; }
    QSpinBox* highEdgeBox() const { return mHighEdge; }
    QSlider* panSlider() const { return mPan; }
    QCheckBox* equalizerSwitch() const { return mEqualizerOn; }

    /// Choosing a menu item, as the user does.
    void equalizerPresetChanged(int index);
    void vocalReductionPresetChanged(int index);

private:
    void buildEqualizer(QHBoxLayout* row);
    void buildVocalReduction(QHBoxLayout* row);
    void buildPan(QHBoxLayout* row);
    void connectSettings();
    void showEqualizer();
    void showVocalReduction();
    void showSwitches();
    void effectViewDidBeginEditing(bool equalizer);

    QPointer<TeskEffectsSettings> mSettings;
    std::vector<std::unique_ptr<TeskEqualizerSettings>> mEqualizerPresetsArray;
    std::vector<std::unique_ptr<TeskVocalReductionEffectSettings>> mVocalReductionPresetsArray;
    std::unique_ptr<TeskEqualizerSettings> mManualEqualizerSettings;
    std::unique_ptr<TeskVocalReductionEffectSettings> mManualVocalReductionSettings;
    std::vector<QMetaObject::Connection> mConnections;
    bool mShowing = false; // true while the controls are set from the model

    QCheckBox* mEqualizerOn = nullptr;
    QComboBox* mEqualizerPresets = nullptr;
    std::array<QSlider*, kBandCount> mBands{};
    SpectrumStrip* mEqualizerSpectrum = nullptr;
    QCheckBox* mVocalOn = nullptr;
    QComboBox* mVocalPresets = nullptr;
    QSpinBox* mLowEdge = nullptr;
    QSpinBox* mHighEdge = nullptr;
    SpectrumStrip* mVocalSpectrum = nullptr;
    QCheckBox* mPanOn = nullptr;
    QCheckBox* mOutOfPhase = nullptr;
    QSlider* mPan = nullptr;
};

} // namespace tesk
