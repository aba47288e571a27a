#pragma once

#include "audio/ProcessingChain.h"
#include "audio/TeskSoundDevice.h"
#include "audio/dsp/LatestValue.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

namespace tesk {

/// Runs the processing chain on its own thread, a little ahead of the sound device, into a
/// lock-free ring that the device's callback only copies from. The stretcher works in bursts
/// that do not always fit one device period; the ring absorbs them, so the callback never waits
/// and a busy main thread never makes a gap.
///
/// Also knows which source frame is being heard: every block in the ring carries where it came
/// from, and the callback publishes the position of what it handed the device a period ago.
class AheadRenderer final : public AudioRenderer {
public:
    /// What the device started to play at a moment of the steady clock: enough for a view to
    /// place the play position for the moment it is shown, between two reports.
    struct HeardPosition {
        /// The source frame heard at `steadyTimeNs`.
        double sourceFrame = 0.0;
        /// Source frames per device frame: the speed, negative when playing backwards.
        double sourceStep = 1.0;
        /// std::chrono::steady_clock's time since its epoch, in nanoseconds.
        std::int64_t steadyTimeNs = 0;
        /// The device frames handed over with this report, so the next report is due about
        /// this many frames later.
        std::uint32_t periodFrames = 0;
        /// The seek the report belongs to; reports from before the newest seek are stale.
        std::uint64_t generation = 0;
    };

    static constexpr std::uint32_t kBlockFrames = 256;
    /// How far the rendering thread keeps ahead of the device: 16 blocks, about 93 ms.
    static constexpr std::uint32_t kLeadBlocks = 16;
    /// The ring has room past the lead for a whole lead of the new stream after a seek, while it
    /// still holds the old stream's, which plays on until enough of the new one is ready: a seek
    /// leaves no gap.
    static constexpr std::uint32_t kBlockCount = 2 * kLeadBlocks;
    /// A start or a seek fades the new sound in, and a seek the old one out, over 1.5 ms: the
    /// cut and the onset would click. A ring that runs dry fades out and back in the same way.
    static constexpr std::uint32_t kSeekFadeFrames = 64;
    /// How long a stop waits for its fade-out before it cuts the sound anyway.
    static constexpr std::chrono::milliseconds kStopFadeWait{100};

    explicit AheadRenderer(ProcessingChain& chain);
    ~AheadRenderer() override;

    /// Starts rendering ahead and, once a little is ready, `device`. Main thread.
    void start(TeskSoundDevice& device);
    /// Stops `device` (if it is the one started) and the rendering thread. Main thread; waits
    /// for the device's next period (100 ms at most), which fades the sound out.
    void stop();
    bool isRunning() const { return mThread.joinable(); }

    /// Where the sound the device is handed next comes from, and how many frames of sound the
    /// device had been handed when it got there.
    struct HandedMark {
        std::int64_t sourceFrame = 0;
        std::uint32_t handedFrames = 0; // counted on round from 2^32
    };

    /// Drops what is queued and restarts the chain from the source's next frames: a seek.
    /// Main thread.
    void flush();
    /// A seek that renders the sound on its way again from `mark`, with the source moved to its
    /// frame: what the device was handed after the mark was taken, before the seek reached it,
    /// is not handed again (a period can slip in between the two). Main thread.
    void flush(HandedMark mark);
    /// The newest generation, raised by each start and seek (`flush`). Main thread, which alone
    /// raises it.
    std::uint64_t generation() const { return mGeneration.load(std::memory_order_relaxed); }
    /// The generation the rendering thread renders for now: older than `generation` until it
    /// has seen the newest seek. Any thread.
    std::uint64_t renderingGeneration() const {
        return mRenderingGeneration.load(std::memory_order_acquire);
    }

