#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace tesk {

/// Keeps the chain's stereo output within full scale, leaving alone any sound that stays within
/// it, bit for bit. An equalizer boost or a raised volume can take a loud song past full scale,
/// where the device or the export's 16 bits would clip every peak into a crackle.
///
/// It looks `kLookAheadFrames` ahead, and so gives each frame back that much later. The gain
/// each frame needs is the least that any frame within a look-ahead of it needs, averaged over
/// the look-ahead before it: a glide down that reaches what the loudest peak needs as it comes,
/// with every frame on the way kept within full scale too, and a peak's top as round as it came.
/// The gain then holds while peaks as loud go on (a low note's next peak comes within
/// `kHoldSeconds`), and comes back with a time constant of `kRecoverySeconds`: the loud passage
/// plays a little quieter, undistorted.
///
/// Any one thread at a time (the rendering or the export thread); never allocates, locks or
/// waits.
class PeakLimiter {
public:
    /// 1.5 ms: a glide that short is not heard as one.
    static constexpr std::uint32_t kLookAheadFrames = 64;
    static constexpr double kHoldSeconds = 0.025;
    static constexpr double kRecoverySeconds = 0.2;
    /// A look-ahead that needs a gain this near the one held holds it there: the peaks of a low
    /// note held past the hold would otherwise let the gain sag between them and pull it back,
    /// a distortion.
    static constexpr float kHeldShare = 0.9f;

    explicit PeakLimiter(double sampleRate)
        : mHoldFrames(std::uint32_t(std::lround(kHoldSeconds * sampleRate)))
        , mRecovery(float(std::exp(-1.0 / (kRecoverySeconds * sampleRate)))) {
        reset();
    }

    /// Takes `frameCount` frames in and gives back in their place, limited, the frames that
    /// came in `kLookAheadFrames` before (silence after a reset).
    void process(float* left, float* right, std::uint32_t frameCount) noexcept {
        for (std::uint32_t i = 0; i < frameCount; ++i) {
            // The frame coming in joins the look-ahead of the one going out.
            const std::uint32_t in = (mOut + kLookAheadFrames) % kSpan;
            const float required = requiredGain(left[i], right[i]);
            mLoudFrames += int(required < 1.0f) - int(mRequired[in] < 1.0f);
            mLeft[in] = left[i];
            mRight[in] = right[i];
            mRequired[in] = required;

            // The least gain the look-ahead needs, kept for the averages of the frames to come.
            const float least =
                mLoudFrames == 0 ? 1.0f : *std::min_element(mRequired.begin(), mRequired.end());
            mLowGains += int(least < 1.0f) - int(mLeast[mOut] < 1.0f);
            mLeast[mOut] = least;
            const float glide = mLowGains == 0 ? 1.0f : average(mLeast);

            // Kept as the excess over full scale that the gain is set for: near full gain, a
            // gain itself would round back to where it was at each step of its recovery.
            const float held = 1.0f / (1.0f + mExcess);
            if (glide < held) {
                mExcess = 1.0f / glide - 1.0f;
                mHeld = mHoldFrames;
            } else if (least < 1.0f && least * kHeldShare <= held) {
                mHeld = mHoldFrames; // a note as loud goes on
            } else if (mHeld > 0) {
                --mHeld;
            } else if (mExcess > 0.0f) {
                // A step of a ten-thousandth ends the recovery.
                mExcess *= mRecovery;
                if (mExcess < 1e-4f)
                    mExcess = 0.0f;
            }
            mGain = std::min(glide, 1.0f / (1.0f + mExcess));

            if (mGain < 1.0f) {
                // Clamped too: the average may round an ulp above what the frame needs.
                left[i] = std::clamp(mLeft[mOut] * mGain, -1.0f, 1.0f);
                right[i] = std::clamp(mRight[mOut] * mGain, -1.0f, 1.0f);
            } else {
                left[i] = mLeft[mOut];
                right[i] = mRight[mOut];
            }
            mOut = (mOut + 1) % kSpan;
        }
    }

    /// Forgets the sound before: a start, a seek or an export begins at full gain, after
    /// `kLookAheadFrames` of silence.
    void reset() noexcept {
        mLeft.fill(0.0f);
        mRight.fill(0.0f);
        mRequired.fill(1.0f);
        mLeast.fill(1.0f);
        mOut = 0;
        mLoudFrames = 0;
        mLowGains = 0;
        mExcess = 0.0f;
        mGain = 1.0f;
        mHeld = 0;
    }

    /// The gain applied to the last frame given back, 1 when nothing is held back.
    float gain() const noexcept { return mGain; }

private:
    /// The frame going out and the look-ahead after it.
    static constexpr std::uint32_t kSpan = kLookAheadFrames + 1;
    using Ring = std::array<float, kSpan>;

    /// The gain that keeps a frame within full scale; 1 for one within it, or not a number.
    static float requiredGain(float left, float right) noexcept {
        const float peak = std::max(std::fabs(left), std::fabs(right));
        return peak > 1.0f && peak < std::numeric_limits<float>::infinity() ? 1.0f / peak : 1.0f;
    }

    static float average(const Ring& values) noexcept {
        double sum = 0.0;
        for (float value : values)
            sum += value;
        return float(sum / double(kSpan));
    }

    std::uint32_t mHoldFrames;
    float mRecovery;
    // Rings indexed alike: the frame going out is at mOut, the one just in at the slot before.
    Ring mLeft{}, mRight{};
    Ring mRequired{}; // the gain each frame needs
    Ring mLeast{};    // the least gain a look-ahead needed, for the frames that went out since
    std::uint32_t mOut = 0;
    int mLoudFrames = 0;  // frames in the look-ahead that need less than full gain
    int mLowGains = 0;    // entries of mLeast below full gain
    float mExcess = 0.0f; // how far the peak the gain is held for lies past full scale
    float mGain = 1.0f;   // the gain of the frame going out
    std::uint32_t mHeld = 0;
};

} // namespace tesk
