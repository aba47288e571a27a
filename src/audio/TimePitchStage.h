#pragma once

#include "audio/EngineConstants.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace RubberBand {
class RubberBandStretcher;
}

namespace tesk {

/// How the stage trades sound against processor time; fixed at construction.
enum class TimePitchQuality {
    /// The default: Rubber Band's finer engine (R3) with its full multi-resolution analysis,
    /// the most natural sound for voices, sustained notes and full mixes.
    Standard,
    /// Rubber Band's faster engine (R2): about two thirds of the processor time and half the
    /// latency, with crisper drums but a phasier sound on sustained notes; for slow machines.
    Light,
};

/// Plays stereo audio faster or slower without changing its pitch, and shifts its pitch without
/// changing its speed, over the Rubber Band library in real-time mode.
///
/// The stage is pulled: each render produces exactly the frames asked for and pulls from its
/// source as much input as the stretcher needs for them. The start is compensated, so after a
/// reset the first output frame is the first input frame and input frame F comes out at output
/// frame F / rate: within a millisecond for Standard on steady sound. The library itself places
/// sharp attacks a few milliseconds early when slowing down (it keeps them short rather than
/// stretch them), and Light's placement drifts away from rate 1, by 9 ms at half speed and 17 ms
/// at a quarter (13 ms after an octave down taken while playing). A change of speed while
/// playing adds nothing to that: within 3 ms for Standard.
///
/// The stretcher works on mid (L + R) / 2 and side (L − R) / 2 rather than on left and right:
/// the vocal reduction after it cancels centred sound by subtracting the channels, which only
/// works if the stretcher leaves the centre exactly centred. Identical channels come out
/// identical bit for bit (the side channel is silence and stays silence), and a side-only signal
/// comes out side-only. A part panned to one side stays there, through drum hits too: with
/// Standard 40 dB down or more on the other side, from a quarter to twice the speed and an
/// octave up or down. The price of the exact centre: a part alone on one side, over near
/// silence on the other, is mid and side almost alike, and the stretcher lets them drift apart
/// for moments; a melody there leaks to the other side by 15 to 24 dB down at its worst with
/// Standard (at 0.75x to 1.25x or 3 semitones down), 6 to 11 dB with Light, which keeps mid
/// and side apart. Left and right fed as they are stay apart, but a centred voice then no
/// longer cancels exactly once anything else is off the centre.
///
/// Everything is allocated at construction, which also drives the stretcher through extreme
/// rates and pitches so the library sizes its lazily grown buffers there and then. After that,
/// Standard renders without allocating at any rate and whole-cent pitch. Light still reallocates a
/// few kilobytes inside the library when a rate or pitch change moves its FFT size across a
/// threshold (its transient detector is rebuilt for the new size); see `render`.
class TimePitchStage {
public:
    static constexpr std::uint32_t kChannelCount = 2;
    static constexpr double kMinimumRate = engine::kMinimumPlaybackRate;
    static constexpr double kMaximumRate = engine::kMaximumPlaybackRate;
    static constexpr double kMinimumPitchCents = -2400.0;
    static constexpr double kMaximumPitchCents = 2400.0;
    /// The most frames passed to the stretcher in one call, and so the most pulled at once.
    static constexpr std::uint32_t kMaxProcessSize = 4096;

    /// Where the input comes from (in the output chain: the equalized song frames).
    class Source {
    public:
        virtual ~Source() = default;
        /// Fills up to `frameCount` frames of the two non-interleaved channels `input` and
        /// returns how many it filled. Fewer means there is no more: `render` feeds silence in
        /// their place, faded in from the last frame and out into the next (a starved source,
        /// whose later frames follow that silence), `renderToEnd` ends the output there.
        /// Called on the rendering thread, from inside `render` or `renderToEnd`.
        virtual std::uint32_t pull(float* const* input, std::uint32_t frameCount) = 0;
        /// After a short pull in `renderToEnd`: fills up to `frameCount` frames with what follows
        /// the end of the input in the song, and returns how many (0 where nothing follows). The
        /// stretcher reads them around the last frames, so the end keeps its level; none of them
        /// is heard. The rest is silence.
        /// Called on the rendering thread, from inside `renderToEnd`.
        virtual std::uint32_t pullPastEnd(float* const* /*input*/, std::uint32_t /*frameCount*/) {
            return 0;
        }
        /// Before the first pull after a reset: fills up to `frameCount` frames with what comes
        /// before the first frame in the song, in the order it plays (the last of them just
        /// before it), and returns how many (0 where nothing precedes it or nothing is ready).
        /// The stretcher's first windows reach back over them, so a start in the middle of the
        /// music begins at its level instead of rising from silence; none of them is heard.
        /// Called on the rendering thread, from inside the first render after a reset.
        virtual std::uint32_t pullBeforeStart(float* const* /*input*/,
                                              std::uint32_t /*frameCount*/) {
            return 0;
        }
    };

    /// A stage for two channels at `sampleRate`, at rate 1 and no pitch shift, reset. Takes a
    /// few tens of milliseconds (the warm-up).
    /// Any thread; allocates.
    TimePitchStage(double sampleRate, TimePitchQuality quality);
    ~TimePitchStage();

    TimePitchStage(const TimePitchStage&) = delete;
    TimePitchStage& operator=(const TimePitchStage&) = delete;