    /// The source frame being heard now, and whether there is one yet. Any thread.
    double heardSourceFrame() const { return mHeardFrame.load(std::memory_order_relaxed); }
    /// A heard position belongs to the newest start or seek: the callback may report one more
    /// period of the stream before it, which says nothing of where playback now is.
    bool hasHeardPosition() const {
        return mHeardGeneration.load(std::memory_order_acquire) ==
               mGeneration.load(std::memory_order_acquire);
    }
    /// The source frame the device will be handed next: where the sound would go on from if
    /// the stream were started again now. Nothing until the device has been handed a frame of
    /// the newest start or seek. Main thread (the one that seeks).
    std::optional<HandedMark> nextHandedMark() const;
    /// After `stop`: where the period that faded the sound out began, which is where the sound
    /// heard up to the stop ends (the fade's few frames aside). Nothing when no period faded it
    /// (the device was not running) or a seek had not reached the device. Main thread.
    std::optional<HandedMark> markWhereStopFaded() const;
    /// The newest report of what is heard, or nothing before the first one since the last start
    /// or seek. One reader only: the main thread. Never blocks.
    std::optional<HeardPosition> heardPosition();

    /// Times the device found the ring empty while playing (not counting the moment after a
    /// seek). Any thread.
    std::uint64_t underrunCount() const { return mUnderruns.load(std::memory_order_relaxed); }
    /// Blocks rendered and not yet handed to the device: how far ahead the rendering thread
    /// is. Any thread.
    std::uint64_t queuedBlocks() const;
    /// Blocks of the newest start or seek rendered and not yet handed to the device; blocks of
    /// an older stream still in the ring are skipped, never heard. Any thread.
    std::uint64_t leadBlocks() const;
    /// Blocks the rendering thread has finished since the start; the one it is making, if any,
    /// is the next. Any thread.
    std::uint64_t renderedBlocks() const { return mWriteCount.load(std::memory_order_acquire); }
    /// Blocks handed to the device since the start: its clock, in blocks. Any thread.
    std::uint64_t playedBlocks() const { return mReadCount.load(std::memory_order_acquire); }

    /// The device's pull. Device callback: copies only; never allocates, locks, waits, logs or
    /// throws.
    void renderAudio(float* left, float* right, std::uint32_t frameCount) noexcept override;

private:
    struct Block {
        std::uint64_t generation = 0;
        SlicePosition position;
        std::array<float, kBlockFrames> left{};
        std::array<float, kBlockFrames> right{};
    };

    void run();
    // Device callback.
    /// Keeps, faded out, the sound last played as it would have gone on from the block `read`;
    /// with less of it left than the fade, its last frame held (`lastLeft` and `lastRight`, the
    /// last handed, when nothing is left).
    void takeFadeOut(std::uint64_t read, float lastLeft, float lastRight);
    /// Fades `frames` from `from` (the level they start at) down towards silence.
    static void fadeOut(float* left, float* right, std::uint32_t frames, float from);
    /// The gain of the fade-in's frame `fadedIn` (1 to kSeekFadeFrames), or 1 past its end.
    static float fadeInGain(std::uint32_t fadedIn);
    void fadeIn(float* left, float* right, std::uint32_t frameCount);
    void mixFadeOut(float* left, float* right, std::uint32_t frameCount);
    /// Passes over the first frames of the new stream that the device was handed from the old
    /// one after a seek's mark; whether a frame to play follows in the ring.
    bool skipFramesHandedBeforeTheSeek();
    /// Copies what is left of the block at `read` into `left` and `right`, at most `room` frames,
    /// and adds them to `done`; `reportHeard` takes the block's place as what the period plays.
    void playBlock(const Block& block, std::uint64_t read, float* left, float* right,
                   std::uint32_t room, std::uint32_t& done, bool reportHeard);
    /// Whether the ring from `read` on holds enough of `generation` for `room` frames (a period)
    /// and the `skip` frames a seek that goes on from a mark passes over.
    bool newStreamReady(std::uint64_t read, std::uint64_t generation, std::uint32_t room,
                        std::uint32_t skip) const;
    std::uint32_t framesToSkip() const;
    /// Takes the fade-out tail of the sound played, from `read` on, to play from `done` in this
    /// period, and starts the fade-in of what follows.
    void fadeOutWhatPlayed(std::uint64_t read, float* left, float* right, std::uint32_t done,
                           std::uint32_t& tailFrom);
    /// As `fadeOutWhatPlayed`, for the new sound, which plays from here on.
    void letGoOfOldStream(std::uint64_t read, float* left, float* right, std::uint32_t done,
                          std::uint32_t& tailFrom);
    void publishHandedFrame(double sourceFrame, std::uint64_t generation);

