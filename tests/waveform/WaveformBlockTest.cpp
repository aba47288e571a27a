#include "waveform/WaveformBlock.h"

#include "support/Assertions.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

namespace {

using namespace tesk;

AudioBufferList stereo(std::vector<float>& left, std::vector<float>& right) {
    return AudioBufferList::stereo(left.data(), right.data(), std::uint32_t(left.size()));
}

TEST(WaveformBlock, SummarisesEachBinAsItsCentreAndTheLouderChannelsPeak) {
    // 24 bins of 50 frames and one of 34, quiet noise under one spike per bin and channel:
    // the left spike grows, the right one (negative, on the bin's last frame) shrinks.
    const std::size_t frames = 1234;
    const qint64 start = 3 * 88200;
    std::vector<float> left = test::noise(0.05, frames, 1);
    std::vector<float> right = test::noise(0.05, frames, 2);
    std::vector<float> louder;
    for (std::size_t bin = 0; bin < 25; ++bin) {
        const std::size_t binEnd = std::min(bin * 50 + 50, frames);
        left[bin * 50 + bin] = 0.1f + 0.03f * float(bin);
        right[binEnd - 1] = -(0.8f - 0.02f * float(bin));
        louder.push_back(std::max(left[bin * 50 + bin], -right[binEnd - 1]));
    }
    const WaveformBlock block(stereo(left, right), start, 50);
    EXPECT_EQ(block.frameCount(), qint64(frames));
    const WaveformPointBuffer& points = *block.pointBuffer();
    ASSERT_EQ(points.size(), 25u);
    for (std::size_t bin = 0; bin < 25; ++bin) {
        // The short last bin is centred on its own 34 frames.
        const float centre = float(start + qint64(bin) * 50 + (bin < 24 ? 25 : 17));
        EXPECT_EQ(points[bin], (WaveformPoint{centre, louder[bin]})) << bin;
    }
}

TEST(WaveformBlock, ThinsItsPointsForDrawingAtLowerZoom) {
    const std::vector<float> peaks = {0.1f, 0.5f, 0.2f, 0.9f, 0.3f, 0.4f, 0.05f, 0.6f, 0.7f, 0.8f};
    std::vector<float> left(500, 0.0f);
    std::vector<float> right(500, 0.0f);
    for (std::size_t bin = 0; bin < peaks.size(); ++bin)
        right[bin * 50 + 20] = peaks[bin];
    const WaveformBlock block(stereo(left, right), 1000, 50);
    const WaveformPointBuffer& stored = *block.pointBuffer();

    EXPECT_EQ(block.pointBufferWithSkip(1), block.pointBuffer());
    // Runs of three, the last one a single point; then one point for the whole block.
    EXPECT_EQ(
        *block.pointBufferWithSkip(3),
        (WaveformPointBuffer{
            {stored[0].x, 0.5f}, {stored[3].x, 0.9f}, {stored[6].x, 0.7f}, {stored[9].x, 0.8f}}));
    for (std::uint32_t skip : {10u, 100000u})
        EXPECT_EQ(*block.pointBufferWithSkip(skip), (WaveformPointBuffer{{stored[0].x, 0.9f}}));
    EXPECT_EQ(stored.size(), 10u);
    EXPECT_TESK_ASSERTION(block.pointBufferWithSkip(0),
                          "Invalid parameter not satisfying: skip >= 1");
}

} // namespace
