#pragma once

namespace tesk {

/// Lets screen readers read the waveform view (its play position and loop) and the marker
/// scroller (its position), by name and value. Installed once; main thread.
void installWaveformAccessibility();

} // namespace tesk
