#include "audio/TeskAudioFileReader.h"

#include "audio/EngineConstants.h"
#include "audio/dsp/VectorUnit.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <pthread.h>

namespace tesk {
namespace {

std::uint64_t packRange(LoopRange range) {
    return std::uint64_t(range.location) << 32 | range.length;
}

LoopRange unpackRange(std::uint64_t packed) {
    return {std::uint32_t(packed >> 32), std::uint32_t(packed & 0xffffffffu)};
}

// How long the reader thread sleeps with nothing to read (before the first plan, after the
// song's end): a new plan wakes it at once.
constexpr auto kIdlePoll = std::chrono::milliseconds(100);
// The longest the reader waits for the decoder before it looks at the plan again.
constexpr auto kDecoderWait = std::chrono::milliseconds(10);

} // namespace

TeskAudioFileReader::TeskAudioFileReader(std::uint32_t bufferCount, std::uint32_t framesPerBuffer)
    : mScratchLeft(kBlockFrames)
    , mScratchRight(kBlockFrames) {
    const std::uint32_t frames = std::max(1u, bufferCount) * std::max(1u, framesPerBuffer);
    mBlocks.resize((frames + kBlockFrames - 1) / kBlockFrames);
    // Playing, a full ring is drawn on at most the fastest rate times as fast as it plays: a
    // quarter of it lasts this long. Looking every millisecond instead woke this thread 900
    // times a second for as long as a song played.
    const double seconds = double(mBlocks.size() * kBlockFrames) /
                           (4.0 * engine::kMaximumPlaybackRate * engine::kSampleRateHz);
    mLongestFullRingSleep =
        std::max(kShortestFullRingSleep, std::chrono::microseconds(std::llround(seconds * 1e6)));
    for (Block& block : mBlocks) {
        block.left.resize(kBlockFrames);
        block.right.resize(kBlockFrames);
    }
}

TeskAudioFileReader::~TeskAudioFileReader() {
    stop();
}

void TeskAudioFileReader::setAudioFile(std::shared_ptr<const DecodedFrames> frames) {
    stop();
    mFrames = std::move(frames);
}

void TeskAudioFileReader::start() {
    if (mThread.joinable() || !mFrames)
        return;
    {
        std::lock_guard lock(mPlanMutex);
        mStopping = false;
    }
    replan(currentFrame());
    mThread = std::thread([this] { run(); });
}

void TeskAudioFileReader::stop() {
    if (!mThread.joinable())
        return;
    {
        std::lock_guard lock(mPlanMutex);
        mStopping = true;
    }
    mWake.notify_all();
    mThread.join();
}

bool TeskAudioFileReader::running() const {
    return mThread.joinable();
}

std::int64_t TeskAudioFileReader::currentFrame() const {
    return unpackFrame(mPositionWord.load(std::memory_order_relaxed));
}

void TeskAudioFileReader::setCurrentFrame(std::int64_t frame) {
    replan(std::max<std::int64_t>(0, frame));
}

void TeskAudioFileReader::setReverse(bool reverse) {
    mReverse = reverse;
    replan(currentFrame());
}

bool TeskAudioFileReader::isReverse() const {
    return mReverse;
}

void TeskAudioFileReader::setLooping(bool looping) {
    mLooping = looping;
    replan(currentFrame());
}

bool TeskAudioFileReader::isLooping() const {
    return mLooping;
}

void TeskAudioFileReader::setLoopRange(LoopRange range) {
    mLoopRange = packRange(range);
    replan(currentFrame());
}

LoopRange TeskAudioFileReader::loopRange() const {
    return unpackRange(mLoopRange);
}

bool TeskAudioFileReader::hasFramesReady() noexcept {
    const std::uint64_t generation = mGeneration.load(std::memory_order_acquire);
    const std::uint64_t written = mWriteCount.load(std::memory_order_acquire);
    for (std::uint64_t read = mReadCount.load(std::memory_order_relaxed); read < written; ++read) {
        const Block& block = mBlocks[read % mBlocks.size()];
        // A block of a seek newer than the one loaded above is ready too; the music before the
        // position is not what plays.
        if (block.generation > generation || (block.generation == generation && !block.preroll))
            return true;
        if (block.generation == generation)
            continue;
        // Read before the last seek: let the reader thread have the room.
        mReadOffset = 0;
        mReadCount.store(read + 1, std::memory_order_release);
    }
    return false;
}

bool TeskAudioFileReader::endOfStream() const {
    return mEndedGeneration.load(std::memory_order_acquire) ==
           mGeneration.load(std::memory_order_acquire);
}

void TeskAudioFileReader::replan(std::int64_t position) {
    {
        std::lock_guard lock(mPlanMutex);
        mPlan.generation += 1;
        mPlan.position = position;
        mPlan.reverse = mReverse;
        mPlan.looping = mLooping;
        mPlan.range = loopRange();
        mPlan.prerollFrames = engine::kStartPrerollFrames;
        mPlanChanged = true;
        // The position first: whoever sees the new generation also sees where it starts.
        mPositionWord.store(packPosition(position, mPlan.generation), std::memory_order_relaxed);
        mGeneration.store(mPlan.generation, std::memory_order_release);
    }
    mWake.notify_all();
}

std::chrono::microseconds
TeskAudioFileReader::nextFullRingSleep(std::chrono::microseconds slept, std::uint64_t freeBlocks,
                                       std::uint64_t blockCount,
                                       std::chrono::microseconds longest) {
    if (freeBlocks * 4 > blockCount)
        return std::max(kShortestFullRingSleep, slept / 2);
    return std::min(longest, slept * 2);
}

void TeskAudioFileReader::run() {
    pthread_setname_np(pthread_self(), "tesk-reader");
    clearVectorUpperState();
    Plan plan;
    bool idle = true; // nothing to read until the first plan arrives
    bool awaitingDecoder = false;
    const auto blockCount = std::uint64_t(mBlocks.size());
    // Short at first: a new plan leaves the ring full of blocks the renderer drops at once.
    std::chrono::microseconds fullRingSleep = kShortestFullRingSleep;
    for (;;) {
        if (awaitingDecoder) {
            // Woken by the decoder as soon as it gets there; the bound keeps seeks answered.
            // Backwards, the music before the position lies above it.
            const std::int64_t above = plan.reverse ? plan.prerollFrames : 0;
            mFrames->waitForDecodedFrames(
                std::max<std::int64_t>(plan.position, 0) + above + kBlockFrames, kDecoderWait);
            awaitingDecoder = false;
        }
        {
            std::unique_lock lock(mPlanMutex);
            if (idle) {
                mWake.wait_for(lock, kIdlePoll, [this] { return mStopping || mPlanChanged; });
            } else if (mWriteCount.load() - mReadCount.load(std::memory_order_acquire) >=
                       blockCount) {
                mWake.wait_for(lock, fullRingSleep, [this] { return mStopping || mPlanChanged; });
                const std::uint64_t queued =
                    mWriteCount.load() - mReadCount.load(std::memory_order_acquire);
                fullRingSleep = nextFullRingSleep(fullRingSleep, blockCount - queued, blockCount,
                                                  mLongestFullRingSleep);
            }
            if (mStopping)
                return;
            if (mPlanChanged) {
                plan = mPlan;
                mPlanChanged = false;
                idle = false;
                fullRingSleep = kShortestFullRingSleep;
            }
        }
        // Fill what room there is, then look at the plan again.
        while (!idle) {
            const std::uint64_t written = mWriteCount.load(std::memory_order_relaxed);
            if (written - mReadCount.load(std::memory_order_acquire) >= blockCount)
                break;
            Block& block = mBlocks[written % blockCount];
            if (!fillBlock(plan, block)) {
                awaitingDecoder = true;
                break;
            }
            mWriteCount.store(written + 1, std::memory_order_release);
            if (block.endOfStream)
                idle = true;
            std::lock_guard lock(mPlanMutex);
            if (mPlanChanged || mStopping)
                break;
        }
    }
}

bool TeskAudioFileReader::fillBlock(Plan& plan, Block& block) {
    // Finished first: once it is, the decoded count read after it is final.
    const bool finished = mFrames->isDecodingFinished();
    const std::int64_t decoded = mFrames->decodedFrameCount();
    const std::int64_t total =
        finished ? mFrames->frameCount() : std::numeric_limits<std::int64_t>::max();
    const std::int64_t loopStart = plan.range.location;
    const std::int64_t loopEnd = std::min<std::int64_t>(loopStart + plan.range.length, total);
    const bool looping = plan.looping && plan.range.length > 0 && loopEnd > loopStart;

    block.generation = plan.generation;
    block.endOfStream = false;
    block.preroll = false;
    block.frameCount = 0;

    if (!plan.reverse) {
        block.direction = 1;
        if (looping && plan.position >= loopEnd)
            plan.position = loopStart;
        if (plan.prerollFrames > 0)
            return fillPrerollBlock(plan, block, finished, decoded);
        const std::int64_t end = looping && plan.position < loopEnd ? loopEnd : total;
        block.firstFrame = plan.position;
        if (plan.position >= end || (finished && plan.position >= decoded)) {
            block.endOfStream = true;
            return true;
        }
        const std::int64_t frames =
            std::min({std::int64_t(kBlockFrames), end - plan.position, decoded - plan.position});
        if (frames <= 0)
            return false;
        readForwards(plan, plan.position, std::uint32_t(frames), block.left.data(),
                     block.right.data());
        block.frameCount = std::uint32_t(frames);
        plan.position += frames;
        if (looping && plan.position >= loopEnd)
            plan.position = loopStart;
        return true;
    }

    // Backwards: the position is the boundary below which frames are played, so the first
    // frame played is position - 1.
    block.direction = -1;
    if (looping && (plan.position <= loopStart || plan.position > loopEnd))
        plan.position = loopEnd;
    if (finished)
        plan.position = std::min(plan.position, decoded);
    if (plan.prerollFrames > 0)
        return fillPrerollBlock(plan, block, finished, decoded);
    const std::int64_t floor = looping ? loopStart : 0;
    block.firstFrame = plan.position - 1;
    if (plan.position <= floor) {
        block.endOfStream = true;
        return true;
    }
    if (plan.position > decoded)
        return false; // not decoded that far yet
    const std::int64_t frames = std::min(std::int64_t(kBlockFrames), plan.position - floor);
    const std::int64_t start = plan.position - frames;
    readForwards(plan, start, std::uint32_t(frames), mScratchLeft.data(), mScratchRight.data());
    std::reverse_copy(mScratchLeft.begin(), mScratchLeft.begin() + frames, block.left.begin());
    std::reverse_copy(mScratchRight.begin(), mScratchRight.begin() + frames, block.right.begin());
    block.frameCount = std::uint32_t(frames);
    plan.position = start;
    if (looping && plan.position <= loopStart)
        plan.position = loopEnd;
    return true;
}

bool TeskAudioFileReader::fillPrerollBlock(Plan& plan, Block& block, bool finished,
                                           std::int64_t decoded) {
    // What plays before the position in the song, whatever the loop: forwards the frames below
    // it, backwards those from it up (the first frame played backwards is position - 1).
    const std::int64_t songEnd = finished ? decoded : std::numeric_limits<std::int64_t>::max();
    const std::int64_t room = plan.reverse ? songEnd - plan.position : plan.position;
    if (!plan.reverse && finished && plan.position >= decoded)
        plan.prerollFrames = 0; // nothing plays from there
    plan.prerollFrames = std::clamp<std::int64_t>(room, 0, plan.prerollFrames);
    if (plan.prerollFrames == 0)
        return fillBlock(plan, block);
    // The music right up to the position is read before anything plays from it, so waiting for
    // the decoder here keeps the first frames whole.
    const std::int64_t reach = plan.reverse ? plan.position + plan.prerollFrames : plan.position;
    if (reach > decoded)
        return false;
    const auto frames = std::uint32_t(std::min<std::int64_t>(kBlockFrames, plan.prerollFrames));
    block.preroll = true;
    block.frameCount = frames;
    if (!plan.reverse) {
        block.firstFrame = plan.position - plan.prerollFrames;
        mFrames->readFrames(block.firstFrame, frames, block.left.data(), block.right.data());
    } else {
        block.firstFrame = plan.position + plan.prerollFrames - 1;
        const std::int64_t start = block.firstFrame - frames + 1;
        mFrames->readFrames(start, frames, mScratchLeft.data(), mScratchRight.data());
        std::reverse_copy(mScratchLeft.begin(), mScratchLeft.begin() + frames, block.left.begin());
        std::reverse_copy(mScratchRight.begin(), mScratchRight.begin() + frames,
                          block.right.begin());
    }
    plan.prerollFrames -= frames;
    return true;
}

void TeskAudioFileReader::readForwards(const Plan& plan, std::int64_t start, std::uint32_t count,
                                       float* left, float* right) {
    const std::int64_t read = mFrames->readFrames(start, count, left, right);
    std::fill(left + std::max<std::int64_t>(read, 0), left + count, 0.0f);
    std::fill(right + std::max<std::int64_t>(read, 0), right + count, 0.0f);
    if (plan.looping && plan.range.length > 0)
        applySeamCrossfade(plan, start, count, left, right);
}

void TeskAudioFileReader::applySeamCrossfade(const Plan& plan, std::int64_t start,
                                             std::uint32_t count, float* left, float* right) {
    // Near the seam, fade from the frames before it into the frames that will follow it once
    // the loop wraps, so the wrap joins two matching stretches and the loop keeps its length.
    // The loop as the wrap sees it: one reaching past the song's end wraps at the end.
    const bool finished = mFrames->isDecodingFinished();
    const std::int64_t total =
        finished ? mFrames->frameCount() : std::numeric_limits<std::int64_t>::max();
    const std::int64_t loopStart = plan.range.location;
    const std::int64_t loopEnd = std::min<std::int64_t>(loopStart + plan.range.length, total);
    const std::int64_t half = (loopEnd - loopStart) / 2;
    // Forwards the partner stretch lies just before the loop's start, backwards just after its
    // end. A loop at the song's edge has none: its seam fades out to silence instead, and the
    // far side of the wrap fades in from it. Until decoding ends the song goes on past the
    // loop, so the choice does not change from one block to the next.
    const std::int64_t partnerFrames = plan.reverse ? total - loopEnd : loopStart;
    const bool toSilence = partnerFrames < std::int64_t(kLoopCrossfadeFrames / 4);
    const std::int64_t fadeFrames =
        toSilence ? std::min<std::int64_t>(kLoopCrossfadeFrames, half)
                  : std::min<std::int64_t>({kLoopCrossfadeFrames, partnerFrames, half});
    if (fadeFrames <= 0)
        return;
    const std::int64_t fadeStart = plan.reverse ? loopStart : loopEnd - fadeFrames;
    const std::int64_t partnerOffset = plan.reverse ? loopEnd - loopStart : loopStart - loopEnd;
    // How far into a fade `frame` is in playing order, from 1 to fadeFrames.
    const auto step = [&](std::int64_t frame, std::int64_t first) {
        return plan.reverse ? first + fadeFrames - frame : frame - first + 1;
    };

    std::int64_t from = std::max(start, fadeStart);
    std::int64_t to = std::min(start + count, fadeStart + fadeFrames);
    if (from < to) {
        float partnerLeft[kLoopCrossfadeFrames] = {};
        float partnerRight[kLoopCrossfadeFrames] = {};
        const std::int64_t read =
            toSilence ? to - from
                      : mFrames->readFrames(from + partnerOffset, std::uint32_t(to - from),
                                            partnerLeft, partnerRight);
        for (std::int64_t frame = from; frame < from + read; ++frame) {
            // The weight of the partner grows towards the seam.
            const float weight = float(step(frame, fadeStart)) / float(fadeFrames + 1);
            const std::size_t i = std::size_t(frame - start);
            const std::size_t j = std::size_t(frame - from);
            left[i] = left[i] * (1.0f - weight) + partnerLeft[j] * weight;
            right[i] = right[i] * (1.0f - weight) + partnerRight[j] * weight;
        }
    }
    if (!toSilence)
        return;
    const std::int64_t fadeInStart = plan.reverse ? loopEnd - fadeFrames : loopStart;
    from = std::max(start, fadeInStart);
    to = std::min(start + count, fadeInStart + fadeFrames);
    for (std::int64_t frame = from; frame < to; ++frame) {
        const float gain = float(step(frame, fadeInStart)) / float(fadeFrames + 1);
        left[std::size_t(frame - start)] *= gain;
        right[std::size_t(frame - start)] *= gain;
    }
}

std::uint32_t TeskAudioFileReader::copyPreroll(const AudioBufferList& buffers,
                                               std::uint32_t frameCount) noexcept {
    if (buffers.bufferCount < 2)
        return 0;
    const std::uint64_t generation = mGeneration.load(std::memory_order_acquire);
    if (generation != mRendererGeneration) {
        mRendererGeneration = generation;
        mReadOffset = 0;
    }
    const auto blockCount = std::uint64_t(mBlocks.size());
    const std::uint64_t written = mWriteCount.load(std::memory_order_acquire);
    std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
    for (; read < written && mBlocks[read % blockCount].generation < generation; ++read) {
        mReadOffset = 0;
        mReadCount.store(read + 1, std::memory_order_release);
    }
    // The music before the position leads this seek's blocks; only the frames nearest the
    // position are wanted.
    std::uint64_t end = read;
    std::uint64_t available = 0;
    for (; end < written; ++end) {
        const Block& block = mBlocks[end % blockCount];
        if (block.generation != generation || !block.preroll)
            break;
        available += block.frameCount;
    }
    std::uint64_t skip = available > frameCount ? available - frameCount : 0;
    std::uint32_t copied = 0;
    for (; read < end; ++read) {
        const Block& block = mBlocks[read % blockCount];
        const auto from = std::uint32_t(std::min<std::uint64_t>(skip, block.frameCount));
        skip -= from;
        std::copy_n(block.left.data() + from, block.frameCount - from,
                    buffers.buffers[0].data + copied);
        std::copy_n(block.right.data() + from, block.frameCount - from,
                    buffers.buffers[1].data + copied);
        copied += block.frameCount - from;
        mReadCount.store(read + 1, std::memory_order_release);
    }
    return copied;
}

void TeskAudioFileReader::copyInto(const AudioBufferList& buffers, std::uint32_t frameCount,
                                   std::uint32_t& framesWritten, SourceRuns* runs,
                                   std::uint32_t offset) noexcept {
    framesWritten = 0;
    if (runs)
        runs->count = 0;
    if (buffers.bufferCount < 2)
        return;
    const std::uint64_t generation = mGeneration.load(std::memory_order_acquire);
    if (generation != mRendererGeneration) {
        mRendererGeneration = generation;
        mReadOffset = 0;
    }
    const auto blockCount = std::uint64_t(mBlocks.size());
    float* left = buffers.buffers[0].data + offset;
    float* right = buffers.buffers[1].data + offset;
    std::int64_t position = 0;
    bool moved = false;

    while (framesWritten < frameCount) {
        const std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
        if (read == mWriteCount.load(std::memory_order_acquire))
            break; // the ring ran dry
        const Block& block = mBlocks[read % blockCount];
        // Seeks only move the generation on: a newer block is the start of a seek made during
        // this copy and belongs to the next one; an older one nobody wants any more.
        if (block.generation > generation)
            break;
        // Nor does anybody want the music before the position once playing began.
        if (block.generation < generation || block.preroll) {
            mReadOffset = 0;
            mReadCount.store(read + 1, std::memory_order_release);
            continue;
        }
        const std::uint32_t take =
            std::min(block.frameCount - mReadOffset, frameCount - framesWritten);
        if (take > 0) {
            std::copy_n(block.left.data() + mReadOffset, take, left + framesWritten);
            std::copy_n(block.right.data() + mReadOffset, take, right + framesWritten);
            const std::int64_t first =
                block.firstFrame + block.direction * std::int64_t(mReadOffset);
            if (runs) {
                SourceRun* last = runs->count > 0 ? &runs->runs[runs->count - 1] : nullptr;
                const bool continues =
                    last && last->direction == block.direction &&
                    last->sourceFrame + block.direction * std::int64_t(offset + framesWritten -
                                                                       last->outputOffset) ==
                        first;
                if (!continues && runs->count < SourceRuns::kMaxRuns)
                    runs->runs[runs->count++] = {offset + framesWritten, first, block.direction};
            }
            framesWritten += take;
            mReadOffset += take;
            // The boundary after the last frame taken, in playing order.
            position = block.direction > 0 ? first + take : first - take + 1;
            moved = true;
        }
        if (mReadOffset >= block.frameCount) {
            // Read before the block is handed back: from then on the reader may refill it.
            const bool endOfStream = block.endOfStream;
            if (endOfStream)
                mEndedGeneration.store(generation, std::memory_order_release);
            mReadOffset = 0;
            mReadCount.store(read + 1, std::memory_order_release);
            if (endOfStream)
                break;
        }
    }
    // A seek made meanwhile has already moved the position: leave it. The check and the store
    // are one step, so a seek between them makes the store fail instead of being overwritten.
    if (!moved)
        return;
    std::uint64_t seen = mPositionWord.load(std::memory_order_relaxed);
    const std::uint64_t ours = packPosition(position, generation);
    while (unpackGenerationTag(seen) == unpackGenerationTag(ours) &&
           !mPositionWord.compare_exchange_weak(seen, ours, std::memory_order_relaxed)) {
    }
}

std::uint64_t TeskAudioFileReader::packPosition(std::int64_t frame, std::uint64_t generation) {
    constexpr std::uint64_t tagMask = (std::uint64_t(1) << kGenerationTagBits) - 1;
    return (std::uint64_t(frame) << kGenerationTagBits) | (generation & tagMask);
}

std::int64_t TeskAudioFileReader::unpackFrame(std::uint64_t packed) {
    // An arithmetic shift keeps the sign of a frame before the start.
    return std::int64_t(packed) >> kGenerationTagBits;
}

std::uint64_t TeskAudioFileReader::unpackGenerationTag(std::uint64_t packed) {
    return packed & ((std::uint64_t(1) << kGenerationTagBits) - 1);
}

} // namespace tesk
