#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace tesk {

/// Keeps the chain's stereo output within full scale, leaving alone any sound that stays within
/// it, bit for bit. An equalizer boost or a raised volume can take a loud song past full scale,
/// where the device or the export's 16 bits would clip every peak into a crackle. Where a sample
/// would pass full scale, both sides' gain drops at once to just what brings it back, holds
/// while peaks as loud go on (a low note's next peak comes within 25 ms), then comes back with a
/// time constant of `kRecoverySeconds`: the loud passage plays a little quieter, undistorted,
/// except for the rise to each peak louder than the last, which is cut at full scale as it
/// comes (no look-ahead, which would delay the sound and the play head with it).
/// Any one thread at a time (the rendering or the export thread); never allocates, locks or
/// waits.
class PeakLimiter {
public:
    static constexpr double kHoldSeconds = 0.025;
    static constexpr double kRecoverySeconds = 0.2;
    /// Peaks past full scale this near the one the gain is set for hold it there: a held note
    /// whose gain sagged between its peaks would be distorted by it.
    static constexpr float kHeldShare = 0.9f;

    explicit PeakLimiter(double sampleRate)
        : mHoldFrames(std::uint32_t(std::lround(kHoldSeconds * sampleRate)))
        , mRecovery(float(std::exp(-1.0 / (kRecoverySeconds * sampleRate)))) {}

    /// Limits `frameCount` frames in place.
    void process(float* left, float* right, std::uint32_t frameCount) noexcept {
        for (std::uint32_t i = 0; i < frameCount; ++i) {
            const float peak = std::max(std::fabs(left[i]), std::fabs(right[i]));
            const float envelope = 1.0f + mExcess;
            // An infinite sample is clamped like any other, but would hold the gain at 0.
            if (peak > envelope && peak < std::numeric_limits<float>::infinity()) {
                mExcess = peak - 1.0f;
                mHeld = mHoldFrames;
            } else if (peak > 1.0f && peak >= envelope * kHeldShare) {
                mHeld = mHoldFrames; // a note as loud goes on
            } else if (mHeld > 0) {
                --mHeld;
            } else if (mExcess > 0.0f) {
                // Decays; a step of a ten-thousandth ends it.
                mExcess *= mRecovery;
                if (mExcess < 1e-4f)
                    mExcess = 0.0f;
            }
            if (mExcess > 0.0f) {
                // Clamped too: the envelope may round an ulp below the peak.
                const float held = 1.0f + mExcess;
                left[i] = std::clamp(left[i] / held, -1.0f, 1.0f);
                right[i] = std::clamp(right[i] / held, -1.0f, 1.0f);
            }
        }
    }

    /// Forgets the sound before: a start, a seek or an export begins at full gain.
    void reset() noexcept {
        mExcess = 0.0f;
        mHeld = 0;
    }

    /// The gain applied to the last frame, 1 when nothing is held back.
    float gain() const noexcept { return 1.0f / (1.0f + mExcess); }

private:
    std::uint32_t mHoldFrames;
    float mRecovery;
    float mExcess = 0.0f; // how far the peak the gain is set for lies past full scale
    std::uint32_t mHeld = 0;
};

} // namespace tesk
