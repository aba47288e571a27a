#pragma once

#include <QWheelEvent>

#include <cmath>

namespace tesk {

/// Counts a wheel's turns in whole notches. A notched mouse wheel sends one notch an event; a
/// touchpad or a free-spinning wheel sends fractions of one, which add up here until they make
/// a notch, so that small turns either way move a control alike. Main thread.
class WheelNotches {
public:
    /// The whole notches turned with this event (positive away from the user), keeping the
    /// fraction left over for the next one.
    int take(const QWheelEvent& event) {
        const double turned = event.angleDelta().y() / 120.0;
        if (turned * mPending < 0.0)
            mPending = 0.0; // turned back: what was left over went the other way
        mPending += turned;
        const double whole = std::trunc(mPending);
        mPending -= whole;
        return int(whole);
    }

private:
    double mPending = 0.0;
};

} // namespace tesk
