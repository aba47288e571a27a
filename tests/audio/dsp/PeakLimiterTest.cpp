#include "audio/dsp/PeakLimiter.h"

#include "support/Signals.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <span>

using namespace tesk;

namespace {

constexpr double kRate = 44100.0;

struct Stereo {
    std::vector<float> left, right;
};

/// `left` and `right` through a new limiter, in slices of 512 frames, and lined up again: the
/// silence it gives back first is dropped, and what its look-ahead holds at the end is taken.
Stereo limited(std::vector<float> left, std::vector<float> right, PeakLimiter* limiter = nullptr) {
    PeakLimiter own(kRate);
    PeakLimiter& used = limiter ? *limiter : own;
    const std::size_t frames = left.size();
    left.resize(frames + PeakLimiter::kLookAheadFrames);
    right.resize(frames + PeakLimiter::kLookAheadFrames);
    for (std::size_t done = 0; done < left.size(); done += 512) {
        const auto count = std::uint32_t(std::min<std::size_t>(512, left.size() - done));
        used.process(left.data() + done, right.data() + done, count);
    }
    for (std::size_t i = 0; i < PeakLimiter::kLookAheadFrames; ++i)
        EXPECT_EQ(left[i], 0.0f) << "the silence before what came in";
    left.erase(left.begin(), left.begin() + PeakLimiter::kLookAheadFrames);
    right.erase(right.begin(), right.begin() + PeakLimiter::kLookAheadFrames);
    return {std::move(left), std::move(right)};
}

float largest(const Stereo& sound) {
    float peak = 0.0f;
    for (const auto* channel : {&sound.left, &sound.right})
        for (float sample : *channel)
            peak = std::max(peak, std::fabs(sample));
    return peak;
}

} // namespace

TEST(PeakLimiter, SoundWithinFullScalePassesBitForBit) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> withNan = test::sine(440.0, 0.5, 4410);
    withNan[100] = nan;
    std::vector<float> withInfinity = test::sine(440.0, 0.5, 4410);
    withInfinity[100] = std::numeric_limits<float>::infinity();
    const struct {
        const char* name;
        std::vector<float> left, right;
    } cases[] = {
        {"a tone at full scale", test::sine(100.0, 1.0, 44100), test::sine(3000.0, 1.0, 44100)},
        {"noise up to full scale", test::noise(1.0, 44100, 3), test::noise(1.0, 44100, 4)},
        {"silence", std::vector<float>(4410), std::vector<float>(4410)},
        {"a NaN among quiet sound", withNan, test::sine(440.0, 0.5, 4410)},
        {"an infinity among quiet sound", withInfinity, test::sine(440.0, 0.5, 4410)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Stereo out = limited(c.left, c.right);
        for (std::size_t i = 0; i < c.left.size(); ++i) {
            if (!std::isfinite(c.left[i]))
                continue;
            ASSERT_EQ(out.left[i], c.left[i]) << i;
            ASSERT_EQ(out.right[i], c.right[i]) << i;
        }
    }
}

