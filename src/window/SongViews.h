#pragma once

#include "controls/TransportRules.h"
#include "window/WindowCommands.h"

#include <QObject>

class QWidget;

namespace tesk {

class HUDPitchControlView;
class HUDSpeedControlView;
class HUDSwitchControlView;
class HUDTimeDisplayView;
class TeskDocument;
class TeskEffectsViewController;
class TeskScroller;
class WaveformView;
class WaveformViewDelegate;

/// The views a song's window shows, bound to its document: the transport panel, the waveform
/// with its marker scroller, and the effects panel. The window controller lays them out and
/// drives them. Main thread.
class SongViews : public QObject {
    Q_OBJECT
public:
    SongViews(TeskDocument* document, QWidget* parent);
    ~SongViews() override;

    QWidget* transportPanel() const { return mTransportPanel; }
    QWidget* waveformArea() const { return mWaveformArea; }
    QWidget* effectsPanel() const;
    TeskEffectsViewController* effectsController() const { return mEffectsPanel; }
    WaveformView* waveformView() const { return mWaveformView; }
    TeskScroller* scroller() const { return mScroller; }
    HUDSpeedControlView* speedControl() const { return mSpeedControl; }
    HUDPitchControlView* pitchControl() const { return mPitchControl; }
    HUDSwitchControlView* switchControl() const { return mSwitchControl; }
    HUDTimeDisplayView* timeDisplay() const { return mTimeDisplay; }
    /// Shows the speed or the pitch control, as the switch says.
    void controlSwitchChanged();

    /// Binds every view to the document; `delegate` hears the waveform's gestures.
    void bind(WaveformViewDelegate* delegate);
    /// Removes every binding.
    void unbind();

    bool canIncreaseSpeed() const;
    bool canDecreaseSpeed() const;
    bool canIncreasePitch() const;
    bool canDecreasePitch() const;
    /// The commands the views carry out (navigation, selection, speed and pitch steps).
    void perform(WindowCommand command);

    void playingChanged(bool playing, bool looping);
    /// The 1/15 s display refresh: the time readout and the live spectra.
    void updateHUD();
    /// The play head's refresh, at the screen's rate: the newest heard-position report goes to
    /// the waveform's clock, which places the cursor for this moment.
    void updatePlayHead();

private:
    static constexpr int kSpeedShown = 0; // the switch's states
    static constexpr int kPitchShown = 1;
    /// Turns the switch to `switchState`, showing its control.
    void showControl(int switchState);
    /// Shows the pitch control and steps it.
    void stepPitch(TransportRules::PitchStep step);
    TeskDocument* mDocument;
    QWidget* mTransportPanel = nullptr;
    HUDTimeDisplayView* mTimeDisplay = nullptr;
    HUDSwitchControlView* mSwitchControl = nullptr;
    QWidget* mControlHolder = nullptr;
    HUDSpeedControlView* mSpeedControl = nullptr;
    HUDPitchControlView* mPitchControl = nullptr;
    QWidget* mWaveformArea = nullptr;
    WaveformView* mWaveformView = nullptr;
    TeskScroller* mScroller = nullptr;
    TeskEffectsViewController* mEffectsPanel = nullptr;
};

} // namespace tesk