    ProcessingChain& mChain;
    TeskSoundDevice* mDevice = nullptr;
    std::thread mThread;
    std::atomic<bool> mStopping{false};
    std::array<Block, kBlockCount> mBlocks;
    std::atomic<std::uint64_t> mWriteCount{0};
    std::atomic<std::uint64_t> mReadCount{0};
    std::atomic<std::uint64_t> mGeneration{0}; // raised by each flush
    std::atomic<std::uint64_t> mRenderingGeneration{0};
    // The write count when the rendering thread took up its generation: blocks before it are
    // of an older stream.
    std::atomic<std::uint64_t> mFirstBlockOfGeneration{0};
    // A stop asks the callback to fade out; it says when it has.
    std::atomic<bool> mFadeOutForStop{false};
    std::atomic<bool> mFadedOutForStop{false};
    // The handed mark as the stop's fading period began, packed as mHandedMark.
    std::atomic<std::uint64_t> mStopMark{0};
    std::atomic<bool> mStopMarkKnown{false};

    // Device callback only.
    std::uint32_t mBlockOffset = 0;
    bool mAwaitingFirstBlock = true;
    std::uint64_t mSeenGeneration = 0;
    double mPendingHeard = 0.0;
    bool mHasPendingHeard = false;

    std::uint32_t mPendingPeriod = 0;
    double mPendingStep = 1.0;
    // A seek's fades: the old sound's tail, mixed in at the start of the next periods, and how
    // far the new sound has faded in.
    std::uint64_t mPlayedGeneration = 0; // of the last block played
    bool mSoundAtPeriodEnd = false;      // the last period ended with sound from the ring
    float mLastLeft = 0.0f;              // the last frame handed to the device
    float mLastRight = 0.0f;
    float mFadeOutFrom = 1.0f; // the level the sound had reached when the seek came
    std::array<float, kSeekFadeFrames> mFadeOutLeft{};
    std::array<float, kSeekFadeFrames> mFadeOutRight{};
    std::uint32_t mFadeOutFrames = 0;
    std::uint32_t mFadeOutMixed = 0;
    std::uint32_t mFadedIn = kSeekFadeFrames;
    std::uint32_t mStopFaded = 0; // frames of the stop's fade-out done

    LatestValue<HeardPosition> mHeardReport;
    std::atomic<double> mHeardFrame{0.0};
    std::atomic<std::uint64_t> mHeardGeneration{0}; // of the frame in mHeardFrame; 0: none
    // The frames of sound handed to the device, and how many of the new stream's first frames
    // it had already been handed from the old one. Device callback only.
    std::uint32_t mHandedFrames = 0;
    std::uint32_t mSkipFrames = 0;
    // Since a seek: the old sound still plays; the seek goes on from a mark, and the mark's count.
    bool mOldStreamPlaying = false;
    bool mSeekGoesOn = false;
    std::uint32_t mSeekMark = 0;
    // The source frame handed next (high half, rounded) and mHandedFrames (low half), so the
    // two are read together.
    std::atomic<std::uint64_t> mHandedMark{0};
    std::atomic<std::uint64_t> mHandedGeneration{0}; // of mHandedMark; 0: none
    // The mark a seek goes on from, with kGoesOn set; 0 for a seek elsewhere.
    static constexpr std::uint64_t kGoesOn = std::uint64_t(1) << 32;
    std::atomic<std::uint64_t> mSeekGoesOnFrom{0};
    std::atomic<std::uint64_t> mUnderruns{0};
};

} // namespace tesk
