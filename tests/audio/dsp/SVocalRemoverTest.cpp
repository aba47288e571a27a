#include "audio/dsp/SVocalRemover.h"

#include "support/Assertions.h"
#include "support/Signals.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

namespace {

using namespace tesk::test;
using tesk::SVocalRemover;

constexpr std::size_t kSlice = 512;
constexpr std::size_t kFrames = 86 * kSlice; // about a second
// With slices that divide the block, the first block completes in the slice ending at frame
// 2560; from then on every frame leaves the remover 2048 frames after it went in.
constexpr std::size_t kDelay = 2048;

Stereo render(double lowFrequency, double highFrequency, const Stereo& input) {
    SVocalRemover remover(2, 4096);
    remover.setLowFrequency(lowFrequency);
    remover.setHighFrequency(highFrequency);
    return throughVocalRemover(remover, input);
}

// Past the start-up, where every output frame is a full overlap of two blocks.
std::span<const float> steady(const std::vector<float>& output) {
    return std::span(output).subspan(kDelay + 4096);
}

// A tone's level against the 0.5 peak of every test tone.
double levelDb(double amplitude) {
    return 20.0 * std::log10(amplitude / 0.5);
}

double hann(std::size_t n) {
    return 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(n) / 2047.0);
}

// Two symmetric (over 2047) Hann windows a hop apart do not quite add up to one.
double overlapGain(std::size_t frame) {
    return hann(frame % 1024) + hann(frame % 1024 + 1024);
}

// The largest difference between `output` and `input` scaled by `gain(frame)`, `kDelay` later,
// from input frame `first` on.
template <typename Gain>
double worstError(const std::vector<float>& output, const std::vector<float>& input, Gain gain,
                  std::size_t first = 0) {
    double worst = 0.0;
    for (std::size_t k = first; k + kDelay < output.size(); ++k)
        worst = std::max(worst, std::abs(output[k + kDelay] - gain(k) * input[k]));
    return worst;
}

TEST(SVocalRemover, CancelsCentredContentInsideTheBandOnly) {
    // The band processed on a 44.1 kHz stream lies at twice the frequencies set: 120-2800 Hz
    // processes about 240-5600 Hz, 1000-2000 Hz processes 2000-4000 Hz.
    const struct {
        double low, high, inside, outside;
    } cases[] = {{120, 2800, 1000, 150}, {1000, 2000, 3000, 1500}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.low << "-" << c.high << " Hz");
        const auto inBand = sine(c.inside, 0.5, kFrames);
        const Stereo cancelled = render(c.low, c.high, {inBand, inBand});
        // What is left is the block edges' spill outside the band, not the tone.
        EXPECT_LT(rmsDb(steady(cancelled.left)), rmsDb(inBand) - 45.0);
        EXPECT_LT(levelDb(toneAmplitude(steady(cancelled.left), c.inside)), -60.0);
        EXPECT_EQ(cancelled.left, cancelled.right);

        const auto outOfBand = sine(c.outside, 0.5, kFrames);
        const Stereo kept = render(c.low, c.high, {outOfBand, outOfBand});
        EXPECT_NEAR(rmsDb(steady(kept.left)), rmsDb(outOfBand), 0.1);
        EXPECT_NEAR(levelDb(toneAmplitude(steady(kept.left), c.outside)), 0.0, 0.1);
        EXPECT_EQ(kept.left, kept.right);
    }
}

TEST(SVocalRemover, GivesBothChannelsTheSideSignalInsideTheBand) {
    // Anti-phase channels: 1 kHz inside the band, 150 Hz outside it.
    const auto side = mix(sine(1000, 0.5, kFrames), sine(150, 0.5, kFrames));
    const Stereo output = render(120, 2800, Stereo::side(side));

    // Inside the band both channels carry +1 kHz; outside it each keeps its own 150 Hz.
    std::vector<float> half(kFrames);
    std::vector<float> difference(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        half[i] = (output.left[i] + output.right[i]) * 0.5f;
        difference[i] = (output.left[i] - output.right[i]) * 0.5f;
    }
    EXPECT_NEAR(levelDb(toneAmplitude(steady(half), 1000)), 0.0, 0.1);
    EXPECT_LT(levelDb(toneAmplitude(steady(difference), 1000)), -60.0);
    EXPECT_NEAR(levelDb(toneAmplitude(steady(difference), 150)), 0.0, 0.1);
    EXPECT_LT(levelDb(toneAmplitude(steady(half), 150)), -60.0);
}

TEST(SVocalRemover, WithAnEmptyBandOnlyWindowsAndOverlaps) {
    const auto left = noise(0.5, kFrames, 1);
    const auto right = noise(0.5, kFrames, 2);
    // Equal edges round to the same bin; reversed edges leave nothing between them.
    for (const auto& [low, high] : {std::pair{1000.0, 1000.0}, std::pair{3000.0, 500.0}}) {
        const Stereo output = render(low, high, {left, right});
        // Until the first block, the render buffers pass through as they came.
        EXPECT_TRUE(std::equal(left.begin(), left.begin() + kDelay, output.left.begin()));
        // The first hop fades in, having no previous block to overlap with; from then on the
        // output is the input, delayed and scaled by the windows' overlap gain.
        const auto gain = [](std::size_t k) { return k < 1024 ? hann(k) : overlapGain(k); };
        EXPECT_LT(worstError(output.left, left, gain), 1e-5);
        EXPECT_LT(worstError(output.right, right, gain), 1e-5);
    }
}