TEST(PeakLimiter, SoundPastFullScaleIsHeldWithinItUndistortedAndInBalance) {
    // A note boosted past full scale, on one side or both: it comes out at full scale, as the
    // same note scaled down, with the other side scaled alike. Clipped, the difference from
    // the scaled note would be a tenth of it or more.
    const struct {
        double hertz, left, right;
    } notes[] = {{41.0, 2.0, 2.0},  {60.0, 4.0, 4.0},   {100.0, 4.0, 0.5},
                 {100.0, 0.5, 4.0}, {1000.0, 1.3, 1.3}, {440.0, 1.05, 0.0}};
    for (const auto& note : notes) {
        SCOPED_TRACE(testing::Message()
                     << note.hertz << " Hz at " << note.left << ", " << note.right);
        const std::size_t frames = 44100;
        const std::vector<float> left = test::sine(note.hertz, note.left, frames);
        const std::vector<float> right = test::sine(note.hertz, note.right, frames);
        const Stereo out = limited(left, right);
        EXPECT_LE(largest(out), 1.0f);
        // Past the first peak, the gain is steady.
        const double expectedGain = 1.0 / std::max(note.left, note.right);
        const auto steady = std::span(out.left).subspan(4410);
        const double gain = test::toneAmplitude(steady, note.hertz) / note.left;
        EXPECT_NEAR(gain, expectedGain, 0.01 * expectedGain);
        std::vector<float> difference(steady.size());
        for (std::size_t i = 0; i < steady.size(); ++i)
            difference[i] = steady[i] - float(gain) * left[4410 + i];
        EXPECT_LT(test::rmsDb(difference) - test::rmsDb(steady), -50.0);
        // Nor are the first peaks cut flat: the gain has glided down by the time they come, so
        // no more frames lie near full scale than in the note at its steady gain.
        const auto nearFullScale = [](std::span<const float> frames, double scale) {
            return std::count_if(frames.begin(), frames.end(), [scale](float sample) {
                return std::fabs(sample) * scale > 0.995;
            });
        };
        EXPECT_LE(nearFullScale(std::span(out.left).first(441), 1.0),
                  nearFullScale(std::span(left).first(441), expectedGain) + 2);
        // Gliding, not stepping: no sample moves further from the last than the note's own do.
        EXPECT_LE(test::largestStep(std::span(out.left).first(4410)),
                  test::largestStep(std::span(left).first(4410)));
        if (note.right > 0.0) {
            EXPECT_NEAR(test::toneAmplitude(std::span(out.right).subspan(4410), note.hertz),
                        note.right * expectedGain, 0.01 * note.right * expectedGain);
        }
    }
}

TEST(PeakLimiter, AHitOutOfQuietMusicIsGlidedInto) {
    // A hit three times full scale in a quiet tone: the gain glides down over the look-ahead
    // before it, where a step would click, and the hit stays within full scale.
    std::vector<float> tone = test::sine(440.0, 0.5, 44100);
    const std::vector<float> hit = test::noise(3.0, 441, 7);
    std::transform(hit.begin(), hit.end(), tone.begin() + 22050, tone.begin() + 22050,
                   std::plus<float>());
    const Stereo out = limited(tone, tone);
    EXPECT_LE(largest(out), 1.0f);
    const double toneStep = 0.5 * 2.0 * M_PI * 440.0 / kRate;
    const auto before = std::span(out.left).subspan(22050 - PeakLimiter::kLookAheadFrames - 8,
                                                    PeakLimiter::kLookAheadFrames + 8);
    EXPECT_LT(test::largestStep(before), 1.5 * toneStep);
}

TEST(PeakLimiter, TheGainComesBackGraduallyOnceTheLoudPartEndsAndAResetRestoresIt) {
    // Half a second at twice full scale, then a quiet note: held back at first, not pumped
    // straight up, and untouched again within two seconds.
    std::vector<float> sound = test::sine(200.0, 2.0, 22050);
    const std::vector<float> quiet = test::sine(200.0, 0.5, 44100 * 3);
    sound.insert(sound.end(), quiet.begin(), quiet.end());
    PeakLimiter limiter(kRate);
    const Stereo out = limited(sound, sound, &limiter);
    const auto after = [&](double seconds) {
        const auto from = std::size_t(22050 + seconds * kRate);
        return test::toneAmplitude(std::span(out.left).subspan(from, 2205), 200.0) / 0.5;
    };
    EXPECT_LT(after(0.0), 0.6);
    EXPECT_GT(after(0.3), after(0.1));
    EXPECT_LT(after(0.3), 0.95);
    for (std::size_t i = 22050 + 44100 * 2; i < sound.size(); ++i)
        ASSERT_EQ(out.left[i], sound[i]) << i;
    EXPECT_EQ(limiter.gain(), 1.0f);

    std::vector<float> loud = test::sine(200.0, 2.0, 4410);
    limited(loud, loud, &limiter);
    EXPECT_NEAR(limiter.gain(), 0.5f, 0.01f);
    limiter.reset();
    EXPECT_EQ(limiter.gain(), 1.0f);
}
