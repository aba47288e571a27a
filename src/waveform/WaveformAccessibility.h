#pragma once

#include "audio/TeskAudioFileReader.h"

#include <QList>
#include <QString>
#include <cstdint>

namespace tesk {

class WaveformView;

/// Lets screen readers read the waveform view (its play position and loop) and the marker
/// scroller (its position), by name and value. Installed once; main thread.
void installWaveformAccessibility();

/// The play position as a screen reader's value: seconds from the start of the song.
double playPositionSeconds(qint64 frame);

/// The play position, the markers there and the loop as a screen reader says them, to the
/// second: "01:05, at a chorus marker, loop from 00:30 to 01:10". `markerKindsHere` are the
/// kinds (0 generic, 1 chorus, 2 verse, 3 bridge) of the markers at exactly `frame`, so that a
/// marker dropped or taken away at the play head is heard. Qt hands a screen reader a value
/// only as a number, so these words are the waveform view's description.
QString spokenPlayPosition(qint64 frame, LoopRange loop, const QList<int>& markerKindsHere = {});

/// The tip over a marker: its kind and time as the time display shows it, and on a line of its
/// own what the mouse does with it: "Chorus marker at 01:05.360", "Click to go here; drag to
/// move it, or off the strip to remove it."
QString markerToolTip(std::uint32_t kind, qint64 frame);
/// The tip over the loop's button, whose picture alone says little.
QString loopButtonToolTip(bool loopPlaying);

} // namespace tesk
