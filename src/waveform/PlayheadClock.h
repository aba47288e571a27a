#pragma once

#include "audio/AheadRenderer.h"
#include "audio/TeskAudioFileReader.h"

#include <cstdint>
#include <optional>

namespace tesk {

/// Where the play head should be drawn at the moment a frame is shown, from the engine's timed
/// reports of the heard frame (`TeskExtendedAudioFilePlayer::heardPosition()`). Between reports
/// it extrapolates at the reported speed, for at most two device periods, so the cursor glides
/// instead of stepping with the window's timer and never runs ahead after the sound stalls. It
/// wraps at the loop's end while looping and jumps at once to a report of a newer seek.
///
/// Main thread.
class PlayheadClock {
public:
    using HeardPosition = AheadRenderer::HeardPosition;

    explicit PlayheadClock(double deviceFrameRate = 44100.0)
        : mDeviceFrameRate(deviceFrameRate) {}

    /// Takes the newest report; older reports than the newest seek are ignored.
    void report(const HeardPosition& position);
    /// Forgets every report (a stop or a new song).
    void reset() { mLast.reset(); }
    void setLoop(LoopRange loop, bool looping) {
        mLoop = loop;
        mLooping = looping;
    }

    bool hasPosition() const { return mLast.has_value(); }
    /// The frame heard at `steadyTimeNs` (steady_clock nanoseconds); nothing before a report.
    std::optional<double> frameAt(std::int64_t steadyTimeNs) const;

private:
    double mDeviceFrameRate;
    std::optional<HeardPosition> mLast;
    LoopRange mLoop;
    bool mLooping = false;
};

} // namespace tesk