    /// The speed factor (2 is twice as fast), clamped to 0.05 to 4, and the pitch shift in
    /// cents, clamped to ±2400 and applied in whole cents; values that are not finite are
    /// ignored. They take effect at the start of the next render.
    /// Any thread. Lock-free.
    void setRate(double rate) noexcept;
    void setPitchCents(double cents) noexcept;
    double rate() const noexcept { return mRate.load(std::memory_order_relaxed); }
    double pitchCents() const noexcept { return mPitchCents.load(std::memory_order_relaxed); }
    /// The speed factor the last render played at, which a later `setRate` does not change.
    /// Rendering thread.
    double appliedRate() const noexcept { return mAppliedRate; }

    /// Any thread.
    TimePitchQuality quality() const noexcept { return mQuality; }

    /// Forgets all audio inside the stretcher, so the next render starts afresh from whatever
    /// the source delivers next (led in by what it has before that), with the start compensated
    /// again.
    /// Rendering thread. Does not allocate.
    void reset();

    /// Writes exactly `frameCount` frames into the two non-interleaved channels `output`,
    /// pulling the source as often as the stretcher needs. A source that delivers fewer frames
    /// than asked is padded with silence.
    ///
    /// Rendering thread (or the export thread). Never locks, waits or logs. Allocates
    /// nothing with Standard; with Light, only inside the library when a new rate or pitch changes
    /// its FFT size.
    void render(float* const* output, std::uint32_t frameCount, Source& source);

    /// As `render`, for an export of a finite range: the first short pull marks the end of the
    /// input, after which the stretcher's remaining output (its tail) is drained, fed with the
    /// frames the source has past the end. Returns the
    /// number of frames written, which is `frameCount` until the output is complete; the rest of
    /// a final short block is silence and later calls return 0. The output then holds as many
    /// frames as the input divided by the rate (summed over rate changes). Call `reset` before
    /// rendering anything else.
    /// Rendering thread (the export thread).
    std::uint32_t renderToEnd(float* const* output, std::uint32_t frameCount, Source& source);

    /// How many output frames will be rendered before the last frame pulled from the source is
    /// heard: the source's position runs ahead of the output by this many frames times the rate.
    /// Updated at the end of every render.
    /// Any thread. Lock-free.
    double latencyFrames() const noexcept { return mLatencyFrames.load(std::memory_order_relaxed); }

private:
    std::uint32_t renderFrames(float* const* output, std::uint32_t frameCount, Source& source,
                               bool toEnd);
    void warmUp();
    double measureResamplerDelay(double sampleRate);
    void applyParameters();
    /// The output frames between an input frame going in and coming out, beyond the time
    /// stretch itself, at the ratios given to the stretcher.
    double outputDelay() const;
    /// The time ratio given to the stretcher for `rate`, which keeps the finer engine off its
    /// path for no change at all.
    static double stretcherTimeRatio(double rate, double pitchCents, TimePitchQuality quality);
    /// Feeds the stretcher its start pad: the music before the first frame, where the source
    /// has it, after silence.
    void start(Source& source);
    void feed(Source& source, std::uint32_t frameCount, bool toEnd);
    /// While playing, a source that runs dry and comes back would cut the sound to silence and
    /// back, and the stretcher, which keeps the waveform, would play both cuts as clicks: the
    /// silence fed in its place starts with the last frame pulled, faded out, and the frames
    /// that come back fade in. `frames` of `pulled` (before it) and the silence after it, in
    /// left and right; returns how many frames after `pulled` it filled.
    std::uint32_t smoothStarvation(float* left, float* right, std::uint32_t pulled,
                                   std::uint32_t frames);
    std::uint32_t retrieve(float* const* output, std::uint32_t frameCount);

    TimePitchQuality mQuality;
    std::unique_ptr<RubberBand::RubberBandStretcher> mStretcher;
    std::atomic<double> mRate{1.0};
    std::atomic<double> mPitchCents{0.0};
    std::atomic<double> mLatencyFrames{0.0};

    // Rendering thread only.
    double mAppliedRate = 1.0;
    double mAppliedPitchCents = 0.0;
    bool mStarted = false;              // the start pad went in since the last reset
    bool mSourceEnded = false;          // the source ran short (export)
    std::size_t mTailFramesLeft = 0;    // frames still to follow it into the stretcher
    bool mInputEnded = false;           // the final input went in (export)
    double mResamplerDelay = 0.0;       // measured at construction, see measureResamplerDelay
    std::uint64_t mFramesToDrop = 0;    // the stretcher's start delay, still to discard
    double mExpectedOutputFrames = 0.0; // the input pulled so far, divided by its rate
    double mStarvedOutputFrames = 0.0;  // the same for silence fed since the last input
    double mStarvedInputFrames = 0.0;   // that silence in input frames
    double mInputFrames = 0.0;          // the input pulled since the last reset
    std::uint64_t mOutputFrames = 0;    // delivered since the last reset
    std::size_t mLastRequest = 0;       // the input the stretcher last asked for: its step
    /// The most output the finer engine runs in over before a start (see start).
    static constexpr double kRunInOutputFrames = 2048.0;
    /// A starved source's fades (see smoothStarvation): 1.5 ms, as the device's.
    static constexpr std::uint32_t kStarvedFadeFrames = 64;
    float mLastPulledLeft = 0.0f; // the last frame pulled
    float mLastPulledRight = 0.0f;
    std::uint32_t mStarvedFaded = kStarvedFadeFrames; // frames of the fade-out fed since
    std::vector<float> mInputBuffer;  // kChannelCount × kMaxProcessSize, pulled into
    std::vector<float> mOutputBuffer; // kChannelCount × kMaxProcessSize, retrieved into
};

} // namespace tesk
