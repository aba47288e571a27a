#pragma once

#include <QString>

class QWidget;

namespace tesk {

/// Lets screen readers reach the effect editors' handles: each equalizer band ("125 Hz", value
/// "+3 dB"), both vocal band edges ("Vocal band low edge", value "200 Hz") and the pan slider,
/// each readable and settable. Installed once, by the effects panel. Main thread.
void installEffectsAccessibility();

/// Tells screen readers that handle `handle` of `editor` has a new value, and so new words in its
/// description (Qt hands them the value only as a number). Main thread.
void announceHandleValue(QWidget* editor, int handle, double value);

/// The spoken forms of the values.
QString spokenGain(double decibels);
QString spokenFrequency(double hertz);
QString spokenPan(double panFraction);

} // namespace tesk
