#include "audio/dsp/GraphicEqualizer.h"

#include "support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <span>
#include <vector>

namespace {

using namespace tesk::test;
using tesk::GraphicEqualizer;
using Gains = std::array<float, GraphicEqualizer::kBandCount>;

constexpr std::uint32_t kBlock = 512;

// Runs `signal` through in blocks as the output chain does, calling `beforeBlock(frame)` at the
// start of each block, where the chain hands over the newest settings.
Stereo run(GraphicEqualizer& equalizer, Stereo signal,
           const std::function<void(std::size_t)>& beforeBlock = {}) {
    const std::size_t frames = signal.left.size();
    for (std::size_t start = 0; start < frames; start += kBlock) {
        if (beforeBlock)
            beforeBlock(start);
        float* channels[] = {signal.left.data() + start, signal.right.data() + start};
        equalizer.process(
            channels, static_cast<std::uint32_t>(std::min<std::size_t>(kBlock, frames - start)));
    }
    return signal;
}

Gains oneBand(std::size_t band, float gainDb) {
    Gains gains{};
    gains[band] = gainDb;
    return gains;
}

// The gain in dB a sine of `frequency` receives, measured over the last second of two.
double gainAt(const Gains& gains, double frequency) {
    GraphicEqualizer equalizer(kSampleRate);
    equalizer.setBandGains(gains);
    equalizer.reset();
    const auto input = sine(frequency, 0.1, 2 * 44100);
    const Stereo output = run(equalizer, Stereo::centred(input));
    const auto settled = [](const std::vector<float>& samples) {
        return std::span(samples).subspan(44100);
    };
    return rmsDb(settled(output.left)) - rmsDb(settled(input));
}

// The largest second difference: a sine of peak A at f has A (2π f / rate)², a click much more.
double largestBend(std::span<const float> samples) {
    double largest = 0.0;
    for (std::size_t i = 2; i < samples.size(); ++i)
        largest = std::max(largest, std::abs(static_cast<double>(samples[i]) -
                                             2.0 * samples[i - 1] + samples[i - 2]));
    return largest;
}

TEST(GraphicEqualizer, EachBandReachesItsGainAtItsCentreOverAThirdOfAnOctave) {
    for (std::size_t band = 0; band < GraphicEqualizer::kBandCount; ++band) {
        const double centre = GraphicEqualizer::kCentreFrequencies[band];
        for (const float gainDb : {-12.0f, 12.0f}) {
            SCOPED_TRACE(testing::Message() << centre << " Hz at " << gainDb << " dB");
            EXPECT_NEAR(gainAt(oneBand(band, gainDb), centre), gainDb, 0.5);
            // An octave away (where the neighbouring bands sit) a third-octave bell is nearly flat.
            if (band + 1 < GraphicEqualizer::kBandCount) {
                EXPECT_LT(std::abs(gainAt(oneBand(band, gainDb), 2.0 * centre)), 2.0);
            }
        }
    }
    // A bell's width is measured where it reaches half its gain in dB: a sixth of an octave
    // either side of the centre.
    const Gains boost = oneBand(5, 12.0f);
    EXPECT_NEAR(gainAt(boost, 1000.0 * std::pow(2.0, 1.0 / 6.0)), 6.0, 0.5);
    EXPECT_NEAR(gainAt(boost, 1000.0 / std::pow(2.0, 1.0 / 6.0)), 6.0, 0.5);
}

TEST(GraphicEqualizer, FlatIsTransparentAndBypassIsExact) {
    const auto input = noise(0.5, 44100, 7);

    GraphicEqualizer flat(kSampleRate);
    const Stereo throughFlat = run(flat, Stereo::centred(input));
    double worst = 0.0;
    for (std::size_t i = 0; i < input.size(); ++i)
        worst = std::max(worst, static_cast<double>(std::abs(throughFlat.right[i] - input[i])));
    EXPECT_LT(worst, 1e-6);

    // Switched to bypass while boosting, then back: once the fade is over, bypass gives the
    // input bit for bit, and the way back lands exactly on what an equalizer that was never
    // bypassed gives, because the filters kept running.
    const Gains gains = {6, -6, 12, -12, 3, -3, 9, -9, 12, 12};
    GraphicEqualizer switched(kSampleRate);
    GraphicEqualizer reference(kSampleRate);
    switched.setBandGains(gains);
    reference.setBandGains(gains);
    const Stereo output = run(switched, Stereo::centred(input), [&](std::size_t start) {
        switched.setBypassed(start >= 4096 && start < 16384);
    });
    const Stereo expected = run(reference, Stereo::centred(input));

    const std::size_t fadeEnd = 441;
    for (std::size_t i = 4096 + fadeEnd; i < 16384; ++i) {
        ASSERT_EQ(output.left[i], input[i]) << "frame " << i;
        ASSERT_EQ(output.right[i], input[i]) << "frame " << i;
    }
    for (std::size_t i = 16384 + fadeEnd; i < input.size(); ++i) {
        ASSERT_EQ(output.left[i], expected.left[i]) << "frame " << i;
        ASSERT_EQ(output.right[i], expected.right[i]) << "frame " << i;
    }
    EXPECT_GT(rmsDb(std::span(expected.left).subspan(8192, 4096)) -
                  rmsDb(std::span(input).subspan(8192, 4096)),
              3.0);
}

TEST(GraphicEqualizer, GainAndBypassChangesDoNotClick) {
    // A 700 Hz sine while the 1 kHz band jumps between -12 and +12 dB, then while the bypass is
    // switched on and off, each change at a block start. Off the centre, a filter whose
    // coefficients jump rings at its own frequency on top of the sine; gliding keeps that ringing
    // small. The output may bend no more sharply than the loudest steady sine it moves between.
    const auto input = sine(700.0, 0.2, 44100);
    GraphicEqualizer equalizer(kSampleRate);
    equalizer.setBandGains(oneBand(5, -12.0f));
    equalizer.reset();
    const Stereo output = run(equalizer, Stereo::centred(input), [&](std::size_t start) {
        if (start == 8192)
            equalizer.setBandGains(oneBand(5, 12.0f));
        if (start == 16384)
            equalizer.setBandGains(oneBand(5, -12.0f));
        if (start == 20480)
            equalizer.setBandGains(oneBand(5, 12.0f));
        equalizer.setBypassed(start >= 28672 && start < 36864);
    });

    const auto boosted = std::span(output.left).subspan(12288, 4096);
    const double loudestBend = largestBend(boosted);
    EXPECT_LT(largestBend(output.left), 1.2 * loudestBend);
    EXPECT_LT(largestBend(output.right), 1.2 * loudestBend);
    // The changes did happen: the boost lifts 700 Hz by over a decibel, the bypass not at all.
    EXPECT_GT(rmsDb(boosted) - rmsDb(input), 1.0);
    EXPECT_NEAR(rmsDb(std::span(output.left).subspan(32768, 4096)) - rmsDb(input), 0.0, 0.01);
}

TEST(GraphicEqualizer, ResetForgetsThePastAndEndsGlides) {
    // After a loud burst and a reset, silence stays exactly silent, and a gain set just before
    // the reset applies fully from the first frame.
    GraphicEqualizer equalizer(kSampleRate);
    run(equalizer, Stereo::centred(noise(0.9, 8192)));
    equalizer.setBandGains(oneBand(6, 12.0f));
    equalizer.reset();
    const Stereo silence = run(equalizer, Stereo::centred(std::vector<float>(4096, 0.0f)));
    EXPECT_EQ(rms(silence.left), 0.0);
    EXPECT_EQ(rms(silence.right), 0.0);

    const auto input = sine(2000.0, 0.1, 4096);
    GraphicEqualizer settled(kSampleRate);
    settled.setBandGains(oneBand(6, 12.0f));
    settled.reset();
    const Stereo expected = run(settled, Stereo::centred(input));
    equalizer.reset();
    const Stereo output = run(equalizer, Stereo::centred(input));
    EXPECT_EQ(output.left, expected.left);
}

} // namespace
