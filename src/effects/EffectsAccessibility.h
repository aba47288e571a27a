#pragma once

#include <QString>

namespace tesk {

/// Lets screen readers reach the effect editors' handles: each equalizer band ("125 Hz", value
/// "+3 dB"), both vocal band edges ("Vocal band low edge", value "200 Hz") and the pan slider,
/// each readable and settable. Installed once, by the effects panel. Main thread.
void installEffectsAccessibility();

/// The spoken forms of the values.
QString spokenGain(double decibels);
QString spokenFrequency(double hertz);
QString spokenPan(double panFraction);

} // namespace tesk
