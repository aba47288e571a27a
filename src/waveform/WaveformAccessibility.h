#pragma once

#include "audio/TeskAudioFileReader.h"

#include <QString>

namespace tesk {

class WaveformView;

/// Lets screen readers read the waveform view (its play position and loop) and the marker
/// scroller (its position), by name and value. Installed once; main thread.
void installWaveformAccessibility();

/// The play position and loop as a screen reader says them, to the second: "01:05, loop from
/// 00:30 to 01:10". Qt hands a screen reader a value only as a number, so these words are the
/// waveform view's description.
QString spokenPlayPosition(qint64 frame, LoopRange loop);

} // namespace tesk