TEST(SVocalRemover, ResetClearsTheOverlapButKeepsQueuedFrames) {
    const auto input = noise(0.5, kFrames);
    const std::vector<float> beforeReset(input.begin(), input.begin() + 9 * kSlice);
    const std::vector<float> afterReset(input.begin() + 9 * kSlice, input.end());
    SVocalRemover remover(2, 4096);
    remover.setLowFrequency(1000);
    remover.setHighFrequency(1000);
    // After nine slices three blocks are done, 512 of their frames still wait to be taken and
    // 1536 input frames wait for the next block, which is the one starting at frame 3072.
    Stereo output = throughVocalRemover(remover, {beforeReset, beforeReset});
    remover.reset();
    const Stereo rest = throughVocalRemover(remover, {afterReset, afterReset});
    output.left.insert(output.left.end(), rest.left.begin(), rest.left.end());

    const auto gain = [](std::size_t k) {
        if (k < 1024)
            return hann(k);
        return k >= 3072 && k < 4096 ? hann(k - 3072) : overlapGain(k);
    };
    EXPECT_LT(worstError(output.left, input, gain), 1e-5);
}

TEST(SVocalRemover, AppliesANewBandFromTheNextBlock) {
    const Stereo input{noise(0.5, kFrames, 1), noise(0.5, kFrames, 2)};
    const auto firstPart = [](const std::vector<float>& all) {
        return std::vector<float>(all.begin(), all.begin() + 40 * kSlice);
    };
    const auto secondPart = [](const std::vector<float>& all) {
        return std::vector<float>(all.begin() + 40 * kSlice, all.end());
    };
    SVocalRemover remover(2, 4096);
    remover.setLowFrequency(120);
    remover.setHighFrequency(2800);
    Stereo output = throughVocalRemover(remover, {firstPart(input.left), firstPart(input.right)});
    EXPECT_GT(worstError(output.left, input.left, overlapGain, 1024), 0.05);

    // Forty slices complete the blocks up to the one starting at frame 17408. Block 18 still
    // overlaps with the old band's tail; from block 19 (frame 19456) on, nothing is removed.
    remover.setLowFrequency(1000);
    remover.setHighFrequency(1000);
    const Stereo rest =
        throughVocalRemover(remover, {secondPart(input.left), secondPart(input.right)});
    output.left.insert(output.left.end(), rest.left.begin(), rest.left.end());
    output.right.insert(output.right.end(), rest.right.begin(), rest.right.end());
    EXPECT_LT(worstError(output.left, input.left, overlapGain, 19 * 1024), 1e-5);
    EXPECT_LT(worstError(output.right, input.right, overlapGain, 19 * 1024), 1e-5);
}

TEST(SVocalRemover, StartsABlockOnlyWhenMoreThan2048FramesWait) {
    SVocalRemover remover(2, 4096);
    remover.setLowFrequency(1000);
    remover.setHighFrequency(1000);
    const auto input = noise(0.5, 4096);
    std::vector<float> destination(1500, 7.0f);
    const auto untouchedFrom = [&](std::size_t first) {
        return std::all_of(destination.begin() + first, destination.end(),
                           [](float sample) { return sample == 7.0f; });
    };

    // Only channel 0's count decides, and 2048 frames are not enough.
    remover.addInput(0, input.data(), 2048);
    remover.addInput(1, input.data(), 2049);
    remover.process();
    EXPECT_EQ(remover.getOutput(1, destination.data(), 1500), 0u);
    EXPECT_TRUE(untouchedFrom(0));

    remover.addInput(0, input.data() + 2048, 1);
    remover.process();
    EXPECT_EQ(remover.getOutput(0, destination.data(), 1500), 1024u);
    EXPECT_TRUE(untouchedFrom(1024));
    for (std::size_t j = 0; j < 1024; ++j)
        ASSERT_NEAR(destination[j], hann(j) * input[j], 1e-5) << "frame " << j;
    EXPECT_EQ(remover.getOutput(0, destination.data(), 1500), 0u);
    EXPECT_EQ(remover.getOutput(1, destination.data(), 1500), 1024u);

    // The block consumed one hop, leaving 1025 frames: 1023 more make exactly 2048 again.
    remover.addInput(0, input.data() + 2049, 1023);
    remover.addInput(1, input.data() + 2049, 1023);
    remover.process();
    EXPECT_EQ(remover.getOutput(0, destination.data(), 1500), 0u);
    remover.addInput(0, input.data() + 3072, 1);
    remover.addInput(1, input.data() + 3072, 1);
    remover.process();
    EXPECT_EQ(remover.getOutput(0, destination.data(), 1500), 1024u);
}

} // namespace
