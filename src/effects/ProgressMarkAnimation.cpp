#include "effects/ProgressMarkAnimation.h"

#include <QEasingCurve>
#include <algorithm>
#include <cmath>

namespace tesk {

ProgressMarkAnimation::ProgressMarkAnimation(std::function<void(double)> reachedMark,
                                             QObject* parent)
    : QObject(parent)
    , mReachedMark(std::move(reachedMark)) {
    mTimer.setTimerType(Qt::PreciseTimer);
    mTimer.setInterval(1000 / kFramesPerSecond);
    connect(&mTimer, &QTimer::timeout, this,
            [this] { advanceTo(double(mClock.nsecsElapsed()) * 1e-9); });
}

double ProgressMarkAnimation::markAt(double seconds) {
    if (seconds >= kDuration)
        return 1.0;
    static const QEasingCurve easeOut(QEasingCurve::OutQuad);
    const double eased = easeOut.valueForProgress(std::max(0.0, seconds) / kDuration);
    // The small allowance keeps a mark that the curve meets exactly from being missed by
    // rounding.
    return std::min(1.0, std::floor(eased / kMarkSpacing + 1e-9) * kMarkSpacing);
}

void ProgressMarkAnimation::start() {
    mLastMark = -1.0;
    mFramesShown = 0;
    mClock.start();
    mTimer.start();
    advanceTo(0.0);
}

void ProgressMarkAnimation::stop() {
    mTimer.stop();
}

void ProgressMarkAnimation::finish() {
    if (!isAnimating())
        return;
    mTimer.stop();
    mReachedMark(1.0);
}

void ProgressMarkAnimation::advanceTo(double seconds) {
    const double mark = markAt(seconds);
    if (seconds >= kDuration)
        mTimer.stop();
    if (mark == mLastMark)
        return;
    mLastMark = mark;
    ++mFramesShown;
    mReachedMark(mark);
}

} // namespace tesk
