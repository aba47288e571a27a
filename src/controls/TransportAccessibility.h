#pragma once

namespace tesk {

/// Lets screen readers read and set the speed control ("Speed, 75 %"), the pitch control
/// ("Pitch, minus 2 semitones") and read the time display, by name and value. Installed once;
/// main thread.
void installTransportAccessibility();

} // namespace tesk
