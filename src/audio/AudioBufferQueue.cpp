#include "audio/AudioBufferQueue.h"

#include "diagnostics/TeskAssert.h"

#include <algorithm>
#include <cstring>

namespace tesk {

AudioBufferQueue::AudioBufferQueue(std::uint32_t bufferCount, std::uint32_t numFrames,
                                   const AudioStreamDescription& format)
    : mFormat(format)
    , mNumFrames(numFrames) {
    TESK_PARAMETER_ASSERT(bufferCount > 0);
    TESK_PARAMETER_ASSERT(numFrames > 0);
    TESK_PARAMETER_ASSERT(format.channelsPerFrame > 0);
    mBlocks.reserve(bufferCount);
    for (std::uint32_t i = 0; i < bufferCount; ++i)
        mBlocks.push_back(std::make_unique<Block>(format, numFrames));
}

AudioBufferQueue::~AudioBufferQueue() = default;

bool AudioBufferQueue::claimFreeBlock() {
    const auto count = static_cast<std::uint32_t>(mBlocks.size());
    for (std::uint32_t tried = 0; tried < count; ++tried) {
        const std::uint32_t index = (mNextBlock + tried) % count;
        // Acquire pairs with setEmpty's release: the consumer's last reads of the samples
        // happen before they are overwritten here.
        if (!mBlocks[index]->mInUse.load(std::memory_order_acquire)) {
            mBlocks[index]->mInUse.store(true, std::memory_order_relaxed);
            mFillingBlock = index;
            mFilledFrames = 0;
            return true;
        }
    }
    return false;
}

void AudioBufferQueue::copyFromAudioBufferList(const AudioBufferList& list, std::uint32_t frames) {
    TESK_PARAMETER_ASSERT(list.bufferCount == mFormat.buffersPerList());
    const std::uint32_t channels = mFormat.channelsPerBuffer();
    for (const AudioBuffer& buffer : list.active()) {
        TESK_PARAMETER_ASSERT(buffer.numberChannels == channels);
        TESK_PARAMETER_ASSERT(buffer.frameCount() >= frames);
    }

    std::uint32_t copied = 0;
    while (copied < frames) {
        if (mFillingBlock == kNoBlock && !claimFreeBlock())
            return; // every block is still in use: these frames are lost
        Block& block = *mBlocks[mFillingBlock];
        const std::uint32_t count = std::min(frames - copied, mNumFrames - mFilledFrames);
        AudioBufferList& destination = block.audioBufferList();
        for (std::uint32_t b = 0; b < list.bufferCount; ++b) {
            std::memcpy(destination.buffers[b].data + std::size_t{mFilledFrames} * channels,
                        list.buffers[b].data + std::size_t{copied} * channels,
                        std::size_t{count} * channels * sizeof(float));
        }
        mFilledFrames += count;
        copied += count;
        if (mFilledFrames == mNumFrames) {
            mNextBlock = (mFillingBlock + 1) % static_cast<std::uint32_t>(mBlocks.size());
            mFillingBlock = kNoBlock;
            processBuffer(block);
        }
    }
}

} // namespace tesk
