#pragma once

#include "audio/dsp/AudioBufferList.h"

#include <QtGlobal>
#include <cstdint>
#include <memory>
#include <vector>

namespace tesk {

/// One summary point: x is the frame at the centre of its bin (absolute in the song), y the
/// bin's peak magnitude over all channels.
struct WaveformPoint {
    float x = 0.0f;
    float y = 0.0f;
    friend bool operator==(const WaveformPoint&, const WaveformPoint&) = default;
};

using WaveformPointBuffer = std::vector<WaveformPoint>;

/// The peaks of one stretch of a song, one point per bin of `samplesPerBin` frames. Immutable
/// once made; copies share the points, so blocks are cheap to pass between threads and keep.
/// Any thread.
class WaveformBlock {
public:
    /// Summarises the non-interleaved channels of `buffers` (one buffer per channel, all of the
    /// first buffer's length), which begin at `startFrame` in the song. The last bin holds
    /// whatever is left when the length is not a multiple of `samplesPerBin`.
    WaveformBlock(const AudioBufferList& buffers, qint64 startFrame, std::uint32_t samplesPerBin);

    qint64 startFrame() const { return mStartFrame; }
    qint64 frameCount() const { return mFrameCount; }
    float samplesPerBin() const { return float(mSampleBinSize); }

    /// One point per bin, the shorter last bin included.
    const std::shared_ptr<const WaveformPointBuffer>& pointBuffer() const { return mPointBuffer; }

    /// The points thinned for drawing at a lower zoom: one point per run of `skip` points (the
    /// last run may be shorter), at the run's first x with the run's highest peak; a single
    /// point when `skip` reaches the point count. `skip` 1 gives the stored buffer itself;
    /// 0 is a programming error.
    std::shared_ptr<const WaveformPointBuffer> pointBufferWithSkip(std::uint32_t skip) const;

private:
    qint64 mStartFrame;
    qint64 mFrameCount;
    std::uint32_t mSampleBinSize;
    std::shared_ptr<const WaveformPointBuffer> mPointBuffer;
};

} // namespace tesk
