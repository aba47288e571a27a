#pragma once

#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace tesk {

/// A song decoded once, kept as 16-bit interleaved stereo frames in a file that has no name:
/// the sound lives in the system's page cache rather than in Tesk's own memory, and the file
/// disappears with its descriptor, even if Tesk crashes.
/// One thread (the decoder) appends; any number of threads read what has been appended, at
/// the same time.
class SongCache {
public:
    static constexpr int kChannels = 2;
    static constexpr qint64 kBytesPerFrame = kChannels * qint64(sizeof(std::int16_t));

    /// Creates an empty cache in the user's cache folder, or in the temporary folder when the
    /// cache folder can't be written. On failure returns null and sets `reason` to the
    /// system's message. Any thread.
    static std::unique_ptr<SongCache> create(QString* reason);
    ~SongCache();

    SongCache(const SongCache&) = delete;
    SongCache& operator=(const SongCache&) = delete;

    /// Writes `frameCount` interleaved frames after the ones already written and makes them
    /// readable. On failure (a full disk) nothing new becomes readable; returns false and sets
    /// `reason`. Writer thread only.
    bool append(const std::int16_t* interleaved, qint64 frameCount, QString* reason);

    /// Frames [0, n) can be read. Any thread.
    qint64 frameCount() const { return mFrameCount.load(std::memory_order_acquire); }

    /// Waits, at most `timeout`, until frames [0, end) can be read or `wakeWaiters` is called;
    /// answers whether they can. Any thread but the device callback and the rendering thread.
    bool waitForFrames(qint64 end, std::chrono::milliseconds timeout) const;
    /// Wakes whoever waits for frames: the writer has stopped appending. Writer thread.
    void wakeWaiters();

    /// Copies up to `count` readable frames from `start` into `left` and `right`, as floats in
    /// [-1, 1); returns how many. Any thread but the device callback and the rendering thread (file
    /// I/O).
    qint64 read(qint64 start, qint64 count, float* left, float* right) const;

private:
    explicit SongCache(int descriptor);

    int mDescriptor = -1;
    std::atomic<qint64> mFrameCount{0};
    // "Frames decoded": signalled after each append, so readers waiting for the decoder to
    // reach a frame wake when it does instead of polling.
    mutable std::mutex mWaitMutex;
    mutable std::condition_variable mFramesAppended;
    bool mWriterDone = false;
};

} // namespace tesk
