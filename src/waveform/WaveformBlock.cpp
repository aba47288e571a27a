#include "waveform/WaveformBlock.h"

#include "diagnostics/TeskAssert.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace tesk {
namespace {

/// The largest |sample| of a run. Magnitudes compare as their bit patterns once the sign bit
/// is cleared, and an integer maximum vectorises where a float one does not (a float maximum
/// must respect NaN ordering), which makes the scan's own work small beside decoding.
float maxMagnitude(const float* samples, std::size_t count) {
    std::int32_t largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::int32_t bits;
        std::memcpy(&bits, samples + i, sizeof bits);
        largest = std::max(largest, bits & 0x7fffffff);
    }
    return std::bit_cast<float>(largest);
}

} // namespace

WaveformBlock::WaveformBlock(const AudioBufferList& buffers, qint64 startFrame,
                             std::uint32_t samplesPerBin)
    : mStartFrame(startFrame)
    , mFrameCount(buffers.bufferCount == 0 ? 0 : buffers.buffers[0].frameCount())
    , mSampleBinSize(samplesPerBin) {
    TESK_PARAMETER_ASSERT(samplesPerBin >= 1);
    const std::size_t frames = std::size_t(mFrameCount);
    const std::size_t binSize = samplesPerBin;
    for (const AudioBuffer& channel : buffers.active())
        TESK_PARAMETER_ASSERT(channel.numberChannels == 1 && channel.sampleCount >= frames);
    auto points = std::make_shared<WaveformPointBuffer>((frames + binSize - 1) / binSize);
    std::size_t offset = 0;
    for (WaveformPoint& point : *points) {
        const std::size_t binLength = std::min(binSize, frames - offset);
        // Single precision, as the drawing code works in floats: past 2^24 frames (six
        // minutes) the centres round to even frames, well under a pixel at any zoom.
        point.x = std::floor(float(binLength) * 0.5f + float(startFrame + qint64(offset)));
        for (const AudioBuffer& channel : buffers.active())
            point.y = std::max(point.y, maxMagnitude(channel.data + offset, binLength));
        offset += binLength;
    }
    mPointBuffer = std::move(points);
}

std::shared_ptr<const WaveformPointBuffer>
WaveformBlock::pointBufferWithSkip(std::uint32_t skip) const {
    TESK_PARAMETER_ASSERT(skip >= 1);
    const WaveformPointBuffer& all = *mPointBuffer;
    if (skip == 1 || all.empty())
        return mPointBuffer;
    // A skip at or past the point count leaves one run, which is the single-point case.
    const std::size_t run = std::min<std::size_t>(skip, all.size());
    auto reduced = std::make_shared<WaveformPointBuffer>();
    reduced->reserve((all.size() + run - 1) / run);
    for (std::size_t first = 0; first < all.size(); first += run) {
        const std::size_t end = std::min(first + run, all.size());
        float peak = all[first].y;
        for (std::size_t i = first + 1; i < end; ++i)
            peak = std::max(peak, all[i].y);
        reduced->push_back({all[first].x, peak});
    }
    return reduced;
}

} // namespace tesk
