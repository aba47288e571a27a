#include "waveform/PlayheadClock.h"

#include <algorithm>
#include <cmath>

namespace tesk {

void PlayheadClock::report(const HeardPosition& position) {
    if (mLast && position.generation < mLast->generation)
        return;
    mLast = position;
}

std::optional<double> PlayheadClock::frameAt(std::int64_t steadyTimeNs) const {
    if (!mLast)
        return std::nullopt;
    const double period = std::max<std::uint32_t>(mLast->periodFrames, 1);
    const double elapsedFrames = std::clamp(
        double(steadyTimeNs - mLast->steadyTimeNs) * 1e-9 * mDeviceFrameRate, 0.0, 2.0 * period);
    double frame = mLast->sourceFrame + mLast->sourceStep * elapsedFrames;
    if (mLooping && mLoop.length > 0) {
        const double start = mLoop.location;
        const double end = start + mLoop.length;
        const bool wrapped = mLast->sourceStep >= 0.0
                                 ? frame >= end && mLast->sourceFrame < end
                                 : frame < start && mLast->sourceFrame >= start;
        if (wrapped) {
            const double into = std::fmod(frame - start, double(mLoop.length));
            frame = into < 0.0 ? end + into : start + into;
        }
    }
    return std::max(frame, 0.0);
}

} // namespace tesk
