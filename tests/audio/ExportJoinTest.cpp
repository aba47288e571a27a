#include "audio/ExportJoin.h"

#include "support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

using tesk::ExportJoin;
using namespace tesk::test;

constexpr std::int64_t kFade = ExportJoin::kCrossfadeFrames;
constexpr std::int64_t kLag = ExportJoin::kMaxLag;
/// The second half's frames the join looks at: from kMaxLag before it to kMaxLag after.
constexpr std::int64_t kSecond = kFade + 2 * kLag;

/// The join of `first` and `second` as the export writes it.
std::vector<float> joined(const std::vector<float>& first, const std::vector<float>& second) {
    const ExportJoin join(first, second);
    std::vector<float> output(static_cast<std::size_t>(kFade));
    for (std::int64_t i = 0; i < kFade; ++i)
        output[std::size_t(i)] =
            join.mix(i, first[std::size_t(i)], second[std::size_t(kLag + join.lag() + i)]);
    return output;
}

/// The quietest and the loudest 512 frames of `samples`, in dB.
std::pair<double, double> levelRange(std::span<const float> samples) {
    std::pair<double, double> range{1e9, -1e9};
    for (std::size_t at = 0; at + 512 <= samples.size(); at += 256) {
        const double db = rmsDb(samples.subspan(at, 512));
        range = {std::min(range.first, db), std::max(range.second, db)};
    }
    return range;
}

TEST(ExportJoin, ATonesLevelHoldsAcrossTheJoinInAnyPhase) {
    // The second half's tone, in any phase, is moved either way by at most half of its period
    // to line up with the first's; the crossfade then neither dips nor swells.
    const double level = rmsDb(sine(kSampleRate / 128, 0.5, 4410));
    // Tones of whole periods in the 512 frames over which the level is measured.
    for (const double frequency : {kSampleRate / 512, kSampleRate / 128, kSampleRate * 24 / 512}) {
        for (const double phase : {0.0, 0.5, 1.5, 3.0, std::numbers::pi, 4.5, 6.0}) {
            SCOPED_TRACE(testing::Message() << frequency << " Hz, phase " << phase);
            const auto first = sine(frequency, 0.5, kFade);
            const auto second = sine(frequency, 0.5, kSecond, kSampleRate, phase);
            const ExportJoin join(first, second);
            EXPECT_LE(std::abs(double(join.lag())), 0.5 * kSampleRate / frequency + 1.0);
            EXPECT_GT(join.likeness(), 0.97);
            const auto [quietest, loudest] = levelRange(joined(first, second));
            EXPECT_GT(quietest, level - 0.2);
            EXPECT_LT(loudest, level + 0.2);
        }
    }
}

TEST(ExportJoin, UnrelatedHalvesCrossAtEqualPowerAndSilenceStaysSilent) {
    // Noise against other noise: no move lines them up, and the level holds on average.
    const auto first = noise(0.5, kFade, 1);
    const auto second = noise(0.5, kSecond, 2);
    const ExportJoin unrelated(first, second);
    EXPECT_LT(unrelated.likeness(), 0.1);
    const auto mixed = joined(first, second);
    EXPECT_NEAR(rmsDb(std::span(mixed).subspan(kFade / 4, kFade / 2)), rmsDb(first), 0.5);
    // Unrelated halves at full scale, as the limiter leaves loud music: the join keeps within it.
    const auto loudFirst = noise(1.0, kFade, 3);
    const auto loudSecond = noise(1.0, kSecond, 4);
    for (float sample : joined(loudFirst, loudSecond))
        ASSERT_LE(std::fabs(sample), 1.0f);

    // Silence on one side: nothing to line up, and a plain fade (halfway, half of the other
    // side), never NaN.
    const std::vector<float> silence(static_cast<std::size_t>(kSecond));
    for (const auto& [a, b] : {std::pair{first, silence}, std::pair{silence, second}}) {
        const ExportJoin join(a, b);
        EXPECT_EQ(join.lag(), 0);
        const auto faded = joined(a, b);
        EXPECT_NEAR(faded[kFade / 2], 0.5f * (a[kFade / 2] + b[kLag + kFade / 2]), 1e-3f);
    }
}

TEST(ExportJoin, AQuietToneInOppositePhaseAmongUnrelatedSoundIsNotHollowedOut) {
    // Halves alike only in a quiet tone, in opposite phase where they stand: the move nearest
    // to them may not give up the likeness there is for one that cancels the tone.
    constexpr double kTone = 300.0;
    auto first = noise(0.2, kFade, 8);
    auto second = noise(0.2, kSecond, 9);
    const double opposite = std::numbers::pi - 2.0 * std::numbers::pi * kTone * kLag / kSampleRate;
    const auto firstTone = sine(kTone, 0.05, kFade);
    const auto secondTone = sine(kTone, 0.05, kSecond, kSampleRate, opposite);
    for (std::size_t i = 0; i < first.size(); ++i)
        first[i] += firstTone[i];
    for (std::size_t i = 0; i < second.size(); ++i)
        second[i] += secondTone[i];
    const auto mixed = joined(first, second);
    const auto middle = std::span<const float>(mixed).subspan(kFade / 2 - 512, 1024);
    EXPECT_GT(toneAmplitude(middle, kTone), 0.5 * 0.05);
}

TEST(ExportJoin, TheSecondHalfMovesOnOrBackByWhatItIsLateOrEarly) {
    // Music whose second half is the first's, late or early by a few milliseconds: moved by
    // exactly that, it lines up whole and the beat after the join keeps its time.
    std::vector<float> music = noise(0.2, kFade + 4 * kLag, 5);
    for (std::size_t i = 0; i < music.size(); ++i)
        music[i] += 0.4f * float(std::sin(2.0 * std::numbers::pi * 55.0 * double(i) / kSampleRate));
    for (const std::int64_t late : {-700, -100, 0, 1, 100, 700}) {
        SCOPED_TRACE(late);
        const auto first = std::span<const float>(music).subspan(std::size_t(2 * kLag), kFade);
        const auto second =
            std::span<const float>(music).subspan(std::size_t(kLag - late), kSecond);
        const ExportJoin join(first, second);
        EXPECT_EQ(join.lag(), late);
        EXPECT_GT(join.likeness(), 0.999);
    }
}

} // namespace
