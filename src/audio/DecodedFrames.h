#pragma once

#include <QtGlobal>
#include <algorithm>
#include <chrono>
#include <thread>

namespace tesk {

/// A song's frames at the engine format, decoded ahead of whoever reads them: the file
/// reader, the waveform and the export all read through this.
/// Any thread but the device callback and the rendering thread: reading may touch the disk.
class DecodedFrames {
public:
    virtual ~DecodedFrames() = default;

    /// The song's length in frames: exact once decoding has finished, an estimate before.
    virtual qint64 frameCount() const = 0;
    /// Frames [0, n) can be read now.
    virtual qint64 decodedFrameCount() const = 0;
    virtual bool isDecodingFinished() const = 0;
    /// Waits, at most `timeout`, until frames [0, end) are decoded or decoding has ended;
    /// answers whether they are. Songs with a decoder override it with a wait on the decoder's
    /// signal; this default, for songs held whole in memory, looks again after a millisecond.
    /// Any thread but the device callback and the rendering thread.
    virtual bool waitForDecodedFrames(qint64 end, std::chrono::milliseconds timeout) const {
        if (decodedFrameCount() < end && !isDecodingFinished())
            std::this_thread::sleep_for(std::min(timeout, std::chrono::milliseconds(1)));
        return decodedFrameCount() >= end;
    }
    /// Copies up to `count` decoded frames from `start` into `left` and `right`; returns how
    /// many it copied (0 at or past the decoded end).
    virtual qint64 readFrames(qint64 start, qint64 count, float* left, float* right) const = 0;
};

} // namespace tesk
