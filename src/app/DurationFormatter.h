#pragma once

#include <QString>

namespace tesk {

/// Writes a number of seconds as text. Style 0: "1h2m5s"; style 1: words ("1 minute seconds",
/// kept exactly as Tesk has always written it); style 2: minutes and seconds with primes
/// ("62′5″"), never hours. Any thread.
class DurationFormatter {
public:
    static QString durationToString(int seconds) { return durationToString(seconds, 0); }
    static QString durationToString(int seconds, int style);
};

} // namespace tesk
