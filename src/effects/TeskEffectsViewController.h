#pragma once

#include "audio/TeskEffectsSettings.h"
#include "effects/TeskEffectViewDelegate.h"
#include "observation/KeyValueObserving.h"

#include <QPointer>
#include <QWidget>
#include <memory>
#include <vector>

class QCheckBox;
class QComboBox;

namespace tesk {

class TeskEQSettingsView;
class TeskPanSlider;
class TeskPanningSpectrumEffectView;
class TeskSpectrumEffectView;
class TeskVocalRemovalSettingsView;

/// The effects panel of a song's window: the equalizer editor, the vocal band editor and the
/// pan slider over their live spectra, each effect with its switch, the out-of-phase switch,
/// and two preset menus ("Manual", a separator, then the presets).
///
/// Its represented object is a document's effect settings; the editors are bound to it and
/// write to it. The menus follow the settings: the last preset equal to them is selected, and
/// when none is, "Manual", whose values are remembered so that choosing "Manual" later brings
/// them back. Choosing any preset (even the one shown) switches its effect on; so does starting
/// an edit in an editor (before the first value changes) and moving the pan slider.
///
/// The window feeds the live spectrum from its display timer (1/15 s while playing):
///     setFrequencyTable(table)                  once, when playing starts
///     setFrequencyResponse(left, 0); setFrequencyResponse(right, 1); refreshFrequencyDisplays();
/// The first two only store the vectors (moved in, nothing copied); the refresh repaints the
/// three editors, which draw the spectrum only while their effect is on.
///
/// Main thread.
class TeskEffectsViewController : public QWidget,
                                  private KeyValueObserver,
                                  private TeskEffectViewDelegate {
    Q_OBJECT
public:
    explicit TeskEffectsViewController(QWidget* parent = nullptr);
    ~TeskEffectsViewController() override;

    /// Where Tab enters the panel: the first effect's switch.
    QWidget* firstTabStop() const;

    /// The settings shown and edited; null shows nothing and disables the panel. Not owned;
    /// set it to null before the settings go.
    void setRepresentedObject(TeskEffectsSettings* settings);
    TeskEffectsSettings* representedObject() const { return mRepresentedObject; }

    /// The frequency in Hz of each spectrum point, for all three editors.
    void setFrequencyTable(std::vector<float> table);
    /// The latest spectrum of `channel` (0 left, 1 right), for all three editors; stored only.
    void setFrequencyResponse(std::vector<float> spectrum, unsigned channel);
    /// Repaints the editors whose effect is on (the others show no spectrum) with the spectra
    /// last given.
    void refreshFrequencyDisplays();

    /// Choosing a menu item, as the user does: 0 "Manual", 2 on the presets.
    void equalizerPresetChanged(int index);
    void vocalReductionPresetChanged(int index);
    /// The pan slider's action: panning comes on.
    void panSliderChanged();

    /// The presets in menu order (item = index + 2).
    const std::vector<std::unique_ptr<TeskEqualizerSettings>>& equalizerPresetsArray() const {
        return mEqualizerPresetsArray;
    }
    const std::vector<std::unique_ptr<TeskVocalReductionEffectSettings>>&
    vocalReductionPresetsArray() const {
        return mVocalReductionPresetsArray;
    }
    /// The values "Manual" brings back, or null before any were remembered.
    const TeskEqualizerSettings* manualEqualizerSettings() const {
        return mManualEqualizerSettings.get();
    }
    const TeskVocalReductionEffectSettings* manualVocalReductionSettings() const {
        return mManualVocalReductionSettings.get();
    }

    // The panel's parts, for the window's tests and pictures.
    TeskEQSettingsView* eqSettingsView() const { return mEQSettingsView; }
    TeskVocalRemovalSettingsView* vocalRemovalSettingsView() const {
        return mVocalRemovalSettingsView;
    }
    TeskPanningSpectrumEffectView* panSpectrumView() const { return mPanSpectrumView; }
    TeskPanSlider* panSlider() const { return mPanSlider; }
    QComboBox* equalizerPresetsPopUp() const { return mEqualizerPresetsPopUp; }
    QComboBox* vocalReductionPresetsPopUp() const { return mVocalReductionPresetsPopUp; }
    QCheckBox* equalizerSwitch() const { return mEqualizerSwitch; }
    QCheckBox* vocalReductionSwitch() const { return mVocalReductionSwitch; }
    QCheckBox* panningSwitch() const { return mPanningSwitch; }
    QCheckBox* outOfPhaseSwitch() const { return mOutOfPhaseSwitch; }

    QSize sizeHint() const override;

private:
    void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                const void* context) override;
    void effectViewDidBeginEditing(TeskSpectrumEffectView* view) override;

    void buildPanel();
    void bindViews();
    void unbindViews();
    void showSwitches();
    void equalizerSettingsChanged();
    void vocalReductionSettingsChanged();

    TeskEQSettingsView* mEQSettingsView = nullptr;
    TeskVocalRemovalSettingsView* mVocalRemovalSettingsView = nullptr;
    TeskPanningSpectrumEffectView* mPanSpectrumView = nullptr;
    QComboBox* mEqualizerPresetsPopUp = nullptr;
    QComboBox* mVocalReductionPresetsPopUp = nullptr;
    std::vector<std::unique_ptr<TeskEqualizerSettings>> mEqualizerPresetsArray;
    std::vector<std::unique_ptr<TeskVocalReductionEffectSettings>> mVocalReductionPresetsArray;
    std::unique_ptr<TeskEqualizerSettings> mManualEqualizerSettings;
    std::unique_ptr<TeskVocalReductionEffectSettings> mManualVocalReductionSettings;

    TeskPanSlider* mPanSlider = nullptr;
    QCheckBox* mEqualizerSwitch = nullptr;
    QCheckBox* mVocalReductionSwitch = nullptr;
    QCheckBox* mPanningSwitch = nullptr;
    QCheckBox* mOutOfPhaseSwitch = nullptr;
    QPointer<TeskEffectsSettings> mRepresentedObject;
    std::vector<QMetaObject::Connection> mSwitchConnections;
};

} // namespace tesk
