#pragma once

#include <QString>
#include <QtGlobal>
#include <array>
#include <optional>

namespace tesk {

/// The arithmetic of the transport controls, apart from any widget. Any thread.
namespace TransportRules {

// Speed.
inline constexpr int kSpeedMarkCount = 5;
/// The marks' speeds, slowest first.
inline constexpr std::array<double, kSpeedMarkCount> kSpeedMarks{0.25, 0.5, 0.75, 1.0, 1.5};
/// Within this many points of a mark's centre a drag lands on the mark.
inline constexpr double kSpeedSnapPoints = 4.0;
/// How far a notch of the wheel moves the speed knob: past the snap to a mark, so that a notch
/// leaves a mark and the notch back reaches it again. Shift moves as far without the snap.
inline constexpr double kSpeedWheelPointsPerNotch = 5.0;

/// The speed at x: piecewise linear between mark centres; with `snap`, a mark within 4 points
/// (the right mark of a pair tested first). Beyond the marks: the last mark's speed right of
/// `middleX`, the first's left of it.
double speedForX(double x, const std::array<double, kSpeedMarkCount>& centres,
                 const std::array<double, kSpeedMarkCount>& speeds, bool snap, double middleX);
/// Where the knob goes for `speed` (floored); nothing above the last mark (the knob stays).
std::optional<double> knobXForSpeed(double speed,
                                    const std::array<double, kSpeedMarkCount>& centres,
                                    const std::array<double, kSpeedMarkCount>& speeds);
/// The marks' opacities: 0.93 for a mark hit exactly, else the two neighbours of the knob
/// cross-fading between 0.5 and 1.0, the rest 0.5.
std::array<double, kSpeedMarkCount>
markOpacities(double speed, double knobX, const std::array<double, kSpeedMarkCount>& centres,
              const std::array<double, kSpeedMarkCount>& speeds);
/// The next mark up or down from `speed`; nothing past the ends.
std::optional<double> steppedSpeed(double speed, bool up,
                                   const std::array<double, kSpeedMarkCount>& speeds);
/// Whether the speed differs from normal (NaN does not).
bool speedIsDirty(double speed);
/// "75%".
QString speedText(double speed);

// Pitch, in semitones.
inline constexpr double kPitchRange = 24.0;
/// The knob's x for `semitones` on a slot from `slotX`, `slotWidth` wide: rounded in single
/// precision, plus half a point so that one-point lines fall on pixel centres.
double pitchX(double semitones, double slotX, double slotWidth);
/// The pitch at x, whole semitones (half to even) with `snap`; not clamped.
double pitchForX(double x, double slotX, double slotWidth, bool snap);
enum class PitchStep { Up, Down, UpFinely, DownFinely, UpOctave, DownOctave, Reset };
/// The pitch after a step: halves are rounded to the nearest half semitone after clamping;
/// fine and octave steps are only clamped.
double steppedPitch(double semitones, PitchStep step);
/// The pitch after a wheel turn of `delta` units: half a semitone a unit rounded to whole
/// semitones, or with Shift (`fine`) 0.02 a unit unrounded; clamped.
double wheeledPitch(double semitones, double delta, bool fine);
/// A notch of the wheel is two units: a whole semitone either way, where one unit, rounded
/// half away from zero, could never step back towards 0 (2.5 rounds to 3); with Shift, 0.04.
inline constexpr double kPitchWheelUnitsPerNotch = 2.0;
bool pitchIsDirty(double semitones);
/// "+1.5", "-12", "0".
QString pitchText(double semitones);
/// The pitch as a screen reader says it, rounded as shown: "plus 1.5 semitones".
QString spokenPitch(double semitones);
/// The speed as a screen reader says it, rounded as shown: "75 %".
QString spokenSpeed(double speed);

// Time.
/// "%02d:%02d.%03d" of `frame` at 44100 frames a second; minutes are not limited to two digits.
QString timeString(double milliseconds);
double millisecondsForFrame(qint64 frame);

} // namespace TransportRules
} // namespace tesk
