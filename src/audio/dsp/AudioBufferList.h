#pragma once

#include "audio/dsp/AudioStreamDescription.h"
#include "diagnostics/TeskAssert.h"

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace tesk {

/// One buffer of samples, borrowed: `sampleCount` floats at `data`, `numberChannels` of them
/// per frame (interleaved when more than one).
struct AudioBuffer {
    std::uint32_t numberChannels = 1;
    std::uint32_t sampleCount = 0;
    float* data = nullptr;

    constexpr std::uint32_t frameCount() const {
        return numberChannels == 0 ? 0 : sampleCount / numberChannels;
    }
    std::span<float> samples() const { return {data, sampleCount}; }
};

/// The buffers of one slice of audio, borrowed. A fixed array rather than a vector, so that
/// lists can be made, copied and passed around on the rendering thread without allocating.
struct AudioBufferList {
    static constexpr std::uint32_t kMaxBuffers = 8;

    std::uint32_t bufferCount = 0;
    std::array<AudioBuffer, kMaxBuffers> buffers{};

    std::span<AudioBuffer> active() { return {buffers.data(), bufferCount}; }
    std::span<const AudioBuffer> active() const { return {buffers.data(), bufferCount}; }

    /// Two non-interleaved channels of `frameCount` frames. Any thread; never allocates.
    static AudioBufferList stereo(float* left, float* right, std::uint32_t frameCount) {
        AudioBufferList list;
        list.bufferCount = 2;
        list.buffers[0] = {1, frameCount, left};
        list.buffers[1] = {1, frameCount, right};
        return list;
    }
};

/// Owns the samples behind an `AudioBufferList` laid out for a stream format, with room for
/// a fixed number of frames. Allocates only when created; resizing within that room never
/// allocates. Moving keeps the samples where they are, so lists already handed out stay valid.
/// Not thread-safe: one thread at a time.
class AudioBufferStorage {
public:
    /// Zeroed room for `frameCapacity` frames of `format`; the list starts full.
    /// A non-interleaved format can have at most `AudioBufferList::kMaxBuffers` channels.
    /// Any thread; allocates.
    AudioBufferStorage(const AudioStreamDescription& format, std::uint32_t frameCapacity)
        : mFrameCapacity(frameCapacity)
        , mSamples(static_cast<std::size_t>(frameCapacity) * format.channelsPerFrame) {
        TESK_PARAMETER_ASSERT(format.buffersPerList() <= AudioBufferList::kMaxBuffers);
        const std::uint32_t channels = format.channelsPerBuffer();
        mList.bufferCount = format.buffersPerList();
        for (std::uint32_t i = 0; i < mList.bufferCount; ++i) {
            AudioBuffer& buffer = mList.buffers[i];
            buffer.numberChannels = channels;
            buffer.data = mSamples.data() + static_cast<std::size_t>(i) * frameCapacity * channels;
        }
        setFrameCount(frameCapacity);
    }

    AudioBufferStorage(const AudioBufferStorage&) = delete;
    AudioBufferStorage& operator=(const AudioBufferStorage&) = delete;
    AudioBufferStorage(AudioBufferStorage&& other) noexcept
        : mFrameCapacity(std::exchange(other.mFrameCapacity, 0))
        , mSamples(std::move(other.mSamples))
        , mList(std::exchange(other.mList, {})) {}
    AudioBufferStorage& operator=(AudioBufferStorage&& other) noexcept {
        mFrameCapacity = std::exchange(other.mFrameCapacity, 0);
        mSamples = std::move(other.mSamples);
        mList = std::exchange(other.mList, {});
        return *this;
    }

    std::uint32_t frameCapacity() const { return mFrameCapacity; }

    /// Sets every buffer's length to `frames` (at most the capacity), for a shorter slice.
    /// Never allocates.
    void setFrameCount(std::uint32_t frames) {
        TESK_PARAMETER_ASSERT(frames <= mFrameCapacity);
        for (AudioBuffer& buffer : mList.active())
            buffer.sampleCount = frames * buffer.numberChannels;
    }

    AudioBufferList& list() { return mList; }
    const AudioBufferList& list() const { return mList; }

private:
    std::uint32_t mFrameCapacity;
    std::vector<float> mSamples;
    AudioBufferList mList;
};

} // namespace tesk
