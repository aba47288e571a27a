#include "app/DurationFormatter.h"

#include <QCoreApplication>
#include <cmath>

namespace tesk {

QString DurationFormatter::durationToString(int seconds, int style) {
    // Single precision throughout, so the seconds round up exactly as they always have.
    float x = float(seconds);
    QString text;
    const int hours = int(x / 3600.0f);
    if (style != 2 && hours > 0) {
        text += QString::number(hours);
        if (style == 1)
            text +=
                QLatin1Char(' ') + (hours == 1 ? QCoreApplication::translate("Duration", "hour")
                                               : QCoreApplication::translate("Duration", "hours"));
        else
            text += QLatin1Char('h');
        x -= float(hours) * 3600.0f;
    }
    const int minutes = int(x / 60.0f);
    if (minutes > 0) {
        text += QString::number(minutes);
        if (style == 1)
            text += QLatin1Char(' ') + (minutes == 1
                                            ? QCoreApplication::translate("Duration", "minute")
                                            : QCoreApplication::translate("Duration", "minutes"));
        else if (style == 2)
            text += QChar(0x2032);
        else
            text += QLatin1Char('m');
        x -= float(minutes) * 60.0f;
    }
    if (style != 1) {
        text += QString::number(int(std::ceil(x)));
        text += style == 2 ? QChar(0x2033) : QLatin1Char('s');
    } else if (x < 1.0f) {
        text += QCoreApplication::translate("Duration", "less than a second");
    } else {
        text += QLatin1Char(' ') + (x == 1.0f ? QCoreApplication::translate("Duration", "second")
                                              : QCoreApplication::translate("Duration", "seconds"));
    }
    return text;
}

} // namespace tesk
