#include "audio/SSpectrumAnalyzer.h"

#include "support/Assertions.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace tesk {
namespace {

using test::noise;
using test::sine;

constexpr std::uint32_t kBlock = SSpectrumAnalyzer::kBlockFrames;

// Feeds frames `begin` to `end` of non-interleaved channels to `queue`, `slice` frames at a time.
void feed(AudioBufferQueue& queue, std::vector<std::vector<float>>& channels, std::size_t slice,
          std::size_t begin = 0, std::size_t end = SIZE_MAX) {
    end = std::min(end, channels[0].size());
    AudioBufferList list;
    list.bufferCount = static_cast<std::uint32_t>(channels.size());
    for (std::size_t offset = begin; offset < end; offset += slice) {
        const auto frames = static_cast<std::uint32_t>(std::min(slice, end - offset));
        for (std::size_t c = 0; c < channels.size(); ++c)
            list.buffers[c] = {1, frames, channels[c].data() + offset};
        queue.copyFromAudioBufferList(list, frames);
    }
}

// A spectrum point computed the slow way: a Hamming-windowed DFT in double precision of the
// bins inside the point's band, the level of their summed power against a full-scale sine's.
double referencePoint(const std::vector<float>& block, double frequency) {
    const double n = static_cast<double>(block.size());
    double power = 0.0;
    double fullScale = 0.0; // N · Σw² / 4, the power of a windowed sine of amplitude 1
    std::vector<double> window(block.size());
    for (std::size_t i = 0; i < block.size(); ++i) {
        window[i] = 0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * double(i) / (n - 1.0));
        fullScale += n * window[i] * window[i] / 4.0;
    }
    for (std::size_t k = 1; k <= block.size() / 2; ++k) {
        const double binFrequency = static_cast<double>(k) * test::kSampleRate / n;
        if (binFrequency < frequency * std::exp2(-1.0 / 12.0) ||
            binFrequency >= frequency * std::exp2(1.0 / 12.0))
            continue;
        double re = 0.0;
        double im = 0.0;
        for (std::size_t i = 0; i < block.size(); ++i) {
            const double phase = 2.0 * std::numbers::pi * double(k) * double(i) / n;
            re += window[i] * block[i] * std::cos(phase);
            im -= window[i] * block[i] * std::sin(phase);
        }
        power += re * re + im * im;
    }
    return SSpectrumAnalyzer::kFullScaleLevel + 10.0 * std::log10(power / fullScale);
}

TEST(SSpectrumAnalyzer, HasNoSpectrumUntilTheFirstFullBlock) {
    SSpectrumAnalyzer analyzer(AudioStreamDescription::engineFormat());
    EXPECT_TRUE(analyzer.spectrumForChannel(0).empty());
    EXPECT_TRUE(analyzer.spectrum().empty());

    std::vector<std::vector<float>> block{noise(0.5, kBlock, 1), noise(0.5, kBlock, 2)};
    feed(analyzer, block, 512, 0, kBlock - 1);
    EXPECT_TRUE(analyzer.spectrumForChannel(1).empty());
    EXPECT_TRUE(analyzer.spectrum().empty());

    feed(analyzer, block, 1, kBlock - 1);
    EXPECT_EQ(analyzer.spectrumForChannel(0).size(), analyzer.frequencyTable().size());
    EXPECT_EQ(analyzer.spectrumForChannel(1).size(), analyzer.frequencyTable().size());
    EXPECT_EQ(analyzer.spectrum().size(), analyzer.frequencyTable().size());
}

