#include "controls/TransportRules.h"

#include <QCoreApplication>
#include <algorithm>
#include <cmath>

namespace tesk::TransportRules {

double speedForX(double x, const std::array<double, kSpeedMarkCount>& centres,
                 const std::array<double, kSpeedMarkCount>& speeds, bool snap, double middleX) {
    for (int i = 0; i + 1 < kSpeedMarkCount; ++i) {
        if (snap) {
            if (std::fabs(centres[i + 1] - x) < kSpeedSnapPoints)
                return speeds[i + 1];
            if (std::fabs(x - centres[i]) < kSpeedSnapPoints)
                return speeds[i];
        }
        if (centres[i] <= x && x < centres[i + 1])
            return speeds[i] +
                   (speeds[i + 1] - speeds[i]) * (x - centres[i]) / (centres[i + 1] - centres[i]);
    }
    return x > middleX ? speeds[kSpeedMarkCount - 1] : speeds[0];
}

namespace {
/// The first mark faster than `speed` and the one before it.
std::optional<std::pair<int, int>> neighbours(double speed,
                                              const std::array<double, kSpeedMarkCount>& speeds) {
    for (int upper = 0; upper < kSpeedMarkCount; ++upper)
        if (speeds[upper] > speed)
            return std::pair{std::max(0, upper - 1), upper};
    return std::nullopt;
}
} // namespace

std::optional<double> knobXForSpeed(double speed,
                                    const std::array<double, kSpeedMarkCount>& centres,
                                    const std::array<double, kSpeedMarkCount>& speeds) {
    for (int i = 0; i < kSpeedMarkCount; ++i)
        if (speeds[i] == speed)
            return std::floor(centres[i]);
    const auto pair = neighbours(speed, speeds);
    if (!pair)
        return std::nullopt;
    const auto [lower, upper] = *pair;
    const double t =
        upper == lower ? 0.0 : (speed - speeds[lower]) / (speeds[upper] - speeds[lower]);
    return std::floor(centres[lower] + (centres[upper] - centres[lower]) * t);
}

std::array<double, kSpeedMarkCount>
markOpacities(double speed, double knobX, const std::array<double, kSpeedMarkCount>& centres,
              const std::array<double, kSpeedMarkCount>& speeds) {
    constexpr double inactive = 0.5;
    std::array<double, kSpeedMarkCount> alphas;
    alphas.fill(inactive);
    for (int i = 0; i < kSpeedMarkCount; ++i) {
        if (speeds[i] == speed) {
            alphas[i] = 0.93;
            return alphas;
        }
    }
    const auto pair = neighbours(speed, speeds);
    if (!pair)
        return alphas;
    const auto [lower, upper] = *pair;
    const double span = centres[upper] - centres[lower];
    const double t = span == 0.0 ? 0.0 : (knobX - centres[lower]) / span;
    alphas[upper] = inactive + t * (1.0 - inactive);
    alphas[lower] = inactive + (1.0 - t) * (1.0 - inactive);
    return alphas;
}

std::optional<double> steppedSpeed(double speed, bool up,
                                   const std::array<double, kSpeedMarkCount>& speeds) {
    if (up) {
        for (double mark : speeds)
            if (mark > speed)
                return mark;
    } else {
        for (auto mark = speeds.rbegin(); mark != speeds.rend(); ++mark)
            if (*mark < speed)
                return *mark;
    }
    return std::nullopt;
}

bool speedIsDirty(double speed) {
    return speed < 1.0 || speed > 1.0;
}

QString speedText(double speed) {
    return QStringLiteral("%1%").arg(std::lround(speed * 100.0));
}

double pitchX(double semitones, double slotX, double slotWidth) {
    return double(std::nearbyint(
               float(slotX + (semitones + kPitchRange) / (2 * kPitchRange) * slotWidth))) +
           0.5;
}

double pitchForX(double x, double slotX, double slotWidth, bool snap) {
    const double value = (x - slotX) / slotWidth * (2 * kPitchRange) - kPitchRange;
    return snap ? std::nearbyint(value) : value; // the default rounding: half to even
}

namespace {
// Hundredths do not add up exactly in binary: three up and three down would leave a shift of
// 1e-18 semitones, shown as 0 but marked as changed, and read out as such.
double withoutRoundingError(double semitones) {
    return std::abs(semitones) < 1e-9 ? 0.0 : semitones;
}
} // namespace

double steppedPitch(double semitones, PitchStep step) {
    const auto clamped = [](double v) {
        return withoutRoundingError(std::clamp(v, -kPitchRange, kPitchRange));
    };
    switch (step) {
    case PitchStep::Up:
    case PitchStep::Down: {
        const double v = clamped(semitones + (step == PitchStep::Up ? 0.5 : -0.5));
        return double(std::round(float(2.0 * v)) / 2.0f);
    }
    case PitchStep::UpFinely:
        return clamped(semitones + 0.01);
    case PitchStep::DownFinely:
        return clamped(semitones - 0.01);
    case PitchStep::UpOctave:
        return clamped(semitones + 12.0);
    case PitchStep::DownOctave:
        return clamped(semitones - 12.0);
    case PitchStep::Reset:
        return 0.0;
    }
    return semitones;
}

double wheeledPitch(double semitones, double delta, bool fine) {
    const double v = fine ? semitones + delta * 0.02 : std::round(semitones + delta * 0.5);
    return withoutRoundingError(std::clamp(v, -kPitchRange, kPitchRange));
}

bool pitchIsDirty(double semitones) {
    return semitones < 0.0 || semitones > 0.0;
}

QString pitchText(double semitones) {
    const double rounded = std::round(semitones * 100.0) / 100.0;
    if (rounded == 0.0)
        return QStringLiteral("0");
    QString number = QString::number(std::fabs(rounded), 'f', 2);
    while (number.endsWith(QLatin1Char('0')))
        number.chop(1);
    if (number.endsWith(QLatin1Char('.')))
        number.chop(1);
    return (rounded > 0 ? QStringLiteral("+") : QStringLiteral("-")) + number;
}

QString spokenPitch(double semitones) {
    const QString shown = pitchText(semitones);
    const QString size = shown.mid(1);
    const bool one = size == QLatin1String("1");
    if (shown.startsWith(QLatin1Char('+')))
        return (one ? QCoreApplication::translate("Transport", "plus %1 semitone")
                    : QCoreApplication::translate("Transport", "plus %1 semitones"))
            .arg(size);
    if (shown.startsWith(QLatin1Char('-')))
        return (one ? QCoreApplication::translate("Transport", "minus %1 semitone")
                    : QCoreApplication::translate("Transport", "minus %1 semitones"))
            .arg(size);
    return QCoreApplication::translate("Transport", "0 semitones");
}

QString spokenSpeed(double speed) {
    return QCoreApplication::translate("Transport", "%1 %").arg(std::lround(speed * 100.0));
}

QString timeString(double milliseconds) {
    const double seconds = std::floor(milliseconds / 1000.0);
    const double minutes = std::floor(seconds / 60.0);
    return QString::asprintf("%02d:%02d.%03d", int(minutes), int(seconds - 60.0 * minutes),
                             int(std::fmod(milliseconds, 1000.0)));
}

double millisecondsForFrame(qint64 frame) {
    return double(frame) / 44100.0 * 1000.0;
}

} // namespace tesk::TransportRules
