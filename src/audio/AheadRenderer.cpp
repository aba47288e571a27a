#include "audio/AheadRenderer.h"

#include "audio/EngineConstants.h"
#include "audio/dsp/VectorUnit.h"
#include "diagnostics/RealtimeThread.h"

#include <algorithm>
#include <chrono>
#include <pthread.h>
#include <sched.h>

namespace tesk {
namespace {

using Clock = std::chrono::steady_clock;

/// How long the rendering thread waits for the source after a start or a seek before it plays
/// silence instead.
constexpr auto kSourceWait = std::chrono::milliseconds(100);
/// How much is rendered before the device starts pulling.
constexpr std::uint32_t kPrefillBlocks = 4;
/// How long the rendering thread rests when the ring is full: half the time the device takes to
/// play one block, so the ring stays within a block of full while the thread wakes a few hundred
/// times a second rather than thousands (a laptop playing for hours feels the difference).
constexpr auto kFullRingPause = std::chrono::microseconds(
    std::int64_t(1e6 * AheadRenderer::kBlockFrames / engine::kSampleRateHz / 2));
/// How long it rests while the source is not ready: short, since the user waits to hear.
constexpr auto kSourcePause = std::chrono::microseconds(500);

void raiseThreadPriority() {
    // A real-time priority where the system grants one; an ordinary thread otherwise.
    sched_param parameters{};
    parameters.sched_priority = std::max(1, sched_get_priority_min(SCHED_FIFO) + 5);
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
}

} // namespace

AheadRenderer::AheadRenderer(ProcessingChain& chain)
    : mChain(chain) {}

AheadRenderer::~AheadRenderer() {
    stop();
}

void AheadRenderer::start(TeskSoundDevice& device) {
    if (isRunning())
        return;
    mChain.reset();
    // The ring starts empty; the callback's state follows when it sees the new generation.
    mReadCount.store(mWriteCount.load());
    mGeneration.fetch_add(1);
    mHasHeardPosition = false;
    mStopping = false;
    mFadeOutForStop = false;
    mThread = std::thread([this] { run(); });

    const auto deadline = Clock::now() + kSourceWait;
    while (queuedBlocks() < kPrefillBlocks && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    mDevice = &device;
    device.start();
}

void AheadRenderer::stop() {
    if (mDevice) {
        // Pausing the device mid-waveform would click: its next period fades out first.
        if (mDevice->isRunning()) {
            mFadedOutForStop.store(false);
            mFadeOutForStop.store(true);
            const auto deadline = Clock::now() + kStopFadeWait;
            while (!mFadedOutForStop.load() && Clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        mDevice->stop();
        mDevice = nullptr;
    }
    if (!mThread.joinable())
        return;
    mStopping = true;
    mThread.join();
}

void AheadRenderer::flush() {
    mGeneration.fetch_add(1, std::memory_order_acq_rel);
    mHasHeardPosition.store(false, std::memory_order_relaxed);
}

std::optional<AheadRenderer::HeardPosition> AheadRenderer::heardPosition() {
    const HeardPosition* newest = mHeardReport.read();
    if (newest == nullptr || !mHasHeardPosition.load(std::memory_order_relaxed) ||
        newest->generation != mGeneration.load(std::memory_order_acquire))
        return std::nullopt;
    return *newest;
}

std::uint64_t AheadRenderer::queuedBlocks() const {
    return mWriteCount.load(std::memory_order_acquire) - mReadCount.load(std::memory_order_acquire);
}

void AheadRenderer::run() {
    clearVectorUpperState();
    raiseThreadPriority();
    markRealtimeThread(RealtimeRole::Rendering);
    std::uint64_t generation = 0;
    Clock::time_point waitForSourceUntil{};
    while (!mStopping.load(std::memory_order_relaxed)) {
        const std::uint64_t wanted = mGeneration.load(std::memory_order_acquire);
        if (wanted != generation) {
            if (generation != 0)
                mChain.reset();
            generation = wanted;
            waitForSourceUntil = Clock::now() + kSourceWait;
        }
        if (queuedBlocks() >= kBlockCount) {
            std::this_thread::sleep_for(kFullRingPause);
            continue;
        }
        if (!mChain.sourceReady() && Clock::now() < waitForSourceUntil) {
            std::this_thread::sleep_for(kSourcePause);
            continue;
        }
        waitForSourceUntil = {};
        const std::uint64_t written = mWriteCount.load(std::memory_order_relaxed);
        Block& block = mBlocks[written % kBlockCount];
        block.generation = generation;
        mChain.render(block.left.data(), block.right.data(), kBlockFrames, &block.position);
        mWriteCount.store(written + 1, std::memory_order_release);
    }
}

void AheadRenderer::renderAudio(float* left, float* right, std::uint32_t frameCount) noexcept {
    markRealtimeThread(RealtimeRole::Device);
    const std::uint64_t generation = mGeneration.load(std::memory_order_acquire);
    // What the device plays now is what it was handed one period ago.
    if (mHasPendingHeard && generation == mSeenGeneration) {
        mHeardFrame.store(mPendingHeard, std::memory_order_relaxed);
        mHasHeardPosition.store(true, std::memory_order_relaxed);
        HeardPosition& report = mHeardReport.writeSlot();
        report.sourceFrame = mPendingHeard;
        report.sourceStep = mPendingStep;
        report.steadyTimeNs =
            std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
                .count();
        report.periodFrames = mPendingPeriod;
        report.generation = generation;
        mHeardReport.publish();
    }
    if (generation != mSeenGeneration) {
        mSeenGeneration = generation;
        mAwaitingFirstBlock = true;
        mHasPendingHeard = false;
        mFadeOutPending = true;
        mFadedIn = 0;
    }

    std::uint32_t done = 0;
    bool positioned = false;
    while (done < frameCount) {
        const std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
        if (read == mWriteCount.load(std::memory_order_acquire)) {
            if (!mAwaitingFirstBlock) {
                mUnderruns.fetch_add(1, std::memory_order_relaxed);
                // The ring ran dry: what this period has fades out, and the sound fades back
                // in once it comes.
                const std::uint32_t frames = std::min(done, kSeekFadeFrames);
                for (std::uint32_t i = 0; i < frames; ++i) {
                    const float gain = float(frames - i) / float(frames + 1);
                    left[done - frames + i] *= gain;
                    right[done - frames + i] *= gain;
                }
                mFadedIn = 0;
            }
            break;
        }
        const Block& block = mBlocks[read % kBlockCount];
        if (block.generation != generation) {
            if (mFadeOutPending)
                takeFadeOut(read, generation);
            mFadeOutPending = false;
            mBlockOffset = 0;
            mReadCount.store(read + 1, std::memory_order_release);
            continue;
        }
        mFadeOutPending = false;
        mAwaitingFirstBlock = false;
        // The period's first block says what is heard as the period starts; one from before
        // the source supplied anything names no frame, and the position stays where it was.
        if (!positioned) {
            mPendingHeard = block.position.sourceFrame + block.position.sourceStep * mBlockOffset;
            mPendingStep = block.position.sourceStep;
            mPendingPeriod = frameCount;
            mHasPendingHeard = block.position.known;
            positioned = true;
        }
        const std::uint32_t take = std::min(kBlockFrames - mBlockOffset, frameCount - done);
        std::copy_n(block.left.data() + mBlockOffset, take, left + done);
        std::copy_n(block.right.data() + mBlockOffset, take, right + done);
        fadeIn(left + done, right + done, take);
        done += take;
        mBlockOffset += take;
        if (mBlockOffset == kBlockFrames) {
            mBlockOffset = 0;
            mReadCount.store(read + 1, std::memory_order_release);
        }
    }
    std::fill(left + done, left + frameCount, 0.0f);
    std::fill(right + done, right + frameCount, 0.0f);
    mixFadeOut(left, right, frameCount);

    if (mFadeOutForStop.load(std::memory_order_acquire)) {
        // Stopping: this period fades out, and silence follows until the device pauses.
        const std::uint32_t frames = mFadedOutForStop.load(std::memory_order_relaxed)
                                         ? 0
                                         : std::min(frameCount, kSeekFadeFrames);
        for (std::uint32_t i = 0; i < frames; ++i) {
            const float gain = float(frames - i) / float(frames + 1);
            left[i] *= gain;
            right[i] *= gain;
        }
        std::fill(left + frames, left + frameCount, 0.0f);
        std::fill(right + frames, right + frameCount, 0.0f);
        mFadedOutForStop.store(true, std::memory_order_release);
    }
}

void AheadRenderer::takeFadeOut(std::uint64_t read, std::uint64_t generation) {
    // The blocks between the read and the write counts stay as they are while the callback
    // holds them; the old ones follow on from what was played last.
    const std::uint64_t written = mWriteCount.load(std::memory_order_acquire);
    std::uint32_t offset = mBlockOffset;
    mFadeOutFrames = 0;
    mFadeOutMixed = 0;
    while (mFadeOutFrames < kSeekFadeFrames && read != written) {
        const Block& block = mBlocks[read % kBlockCount];
        if (block.generation == generation)
            break;
        const std::uint32_t take =
            std::min(kBlockFrames - offset, kSeekFadeFrames - mFadeOutFrames);
        std::copy_n(block.left.data() + offset, take, mFadeOutLeft.data() + mFadeOutFrames);
        std::copy_n(block.right.data() + offset, take, mFadeOutRight.data() + mFadeOutFrames);
        mFadeOutFrames += take;
        offset = 0;
        ++read;
    }
    for (std::uint32_t i = 0; i < mFadeOutFrames; ++i) {
        const float gain = float(kSeekFadeFrames - i) / float(kSeekFadeFrames + 1);
        mFadeOutLeft[i] *= gain;
        mFadeOutRight[i] *= gain;
    }
}

void AheadRenderer::fadeIn(float* left, float* right, std::uint32_t frameCount) {
    for (std::uint32_t i = 0; i < frameCount && mFadedIn < kSeekFadeFrames; ++i, ++mFadedIn) {
        const float gain = float(mFadedIn + 1) / float(kSeekFadeFrames + 1);
        left[i] *= gain;
        right[i] *= gain;
    }
}

void AheadRenderer::mixFadeOut(float* left, float* right, std::uint32_t frameCount) {
    const std::uint32_t frames = std::min(frameCount, mFadeOutFrames - mFadeOutMixed);
    for (std::uint32_t i = 0; i < frames; ++i) {
        left[i] += mFadeOutLeft[mFadeOutMixed + i];
        right[i] += mFadeOutRight[mFadeOutMixed + i];
    }
    mFadeOutMixed += frames;
}

} // namespace tesk