TEST(SSpectrumAnalyzer, AnalysesEachChannelSeparatelyAndPeaksAtItsTone) {
    SSpectrumAnalyzer analyzer(AudioStreamDescription::engineFormat());
    // The points lie at 1000 · 2^(k/6) Hz: 1 kHz itself, and 5.04 kHz nearest to 5 kHz.
    const std::vector<float>& table = analyzer.frequencyTable();
    const auto at1k =
        static_cast<std::size_t>(std::find(table.begin(), table.end(), 1000.0f) - table.begin());
    ASSERT_LT(at1k + 14, table.size());
    const std::size_t at5k = at1k + 14;

    std::vector<std::vector<float>> tones{sine(1000.0, 0.5, kBlock), sine(5000.0, 0.5, kBlock)};
    feed(analyzer, tones, 441);
    const std::vector<float> left = analyzer.spectrumForChannel(0);
    const std::vector<float> right = analyzer.spectrumForChannel(1);
    EXPECT_EQ(std::max_element(left.begin(), left.end()) - left.begin(), at1k);
    EXPECT_EQ(std::max_element(right.begin(), right.end()) - right.begin(), at5k);
    // The levels themselves, against a direct transform of the same block.
    for (const std::size_t point : {at1k, at5k}) {
        EXPECT_NEAR(left[point], referencePoint(tones[0], table[point]), 0.05) << table[point];
        EXPECT_NEAR(right[point], referencePoint(tones[1], table[point]), 0.05) << table[point];
    }

    const std::vector<float> both = analyzer.spectrum();
    ASSERT_EQ(both.size(), table.size());
    for (std::size_t p = 0; p < table.size(); ++p)
        EXPECT_NEAR(both[p], (left[p] + right[p]) / 2.0f, 1e-4f) << "point " << p;
}

TEST(SSpectrumAnalyzer, TonesOfOneLevelReadAlikeAtEveryPitch) {
    // A tone falls in a band a few bins wide at the bottom and about eighty at the top: the
    // band's level must not depend on how many quiet bins share it.
    const std::vector<float> table =
        SSpectrumAnalyzer(AudioStreamDescription::engineFormat()).frequencyTable();
    // Below 250 Hz a band is narrower than a tone's few bins and holds only part of it.
    for (const double hertz : {250.0, 500.0, 1000.0, 1414.2, 4000.0, 8000.0, 12700.0, 16000.0}) {
        for (const double amplitude : {1.0, 0.1}) {
            SCOPED_TRACE(testing::Message() << hertz << " Hz at " << amplitude);
            SSpectrumAnalyzer analyzer(AudioStreamDescription::engineFormat());
            std::vector<std::vector<float>> tone{sine(hertz, amplitude, kBlock),
                                                 sine(hertz, amplitude, kBlock)};
            feed(analyzer, tone, kBlock);
            const std::vector<float> spectrum = analyzer.spectrumForChannel(0);
            const auto peak = std::max_element(spectrum.begin(), spectrum.end());
            EXPECT_NEAR(*peak, SSpectrumAnalyzer::kFullScaleLevel + 20.0 * std::log10(amplitude),
                        0.5);
            EXPECT_NEAR(std::log2(table[std::size_t(peak - spectrum.begin())] / hertz), 0.0,
                        1.0 / 12.0);
        }
    }
}

TEST(SSpectrumAnalyzer, AveragesTheLastThreeBlocks) {
    // Four different blocks: louder or softer noise on the left, a different tone on the right,
    // back to back in `song`. `single` holds each block's own smoothed spectrum, from a fresh
    // analyzer that has seen only that block.
    std::vector<std::vector<float>> song(2);
    std::vector<std::vector<std::vector<float>>> single;
    for (int b = 0; b < 4; ++b) {
        const double amplitude = std::pow(0.5, b);
        std::vector<std::vector<float>> block{noise(amplitude, kBlock, 10 + b),
                                              sine(300.0 + 1700.0 * b, amplitude, kBlock)};
        SSpectrumAnalyzer fresh(AudioStreamDescription::engineFormat());
        feed(fresh, block, kBlock);
        single.push_back({fresh.spectrumForChannel(0), fresh.spectrumForChannel(1)});
        for (unsigned c = 0; c < 2; ++c)
            song[c].insert(song[c].end(), block[c].begin(), block[c].end());
    }
    SSpectrumAnalyzer analyzer(AudioStreamDescription::engineFormat());
    const auto expectMeanOf = [&](int from, int to) {
        for (unsigned channel = 0; channel < 2; ++channel) {
            const std::vector<float> spectrum = analyzer.spectrumForChannel(channel);
            ASSERT_EQ(spectrum.size(), single[0][channel].size());
            for (std::size_t p = 0; p < spectrum.size(); ++p) {
                float sum = 0.0f;
                for (int b = from; b <= to; ++b)
                    sum += single[b][channel][p];
                EXPECT_NEAR(spectrum[p], sum / static_cast<float>(to - from + 1), 1e-3f)
                    << "channel " << channel << ", blocks " << from << " to " << to << ", point "
                    << p;
            }
        }
    };
    // In slices that straddle the block boundaries.
    feed(analyzer, song, 700, 0, 2 * kBlock);
    expectMeanOf(0, 1);
    feed(analyzer, song, 700, 2 * kBlock);
    expectMeanOf(1, 3);
}

