#pragma once

#include "audio/DecodedFrames.h"
#include "audio/dsp/AudioBufferList.h"

#include <QMetaType>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tesk {

/// A range of frames: where it starts and how long it is. Length 0 means no loop.
struct LoopRange {
    std::uint32_t location = 0;
    std::uint32_t length = 0;
    friend bool operator==(const LoopRange&, const LoopRange&) = default;
};

/// Where the frames of one copy came from: frames [outputOffset, next run's offset) of the
/// copy are source frames sourceFrame, sourceFrame + direction, ...
struct SourceRun {
    std::uint32_t outputOffset = 0;
    std::int64_t sourceFrame = 0;
    int direction = 1;
};

/// The source runs of one copy; a copy crosses few of them (a loop seam, a seek).
struct SourceRuns {
    static constexpr std::uint32_t kMaxRuns = 8;
    std::uint32_t count = 0;
    SourceRun runs[kMaxRuns];
};

/// Reads a song's decoded frames on its own thread (the reader thread), ahead of the rendering
/// thread, into a ring that the rendering thread copies from without waiting. Plays forwards or
/// backwards, wraps frame-exactly inside a loop range (crossfading a few milliseconds before the
/// seam so that it does not click), and seeks while running.
///
/// The controls (start, stop, position, direction, looping) are for the main thread; the
/// copy and the end-of-stream flag are for the one thread that renders (the rendering thread,
/// or the export thread during an export).
class TeskAudioFileReader {
public:
    static constexpr std::uint32_t kBlockFrames = 512;
    /// The seam crossfade of a loop: 3 ms.
    static constexpr std::uint32_t kLoopCrossfadeFrames = 132;

    /// A ring of `bufferCount` × `framesPerBuffer` frames (rounded up to whole blocks).
    TeskAudioFileReader(std::uint32_t bufferCount, std::uint32_t framesPerBuffer);
    ~TeskAudioFileReader();

    /// The frames to read. Main thread, while stopped.
    void setAudioFile(std::shared_ptr<const DecodedFrames> frames);

    /// Starts (or stops) reading ahead from the current position. Main thread.
    void start();
    void stop();
    bool running() const;

    /// The next frame the renderer will get: the position of the read head. Any thread.
    std::int64_t currentFrame() const;
    /// Moves the read head; while running, the ring is refilled from there and the renderer
    /// drops what it held. Main thread.
    void setCurrentFrame(std::int64_t frame);

    /// Direction, looping and the loop range take effect at the current position.
    /// Main thread.
    void setReverse(bool reverse);
    bool isReverse() const;
    void setLooping(bool looping);
    bool isLooping() const;
    void setLoopRange(LoopRange range);
    LoopRange loopRange() const;

    /// Copies up to `frameCount` frames into the first two buffers of `buffers` (from
    /// `offset` on), reports how many it wrote and, if asked, where they came from. Writes
    /// fewer when the ring runs dry or the stream ended.
    /// Rendering thread: never blocks, allocates or throws.
    void copyInto(const AudioBufferList& buffers, std::uint32_t frameCount,
                  std::uint32_t& framesWritten, SourceRuns* runs = nullptr,
                  std::uint32_t offset = 0) noexcept;

    /// After a seek or a start, before the first `copyInto`: copies into the first two
    /// buffers of `buffers` up to `frameCount` frames of the music that comes before the
    /// current position in the direction it plays (the last of them just before it), and
    /// returns how many. Those frames are never played; the time-pitch stage reads them ahead
    /// of the start. Returns 0 where nothing precedes the position or once copying began.
    /// Rendering thread: never blocks, allocates or throws.
    std::uint32_t copyPreroll(const AudioBufferList& buffers, std::uint32_t frameCount) noexcept;

    /// Whether the ring holds frames read from the current position on. Drops what was read
    /// before the last seek, making room for the reader thread.
    /// Rendering thread (the one that copies).
    bool hasFramesReady() noexcept;

    /// True once the renderer has been handed the last frame of the stream since the last
    /// seek (never while looping over a range). Any thread.
    bool endOfStream() const;

