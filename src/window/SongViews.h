#pragma once

#include "window/WindowCommands.h"

#include <QObject>

class QWidget;

namespace tesk {

class TeskDocument;

/// The views a song's window shows, bound to its document: the transport panel (time display,
/// speed/pitch switch, speed or pitch control), the waveform with its scroller, and the effects
/// panel. The window controller lays them out and drives them. Main thread.
class SongViews : public QObject {
    Q_OBJECT
public:
    SongViews(TeskDocument* document, QWidget* parent);
    ~SongViews() override;

    QWidget* transportPanel() const { return mTransportPanel; }
    QWidget* waveformArea() const { return mWaveformArea; }
    QWidget* effectsPanel() const { return mEffectsPanel; }

    /// Binds every view to the document; `window` becomes the waveform's delegate.
    void bind(QWidget* window);
    /// Removes every binding.
    void unbind();

    bool canIncreaseSpeed() const;
    bool canDecreaseSpeed() const;
    bool canIncreasePitch() const;
    bool canDecreasePitch() const;
    /// The commands the views carry out (navigation, selection, speed and pitch steps).
    void perform(WindowCommand command);

    void playingChanged(bool playing, bool looping);
    /// The 1/15 s display refresh: time and spectra.
    void updateHUD();
    /// The play head's refresh, at the screen's rate.
    void updatePlayHead();

private:
    TeskDocument* mDocument;
    QWidget* mTransportPanel = nullptr;
    QWidget* mWaveformArea = nullptr;
    QWidget* mEffectsPanel = nullptr;
};

} // namespace tesk