TEST(SSpectrumAnalyzer, LeavesBlocksOfAnInterleavedStreamUnanalysed) {
    // Two channels in one buffer: the block's buffer count does not match the channel count.
    SSpectrumAnalyzer analyzer(AudioStreamDescription{44100.0, 2, true});
    std::vector<float> interleaved = sine(1000.0, 0.5, 2 * 5 * kBlock);
    AudioBufferList list;
    list.bufferCount = 1;
    list.buffers[0] = {2, static_cast<std::uint32_t>(interleaved.size()), interleaved.data()};
    analyzer.copyFromAudioBufferList(list, 5 * kBlock);
    EXPECT_TRUE(analyzer.spectrumForChannel(0).empty());
    EXPECT_TRUE(analyzer.spectrumForChannel(1).empty());
    EXPECT_TRUE(analyzer.spectrum().empty());
}

TEST(SSpectrumAnalyzer, RejectsAChannelBeyondTheLast) {
    SSpectrumAnalyzer analyzer(AudioStreamDescription::engineFormat());
    EXPECT_TESK_ASSERTION(analyzer.spectrumForChannel(2),
                          "Invalid parameter not satisfying: channel < mChannels");
}

// Keeps every block it is given in use, recording its samples (block, buffer, samples).
class HoldingQueue : public AudioBufferQueue {
public:
    using AudioBufferQueue::AudioBufferQueue;
    std::vector<std::vector<std::vector<float>>> received;
    std::vector<Block*> held;

protected:
    void processBuffer(Block& block) override {
        received.emplace_back();
        for (const AudioBuffer& buffer : block.audioBufferList().active())
            received.back().emplace_back(buffer.data, buffer.data + buffer.sampleCount);
        held.push_back(&block);
    }
};

TEST(AudioBufferQueue, CollectsFramesInOrderAndDropsThemWhileEveryBlockIsInUse) {
    // Interleaved stereo, a ramp: frame i holds i on the left and -i on the right.
    const AudioStreamDescription format{44100.0, 2, true};
    HoldingQueue queue(3, 100, format);
    AudioBufferStorage input(format, 70);
    float* samples = input.list().buffers[0].data;
    std::uint32_t next = 0;
    const auto feedFrames = [&](std::uint32_t count) {
        for (; count > 0; count -= 70, next += 70) {
            for (std::uint32_t i = 0; i < 70; ++i) {
                samples[2 * i] = static_cast<float>(next + i);
                samples[2 * i + 1] = -static_cast<float>(next + i);
            }
            queue.copyFromAudioBufferList(input.list(), 70);
        }
    };
    const auto expectFrames = [&](std::size_t block, float first) {
        ASSERT_EQ(queue.received[block].size(), 1u);
        const std::vector<float>& got = queue.received[block][0];
        ASSERT_EQ(got.size(), 200u);
        for (std::size_t i = 0; i < 100; ++i) {
            ASSERT_EQ(got[2 * i], first + static_cast<float>(i)) << "block " << block;
            ASSERT_EQ(got[2 * i + 1], -(first + static_cast<float>(i))) << "block " << block;
        }
    };

    feedFrames(490); // three blocks fill across slice edges; the last 190 frames find none free
    ASSERT_EQ(queue.received.size(), 3u);
    for (std::size_t block = 0; block < 3; ++block)
        expectFrames(block, 100.0f * float(block));

    queue.held[1]->setEmpty();
    feedFrames(210);
    ASSERT_EQ(queue.received.size(), 4u);
    EXPECT_EQ(queue.held[3], queue.held[1]) << "the freed block is the one refilled";
    // The new block starts with the first frame after the release, not a dropped one.
    expectFrames(3, 490.0f);
}

} // namespace
} // namespace tesk
