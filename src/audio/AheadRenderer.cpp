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
    mSeekGoesOnFrom.store(0);
    mRenderingGeneration.store(mGeneration.fetch_add(1) + 1, std::memory_order_release);
    mStopping = false;
    // The device is paused: the callback's state can be set here. Nothing of the sound before
    // the stop is left to fade.
    mFadeOutForStop = false;
    mSoundAtPeriodEnd = false;
    mFadeOutMixed = mFadeOutFrames;
    mThread = std::thread([this] { run(); });

    const auto deadline = Clock::now() + kSourceWait;
    while (queuedBlocks() < kPrefillBlocks && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    mDevice = &device;
    device.start();
}

void AheadRenderer::stop() {
    mStopMarkKnown.store(false); // until a period fades out for this stop
    if (mDevice) {
        // Pausing the device mid-waveform would click: its next period fades out first.
        if (mDevice->isRunning()) {
            mStopFaded = 0; // the callback reads it only once it sees the request
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
    mSeekGoesOnFrom.store(0, std::memory_order_relaxed);
    mGeneration.fetch_add(1, std::memory_order_acq_rel);
}

void AheadRenderer::flush(HandedMark mark) {
    mSeekGoesOnFrom.store(kGoesOn | mark.handedFrames, std::memory_order_relaxed);
    mGeneration.fetch_add(1, std::memory_order_acq_rel);
}

std::optional<AheadRenderer::HandedMark> AheadRenderer::nextHandedMark() const {
    if (mHandedGeneration.load(std::memory_order_acquire) !=
        mGeneration.load(std::memory_order_relaxed))
        return std::nullopt;
    const std::uint64_t packed = mHandedMark.load(std::memory_order_relaxed);
    return HandedMark{std::int64_t(packed >> 32), std::uint32_t(packed)};
}

std::optional<AheadRenderer::HandedMark> AheadRenderer::markWhereStopFaded() const {
    if (!mStopMarkKnown.load(std::memory_order_acquire))
        return std::nullopt;
    const std::uint64_t packed = mStopMark.load(std::memory_order_relaxed);
    return HandedMark{std::int64_t(packed >> 32), std::uint32_t(packed)};
}

void AheadRenderer::publishHandedFrame(double sourceFrame, std::uint64_t generation) {
    const auto frame = std::uint32_t(std::clamp(std::llround(sourceFrame), 0LL, 0xffffffffLL));
    mHandedMark.store(std::uint64_t(frame) << 32 | mHandedFrames, std::memory_order_relaxed);
    mHandedGeneration.store(generation, std::memory_order_release);
}

std::optional<AheadRenderer::HeardPosition> AheadRenderer::heardPosition() {
    const HeardPosition* newest = mHeardReport.read();
    if (newest == nullptr || !hasHeardPosition() ||
        newest->generation != mGeneration.load(std::memory_order_acquire))
        return std::nullopt;
    return *newest;
}

std::uint64_t AheadRenderer::queuedBlocks() const {
    return mWriteCount.load(std::memory_order_acquire) - mReadCount.load(std::memory_order_acquire);
}

std::uint64_t AheadRenderer::leadBlocks() const {
    if (renderingGeneration() != generation())
        return 0;
    const std::uint64_t first = mFirstBlockOfGeneration.load(std::memory_order_relaxed);
    const std::uint64_t read = mReadCount.load(std::memory_order_acquire);
    return mWriteCount.load(std::memory_order_acquire) - std::max(read, first);
}

void AheadRenderer::run() {
    pthread_setname_np(pthread_self(), "tesk-renderer");
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
            mFirstBlockOfGeneration.store(mWriteCount.load(std::memory_order_relaxed),
                                          std::memory_order_relaxed);
            mRenderingGeneration.store(wanted, std::memory_order_release);
            waitForSourceUntil = Clock::now() + kSourceWait;
        }
        // Blocks of an older stream, which the device will skip, do not count against the lead.
        if (queuedBlocks() >= kBlockCount || leadBlocks() >= kLeadBlocks) {
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
    // Where this period's sound begins, should it be the one that fades out for a stop.
    const std::uint64_t markAtStart = mHandedMark.load(std::memory_order_relaxed);
    const bool markAtStartKnown = mHandedGeneration.load(std::memory_order_relaxed) == generation;
    // What the device plays now is what it was handed one period ago.
    if (mHasPendingHeard && generation == mSeenGeneration) {
        mHeardFrame.store(mPendingHeard, std::memory_order_relaxed);
        mHeardGeneration.store(generation, std::memory_order_release);
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
        // The sound playing goes on until enough of the new one is ready, then fades out under
        // it (letGoOfOldStream).
        mOldStreamPlaying = true;
        const std::uint64_t goesOn = mSeekGoesOnFrom.load(std::memory_order_relaxed);
        mSeekGoesOn = (goesOn & kGoesOn) != 0;
        mSeekMark = std::uint32_t(goesOn);
    }

    std::uint32_t done = 0;
    std::uint32_t tailFrom = 0; // where this period's fade-out tail starts
    bool positioned = false;
    bool holdLastFrame = false;
    while (done < frameCount) {
        const std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
        if (read == mWriteCount.load(std::memory_order_acquire)) {
            const bool soundStops =
                !mAwaitingFirstBlock || (mOldStreamPlaying && (done > 0 || mSoundAtPeriodEnd));
            if (!mAwaitingFirstBlock)
                mUnderruns.fetch_add(1, std::memory_order_relaxed);
            if (soundStops) {
                // The ring ran dry: the sound fades out, and back in once it comes. With too
                // little of it left to fade, its last frame is held and faded instead.
                if (done >= kSeekFadeFrames)
                    fadeOut(left + done - kSeekFadeFrames, right + done - kSeekFadeFrames,
                            kSeekFadeFrames, 1.0f);
                else
                    holdLastFrame = done > 0 || mSoundAtPeriodEnd;
                mFadedIn = 0;
            }
            break;
        }
        const Block& block = mBlocks[read % kBlockCount];
        if (block.generation != generation) {
            // Until a period of the new sound is ready (and what a seek that goes on from a mark
            // passes over), the old one plays on: a seek leaves no silence. Where it runs out, a
            // stream sought since and left before it was heard (a play head dragged along)
            // follows it in the ring, and plays on in its place, crossfaded as after a seek.
            if (mOldStreamPlaying &&
                !newStreamReady(read, generation, frameCount, framesToSkip())) {
                if (block.generation != mPlayedGeneration)
                    fadeOutWhatPlayed(read, left, right, done, tailFrom);
                playBlock(block, read, left + done, right + done, frameCount - done, done, false);
                continue;
            }
            if (mOldStreamPlaying)
                letGoOfOldStream(read, left, right, done, tailFrom);
            mBlockOffset = 0;
            mReadCount.store(read + 1, std::memory_order_release);
            continue;
        }
        if (mOldStreamPlaying)
            letGoOfOldStream(read, left, right, done, tailFrom);
        if (mAwaitingFirstBlock) {
            mBlockOffset = 0; // nothing of an earlier stream is left to finish
            // Begun with less than a period rendered, the new sound would run dry at once and
            // stutter: it waits for a period's worth (the old one's fade plays meanwhile).
            if (!newStreamReady(read, generation, frameCount, mSkipFrames))
                break;
            if (mSkipFrames > 0) {
                if (!skipFramesHandedBeforeTheSeek())
                    break; // the sound that follows comes in a later period, as after any seek
                mAwaitingFirstBlock = false;
                continue;
            }
        }
        mAwaitingFirstBlock = false;
        playBlock(block, read, left + done, right + done, frameCount - done, done, !positioned);
        positioned = true;
    }
    // A block's position is traced at its first frame only, and a loop may wrap inside it: where
    // the next block is already rendered, its own first frame says exactly where the device
    // goes on from.
    if (mBlockOffset == 0 && mHandedGeneration.load(std::memory_order_relaxed) == generation) {
        const std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
        if (read != mWriteCount.load(std::memory_order_acquire)) {
            const Block& next = mBlocks[read % kBlockCount];
            if (next.generation == generation && next.position.known)
                publishHandedFrame(next.position.sourceFrame, generation);
        }
    }
    std::fill(left + done, left + frameCount, 0.0f);
    std::fill(right + done, right + frameCount, 0.0f);
    if (holdLastFrame) {
        const float lastLeft = done > 0 ? left[done - 1] : mLastLeft;
        const float lastRight = done > 0 ? right[done - 1] : mLastRight;
        const std::uint32_t frames = std::min(kSeekFadeFrames, frameCount - done);
        std::fill_n(left + done, frames, lastLeft);
        std::fill_n(right + done, frames, lastRight);
        fadeOut(left + done, right + done, frames, 1.0f);
    }
    mixFadeOut(left + tailFrom, right + tailFrom, frameCount - tailFrom);
    mSoundAtPeriodEnd = done == frameCount;

    if (mFadeOutForStop.load(std::memory_order_acquire)) {
        // Stopping: the sound fades out, across periods if they are short, and silence follows
        // until the device pauses. What this period handed is heard only as the fade: playing
        // on goes on from where the period began.
        if (mStopFaded == 0) {
            // A seek that came while this period played makes its mark the old stream's.
            mStopMark.store(markAtStart, std::memory_order_relaxed);
            mStopMarkKnown.store(markAtStartKnown &&
                                     mGeneration.load(std::memory_order_acquire) == generation,
                                 std::memory_order_release);
        }
        const std::uint32_t frames = std::min(frameCount, kSeekFadeFrames - mStopFaded);
        for (std::uint32_t i = 0; i < frames; ++i) {
            const float gain = float(kSeekFadeFrames - mStopFaded - i) / float(kSeekFadeFrames + 1);
            left[i] *= gain;
            right[i] *= gain;
        }
        std::fill(left + frames, left + frameCount, 0.0f);
        std::fill(right + frames, right + frameCount, 0.0f);
        mStopFaded += frames;
        if (mStopFaded == kSeekFadeFrames)
            mFadedOutForStop.store(true, std::memory_order_release);
    }
    if (frameCount > 0) {
        mLastLeft = left[frameCount - 1];
        mLastRight = right[frameCount - 1];
    }
}

void AheadRenderer::playBlock(const Block& block, std::uint64_t read, float* left, float* right,
                              std::uint32_t room, std::uint32_t& done, bool reportHeard) {
    mPlayedGeneration = block.generation;
    // The period's first block of the new stream says what is heard as the period starts; one
    // from before the source supplied anything names no frame, and the position stays put.
    if (reportHeard) {
        mPendingHeard = block.position.sourceFrame + block.position.sourceStep * mBlockOffset;
        mPendingStep = block.position.sourceStep;
        mPendingPeriod = done + room;
        mHasPendingHeard = block.position.known;
    }
    const std::uint32_t take = std::min(kBlockFrames - mBlockOffset, room);
    std::copy_n(block.left.data() + mBlockOffset, take, left);
    std::copy_n(block.right.data() + mBlockOffset, take, right);
    mHandedFrames += take;
    if (block.position.known)
        publishHandedFrame(block.position.sourceFrame +
                               block.position.sourceStep * (mBlockOffset + take),
                           block.generation);
    // Silence rendered before the source supplied anything: the fade waits for the sound.
    if (block.position.known)
        fadeIn(left, right, take);
    else
        mFadedIn = 0;
    done += take;
    mBlockOffset += take;
    if (mBlockOffset == kBlockFrames) {
        mBlockOffset = 0;
        mReadCount.store(read + 1, std::memory_order_release);
    }
}

bool AheadRenderer::newStreamReady(std::uint64_t read, std::uint64_t generation, std::uint32_t room,
                                   std::uint32_t skip) const {
    std::uint64_t blocks = 0;
    const std::uint64_t written = mWriteCount.load(std::memory_order_acquire);
    for (std::uint64_t i = read; i != written; ++i)
        blocks += mBlocks[i % kBlockCount].generation == generation ? 1 : 0;
    const std::uint64_t wanted = std::uint64_t(room) + skip;
    return blocks * kBlockFrames >= std::min<std::uint64_t>(wanted, kLeadBlocks * kBlockFrames);
}

std::uint32_t AheadRenderer::framesToSkip() const {
    // More than the ring holds is no slip but a mark from long ago: nothing is skipped.
    const std::uint32_t slipped = mHandedFrames - mSeekMark;
    return mSeekGoesOn && slipped <= kBlockCount * kBlockFrames ? slipped : 0;
}

void AheadRenderer::fadeOutWhatPlayed(std::uint64_t read, float* left, float* right,
                                      std::uint32_t done, std::uint32_t& tailFrom) {
    // A tail still fading from an earlier seek has played under this period up to here; the
    // new tail, with what is left of it, starts here.
    mixFadeOut(left + tailFrom, right + tailFrom, done - tailFrom);
    tailFrom = done;
    // Only sound that was playing fades out, from the level it had got to.
    mFadeOutFrom = fadeInGain(mFadedIn);
    if (done > 0 || mSoundAtPeriodEnd)
        takeFadeOut(read, done > 0 ? left[done - 1] : mLastLeft,
                    done > 0 ? right[done - 1] : mLastRight);
    mFadedIn = 0;
}

void AheadRenderer::letGoOfOldStream(std::uint64_t read, float* left, float* right,
                                     std::uint32_t done, std::uint32_t& tailFrom) {
    fadeOutWhatPlayed(read, left, right, done, tailFrom);
    // A seek that goes on from a mark passes over what was handed since, the old sound's last
    // periods included.
    mSkipFrames = framesToSkip();
    mOldStreamPlaying = false;
}

bool AheadRenderer::skipFramesHandedBeforeTheSeek() {
    // Whole blocks first: a skip the ring cannot finish yet leaves the offset at a block's start,
    // where the next period takes it up again.
    const std::uint64_t generation = mSeenGeneration;
    for (;;) {
        const std::uint64_t read = mReadCount.load(std::memory_order_relaxed);
        if (read == mWriteCount.load(std::memory_order_acquire))
            return false;
        const Block& block = mBlocks[read % kBlockCount];
        // Silence from before the source supplied anything names no frame to go on from.
        if (mSkipFrames == 0 || block.generation != generation || !block.position.known) {
            mSkipFrames = 0;
            return true;
        }
        if (mSkipFrames < kBlockFrames) {
            mBlockOffset = mSkipFrames;
            mSkipFrames = 0;
            return true;
        }
        mSkipFrames -= kBlockFrames;
        mReadCount.store(read + 1, std::memory_order_release);
    }
}

void AheadRenderer::takeFadeOut(std::uint64_t read, float lastLeft, float lastRight) {
    // The blocks between the read and the write counts stay as they are while the callback
    // holds them; those of the stream last played follow on from its last frame.
    const std::uint64_t written = mWriteCount.load(std::memory_order_acquire);
    std::array<float, kSeekFadeFrames> tailLeft{};
    std::array<float, kSeekFadeFrames> tailRight{};
    std::uint32_t frames = 0;
    std::uint32_t offset = mBlockOffset;
    while (frames < kSeekFadeFrames && read != written) {
        const Block& block = mBlocks[read % kBlockCount];
        if (block.generation != mPlayedGeneration)
            break;
        const std::uint32_t take = std::min(kBlockFrames - offset, kSeekFadeFrames - frames);
        std::copy_n(block.left.data() + offset, take, tailLeft.data() + frames);
        std::copy_n(block.right.data() + offset, take, tailRight.data() + frames);
        frames += take;
        offset = 0;
        ++read;
    }
    // A stream with less left than the fade (the old one played on to its last block) holds its
    // last frame: the fade never starts from a cut. The last frame handed is already at the
    // level the stream had got to.
    const float from = frames > 0 ? mFadeOutFrom : 1.0f;
    const float holdLeft = frames > 0 ? tailLeft[frames - 1] : lastLeft;
    const float holdRight = frames > 0 ? tailRight[frames - 1] : lastRight;
    std::fill(tailLeft.begin() + frames, tailLeft.end(), holdLeft);
    std::fill(tailRight.begin() + frames, tailRight.end(), holdRight);
    frames = kSeekFadeFrames;
    fadeOut(tailLeft.data(), tailRight.data(), frames, from);
    // A tail still fading from an earlier seek goes on under the new one.
    const std::uint32_t remaining = mFadeOutFrames - mFadeOutMixed;
    for (std::uint32_t i = 0; i < remaining; ++i) {
        tailLeft[i] += mFadeOutLeft[mFadeOutMixed + i];
        tailRight[i] += mFadeOutRight[mFadeOutMixed + i];
    }
    mFadeOutLeft = tailLeft;
    mFadeOutRight = tailRight;
    mFadeOutFrames = std::max(frames, remaining);
    mFadeOutMixed = 0;
}

void AheadRenderer::fadeOut(float* left, float* right, std::uint32_t frames, float from) {
    for (std::uint32_t i = 0; i < frames; ++i) {
        const float gain = from * float(frames - i) / float(frames + 1);
        left[i] *= gain;
        right[i] *= gain;
    }
}

float AheadRenderer::fadeInGain(std::uint32_t fadedIn) {
    return fadedIn >= kSeekFadeFrames ? 1.0f : float(fadedIn) / float(kSeekFadeFrames + 1);
}

void AheadRenderer::fadeIn(float* left, float* right, std::uint32_t frameCount) {
    for (std::uint32_t i = 0; i < frameCount && mFadedIn < kSeekFadeFrames; ++i) {
        const float gain = fadeInGain(++mFadedIn);
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
