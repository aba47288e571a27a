#pragma once

#include "diagnostics/TeskAssert.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace tesk {

/// A fixed-capacity ring of samples, carrying audio into and out of block-based processing.
/// All storage is allocated at creation, so the rendering thread can append, read and advance
/// without ever allocating or locking. Misuse (more samples than fit, more than are held) is a
/// programming error: it fails an assertion and stops Tesk, since silently dropping or
/// inventing samples would corrupt the audio.
///
/// Not thread-safe: one thread at a time, normally the thread that renders the audio.
template <typename T> class BufferQueue {
public:
    /// Storage for `capacity` samples, zero-filled, and an empty queue.
    /// Any thread; allocates.
    explicit BufferQueue(std::uint64_t capacity)
        : mBuffer(std::make_unique<T[]>(capacity))
        , mLength(capacity) {
        TESK_PARAMETER_ASSERT(capacity > 0);
    }

    BufferQueue(const BufferQueue&) = delete;
    BufferQueue& operator=(const BufferQueue&) = delete;

    /// Copies `length` samples in after the newest one.
    /// Rendering thread (or the export thread). Never allocates or locks.
    void append(const T* samples, std::uint64_t length) {
        TESK_ASSERT(length <= mLength);
        if (mUsed + length > mLength)
            TESK_ASSERT(0);
        const std::uint64_t beforeEnd = std::min(length, mLength - mWritePosition);
        std::copy_n(samples, beforeEnd, mBuffer.get() + mWritePosition);
        std::copy_n(samples + beforeEnd, length - beforeEnd, mBuffer.get());
        mWritePosition = (mWritePosition + length) % mLength;
        mUsed += length;
    }

    /// Copies `length` samples, from the `skip`-th oldest on, into `dest` without consuming
    /// them, so a block can be read again by the next, overlapping block.
    /// Rendering thread (or the export thread). Never allocates or locks.
    void read(T* dest, std::uint64_t length, std::uint64_t skip = 0) const {
        TESK_ASSERT(dest);
        TESK_ASSERT(length <= mLength);
        TESK_ASSERT(skip + length <= mUsed);
        const std::uint64_t start = (mReadPosition + skip) % mLength;
        const std::uint64_t beforeEnd = std::min(length, mLength - start);
        std::copy_n(mBuffer.get() + start, beforeEnd, dest);
        std::copy_n(mBuffer.get(), length - beforeEnd, dest + beforeEnd);
    }

    /// Consumes the `length` oldest samples.
    /// Rendering thread (or the export thread). Never allocates or locks.
    void advance(std::uint64_t length) {
        TESK_ASSERT(length <= mLength);
        TESK_ASSERT(length <= mUsed);
        mReadPosition = (mReadPosition + length) % mLength;
        mUsed -= length;
    }

    /// The capacity in samples. The owner's thread.
    std::uint64_t length() const noexcept { return mLength; }

    /// The number of samples held. The owner's thread.
    std::uint64_t used() const noexcept { return mUsed; }

private:
    // Stored flat: a run that passes the end of the storage continues at its start, so every
    // copy is at most two contiguous pieces.
    std::unique_ptr<T[]> mBuffer;
    std::uint64_t mLength = 0;
    std::uint64_t mReadPosition = 0;
    std::uint64_t mWritePosition = 0;
    std::uint64_t mUsed = 0;
};

} // namespace tesk