    /// How long the reader thread sleeps next with its ring full, after a sleep of `slept`
    /// that left `freeBlocks` of `blockCount` blocks free. Played, a quarter of the ring takes
    /// `longest` at the fastest rate: sleeping that long keeps the ring three quarters full and
    /// the thread quiet. Drawn on faster than that (an export; the blocks from before a seek,
    /// dropped at once) the sleep halves, down to a millisecond, and grows back when a sleep
    /// leaves less than a quarter free.
    static std::chrono::microseconds nextFullRingSleep(std::chrono::microseconds slept,
                                                       std::uint64_t freeBlocks,
                                                       std::uint64_t blockCount,
                                                       std::chrono::microseconds longest);
    static constexpr std::chrono::microseconds kShortestFullRingSleep{1000};

private:
    struct Block {
        std::uint64_t generation = 0;
        std::int64_t firstFrame = 0;
        int direction = 1;
        std::uint32_t frameCount = 0;
        bool endOfStream = false;
        bool preroll = false; // music before the position, for copyPreroll only
        std::vector<float> left;
        std::vector<float> right;
    };

    /// How the reader thread reads: from where, which way, and whether and where it loops.
    struct Plan {
        std::uint64_t generation = 0;
        std::int64_t position = 0;
        bool reverse = false;
        bool looping = false;
        LoopRange range;
        std::int64_t prerollFrames = 0; // of the music before the position, still to read
    };

    void run();
    /// Restarts reading at the renderer's position with the current settings.
    void replan(std::int64_t position);
    /// Fills one block following `plan`, which it advances; false when it must wait for frames
    /// that are not decoded yet.
    bool fillBlock(Plan& plan, Block& block);
    /// Fills `block` with the next stretch of music before the plan's position (already moved
    /// into the loop), farthest first; false when it must wait for the decoder.
    bool fillPrerollBlock(Plan& plan, Block& block, bool finished, std::int64_t decoded);
    /// Reads frames [start, start + count) forwards, mixing in the loop crossfade.
    void readForwards(const Plan& plan, std::int64_t start, std::uint32_t count, float* left,
                      float* right);
    void applySeamCrossfade(const Plan& plan, std::int64_t start, std::uint32_t count, float* left,
                            float* right);

    std::shared_ptr<const DecodedFrames> mFrames;
    std::vector<Block> mBlocks;
    // Ring of blocks: the reader thread writes at mWriteCount, the renderer reads at
    // mReadCount; both only grow.
    std::atomic<std::uint64_t> mWriteCount{0};
    std::atomic<std::uint64_t> mReadCount{0};
    std::uint32_t mReadOffset = 0; // renderer: frames already taken from the front block

    // The reader thread's plan, guarded by mPlanMutex (main thread and reader thread only).
    mutable std::mutex mPlanMutex;
    std::condition_variable mWake;
    std::chrono::microseconds mLongestFullRingSleep{1000}; // see the constructor
    Plan mPlan;
    bool mPlanChanged = false;
    bool mStopping = false;
    std::thread mThread;
    std::vector<float> mScratchLeft;
    std::vector<float> mScratchRight;

    // Shared with the renderer.
    std::atomic<std::uint64_t> mGeneration{0};
    // The position and the low bits of the seek generation it belongs to, in one word, so that
    // the renderer's store of where it got to can never land over a newer seek's position.
    static constexpr int kGenerationTagBits = 24;
    static std::uint64_t packPosition(std::int64_t frame, std::uint64_t generation);
    static std::int64_t unpackFrame(std::uint64_t packed);
    static std::uint64_t unpackGenerationTag(std::uint64_t packed);
    std::atomic<std::uint64_t> mPositionWord{0};
    // The seek generation whose last frame the renderer was handed: a copy that ends an old
    // stream just as a seek comes says nothing of the new one.
    std::atomic<std::uint64_t> mEndedGeneration{~std::uint64_t(0)};
    std::atomic<bool> mReverse{false};
    std::atomic<bool> mLooping{false};
    std::atomic<std::uint64_t> mLoopRange{0}; // location << 32 | length
    std::uint64_t mRendererGeneration = 0;
};

} // namespace tesk

// Observable as a property (a document's loop range).
Q_DECLARE_METATYPE(tesk::LoopRange)
