#pragma once

#include "audio/dsp/AudioBufferList.h"
#include "audio/dsp/AudioStreamDescription.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace tesk {

/// Collects the frames of incoming buffer lists into fixed-size blocks and hands each full block
/// to `processBuffer`. A block stays in use until whoever processes it calls `setEmpty`, which
/// may happen at once or later on another thread; while every block is in use, incoming frames
/// are dropped, so a slow consumer costs data rather than time on the rendering thread.
///
/// All storage is allocated at creation. Frames come in on one thread at a time: the audio
/// thread while playing, the export thread while exporting. Not copyable.
class AudioBufferQueue {
public:
    /// One block of `numFrames()` frames in the queue's format: for an interleaved format one
    /// buffer holding every channel, otherwise one single-channel buffer per channel.
    class Block {
    public:
        Block(const AudioStreamDescription& format, std::uint32_t frames)
            : mStorage(format, frames) {}

        const AudioBufferList& audioBufferList() const { return mStorage.list(); }
        AudioBufferList& audioBufferList() { return mStorage.list(); }

        /// Gives the block back to the queue for refilling. Call it once done with the samples.
        /// Any thread (one call per hand-out). Never allocates or blocks.
        void setEmpty() { mInUse.store(false, std::memory_order_release); }

    private:
        friend class AudioBufferQueue;

        AudioBufferStorage mStorage;
        std::atomic<bool> mInUse{false};
    };

    /// `bufferCount` blocks of `numFrames` frames each, in `format`.
    /// Any thread; allocates.
    AudioBufferQueue(std::uint32_t bufferCount, std::uint32_t numFrames,
                     const AudioStreamDescription& format);
    virtual ~AudioBufferQueue();

    AudioBufferQueue(const AudioBufferQueue&) = delete;
    AudioBufferQueue& operator=(const AudioBufferQueue&) = delete;

    /// Appends the first `frames` frames of `list`, laid out in the queue's format, calling
    /// `processBuffer` for every block this fills. Frames that find no free block are dropped.
    /// Rendering thread (or the export thread). Never allocates, blocks or throws; `processBuffer`
    /// runs on this same thread.
    void copyFromAudioBufferList(const AudioBufferList& list, std::uint32_t frames);

    std::uint32_t bufferCount() const { return static_cast<std::uint32_t>(mBlocks.size()); }
    std::uint32_t numFrames() const { return mNumFrames; }
    /// The layout of the blocks, which incoming lists must share.
    const AudioStreamDescription& blockFormat() const { return mFormat; }

protected:
    /// Receives each block as it becomes full; call `block.setEmpty()` when done with it.
    /// Called on the thread that copies frames in: it must follow the same rules.
    virtual void processBuffer(Block& block) = 0;

private:
    static constexpr std::uint32_t kNoBlock = UINT32_MAX;

    // Claims the next free block, in turn after the last one filled; false if all are in use.
    bool claimFreeBlock();

    AudioStreamDescription mFormat;
    std::uint32_t mNumFrames;
    std::vector<std::unique_ptr<Block>> mBlocks;
    std::uint32_t mFillingBlock = kNoBlock;
    std::uint32_t mFilledFrames = 0;
    std::uint32_t mNextBlock = 0;
};

} // namespace tesk
