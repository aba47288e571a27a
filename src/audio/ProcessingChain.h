#pragma once

#include "audio/EngineConstants.h"
#include "audio/SSpectrumAnalyzer.h"
#include "audio/TeskAudioFileReader.h"
#include "audio/TimePitchStage.h"
#include "audio/dsp/AudioBufferList.h"
#include "audio/dsp/BufferQueue.h"
#include "audio/dsp/GraphicEqualizer.h"
#include "audio/dsp/LatestValue.h"
#include "audio/dsp/PeakLimiter.h"
#include "audio/dsp/SVocalRemover.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace tesk {

/// Supplies a song's frames to the chain (the file player).
class ChainSource {
public:
    virtual ~ChainSource() = default;
    /// Fills `frameCount` frames of the two buffers of `buffers`, which arrive zeroed, and says
    /// where they came from in `runs`. What it leaves alone stays silent.
    /// Rendering thread (or the export thread): never allocates or throws. It may wait, bounded,
    /// for frames on their way: a file player waits at most 40 ms for its reader on the
    /// rendering thread, which runs about 90 ms ahead of the device, and up to 30 s on the
    /// export thread; the export's own source waits for the decoder. The device callback never
    /// calls it.
    /// Returns how many frames it supplied: fewer only at the end of what it has to give.
    virtual std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                                       SourceRuns& runs) noexcept = 0;
    /// During an export, once `supplyFrames` has given all it has: fills up to `frameCount`
    /// frames of the zeroed `buffers` with what follows in the song (onwards in the direction it
    /// plays), without moving on what it supplies, and returns how many; 0 where nothing follows.
    /// The chain only reads them around the end, never plays them. The export thread; may wait for
    /// frames on their way as `supplyFrames` does.
    virtual std::uint32_t supplyFramesPastEnd(const AudioBufferList& /*buffers*/,
                                              std::uint32_t /*frameCount*/) noexcept {
        return 0;
    }
    /// Once after the chain's reset, before `supplyFrames`: fills up to `frameCount` frames of
    /// the zeroed `buffers` with what comes before the first frame `supplyFrames` will give, in
    /// the order it plays (the last of them just before it), without moving on what it
    /// supplies; returns how many, 0 where nothing precedes it or nothing is ready. The chain
    /// only reads them ahead of the start, never plays them. The rendering thread (or the
    /// export thread); may wait for frames on their way as `supplyFrames` does.
    virtual std::uint32_t supplyFramesBeforeStart(const AudioBufferList& /*buffers*/,
                                                  std::uint32_t /*frameCount*/) noexcept {
        return 0;
    }
    /// Whether frames are waiting, so that rendering after a seek need not begin with silence.
    /// The source may wait a little for frames that are on their way (the rendering thread runs
    /// ahead of the device), but not past the end of what it has to give.
    /// Rendering thread.
    virtual bool hasFramesReady() noexcept { return true; }
};

/// Where a rendered slice came from: the source frame of its first frame and how far the
/// source moves per output frame (the rate, negative when playing backwards). Unknown until
/// the source has supplied a frame since the chain started over: a reader still waiting for
/// decoding to reach a seek has no frame to name.
struct SlicePosition {
    double sourceFrame = 0.0;
    double sourceStep = 1.0;
    bool known = false;
};

/// Tesk's processing chain: source, equalizer, time-pitch, vocal reduction, spectrum feed,
/// pan / out-of-phase mix, level, and a limiter that keeps what would pass full scale within
/// it. The same chain serves playback (pulled a little ahead of the sound device) and export
/// (pulled as fast as it goes).
///
/// Parameters may be set from the main thread at any time and apply from the next slice;
/// everything else belongs to the one thread that renders.
class ProcessingChain : private TimePitchStage::Source {
public:
    static constexpr std::uint32_t kMaxSliceFrames = 1024;
    static constexpr std::uint32_t kBandCount = GraphicEqualizer::kBandCount;

    ProcessingChain(double sampleRate, TimePitchQuality quality);
    ~ProcessingChain() override;

    /// Main thread, while nothing renders.
    void setSource(ChainSource* source) { mSource = source; }

    TimePitchQuality timePitchQuality() const { return mTimePitch.quality(); }
    /// Output frames still to be rendered before the last frame pulled from the source comes
    /// out: the stretcher's latency, the frames held for the vocal reduction (from when it is
    /// first switched on until the next reset) and the limiter's look-ahead.
    /// Any thread.
    double latencyFrames() const noexcept {
        return mTimePitch.latencyFrames() + mVocalDelayFrames.load(std::memory_order_relaxed) +
               PeakLimiter::kLookAheadFrames;
    }

    /// Takes every parameter (rate, pitch, level, effects) from `other`, so that two chains
    /// render alike: an export renders its two halves on two chains at once.
    /// While nothing renders this chain.
    void copyParametersFrom(const ProcessingChain& other);

    /// The loudest level and the equalizer's deepest cut and highest boost the chain plays. The
    /// controls stay well inside them; a damaged document or script may not, and must never
    /// make the chain deafening or fill it with NaN.
    static constexpr float kMaximumLevel = engine::kMaximumLinearLevel;
    static constexpr float kMinimumBandGain = engine::kMinimumBandGainDb;
    static constexpr float kMaximumBandGain = engine::kMaximumBandGainDb;

    // Parameters. Main thread (each handoff has one writer); read at the next slice. Values
    // out of range are held at the nearest bound; NaN is ignored.
    void setRate(float rate) noexcept;
    float rate() const noexcept { return mRate.load(std::memory_order_relaxed); }
    void setPitchCents(float cents) noexcept;
    float pitchCents() const noexcept { return mPitchCents.load(std::memory_order_relaxed); }
    void setLevel(float level) noexcept;
    float level() const noexcept { return mLevel.load(std::memory_order_relaxed); }
    void setEqualizerEnabled(bool enabled) noexcept { mEqualizerEnabled.store(enabled); }
    bool equalizerEnabled() const noexcept { return mEqualizerEnabled.load(); }
    /// Band gains in dB, band 0 the lowest.
    void setEqualizerGains(const std::array<float, kBandCount>& gainsDb) noexcept;
    std::array<float, kBandCount> equalizerGains() const noexcept;
    void setRemoveVocals(bool enabled) noexcept { mRemoveVocals.store(enabled); }
    bool removeVocals() const noexcept { return mRemoveVocals.load(); }
    void setVocalBand(double lowHertz, double highHertz) noexcept;
    void setPanAdjust(bool enabled) noexcept { mPanAdjust.store(enabled); }
    bool panAdjust() const noexcept { return mPanAdjust.load(); }
    /// 0 to 1.
    void setPanAmount(double amount) noexcept;
    double panAmount() const noexcept { return mPanAmount.load(); }
    void setOutOfPhase(bool outOfPhase) noexcept { mOutOfPhase.store(outOfPhase); }
    bool outOfPhase() const noexcept { return mOutOfPhase.load(); }

    /// Forgets the audio inside the chain (equalizer, stretcher, vocal remover), so the next
    /// slice starts afresh from the source's next frames, with the newest equalizer settings
    /// in place rather than gliding to them.
    /// Rendering thread, or any thread while nothing renders.
    void reset();

    /// Renders `frameCount` (at most kMaxSliceFrames) processed frames and says where the first
    /// of them came from.
    /// Rendering thread. Allocates nothing (a pitch change may inside the stretcher library).
    void render(float* left, float* right, std::uint32_t frameCount,
                SlicePosition* position = nullptr);

    /// Prepares an export: forgets all audio inside the chain, so that its output starts with
    /// the source's next frame. Rendering thread (the export thread).
    void beginExport();

    /// Renders the next processed frames of an export (at most `frameCount`, at most
    /// kMaxSliceFrames) and returns how many; 0 once everything is out. Unlike playback it
    /// keeps the output in line with the source: the vocal reduction's block delay is taken
    /// out and its tail drained, and the stretcher's tail is drained once the source runs
    /// short, so output frame F / rate plays source frame F.
    /// Rendering thread (the export thread). Allocates nothing.
    std::uint32_t renderForExport(float* left, float* right, std::uint32_t frameCount);

    /// Whether the source has frames waiting. Rendering thread.
    bool sourceReady() noexcept { return mSource == nullptr || mSource->hasFramesReady(); }

    /// The spectrum of what plays, after vocal reduction and before the pan mix.
    /// Its spectra are read on the main thread.
    SSpectrumAnalyzer& spectrumAnalyzer() { return mSpectrumAnalyzer; }

private:
    std::uint32_t pull(float* const* input, std::uint32_t frameCount) override;
    std::uint32_t pullPastEnd(float* const* input, std::uint32_t frameCount) override;
    std::uint32_t pullBeforeStart(float* const* input, std::uint32_t frameCount) override;
    /// Frames the stretcher reads but nobody hears, from the source through the equalizer.
    using UnheardSupply = std::uint32_t (ChainSource::*)(const AudioBufferList&,
                                                         std::uint32_t) noexcept;
    std::uint32_t pullUnheard(float* const* input, std::uint32_t frameCount, UnheardSupply supply);
    void applyParameters();
    /// One slice of what the limiter is given: everything before it. Rendering thread.
    void renderSlice(float* left, float* right, std::uint32_t frameCount);
    /// As renderForExport, without the limiter. The export thread.
    std::uint32_t renderExportSlice(float* left, float* right, std::uint32_t frameCount);
    /// The stages after the vocal reduction: spectrum, pan mix, level.
    void processAfterVocalReduction(float* left, float* right, std::uint32_t frameCount);
    /// The source frame that the chain's input frame `inputFrame` came from, and which way the
    /// source went from there.
    struct TracedFrame {
        double sourceFrame;
        int direction;
    };
    TracedFrame traceInputFrame(double inputFrame) const;

    ChainSource* mSource = nullptr;
    const double mSampleRate;
    GraphicEqualizer mEqualizer;
    TimePitchStage mTimePitch;
    SVocalRemover mVocalRemover;
    SSpectrumAnalyzer mSpectrumAnalyzer;
    PeakLimiter mLimiter;
    /// Whether the limiter's look-ahead holds the first frames since the last reset.
    bool mLimiterPrimed = false;
    /// Frames of an export that the look-ahead still holds, for its end.
    std::uint32_t mExportLookAheadFrames = 0;
    std::array<float, PeakLimiter::kLookAheadFrames> mPrimeLeft{};
    std::array<float, PeakLimiter::kLookAheadFrames> mPrimeRight{};

    std::atomic<float> mRate{1.0f};
    std::atomic<float> mPitchCents{0.0f};
    std::atomic<float> mLevel{1.0f};
    std::atomic<bool> mEqualizerEnabled{false};
    LatestValue<std::array<float, kBandCount>> mEqualizerGains;
    /// The values last set, for reading back and for copying to another chain. The export
    /// thread copies them while the main thread may set them, so they are read and written
    /// under `mValuesSetMutex`, which the rendering thread never takes.
    mutable std::mutex mValuesSetMutex;
    std::array<float, kBandCount> mEqualizerGainsSet{};
    std::atomic<bool> mRemoveVocals{false};
    /// The vocal band's edges cross to the rendering thread together, so that it never
    /// pairs a new low edge with an old high one.
    struct VocalBand {
        double lowHertz = 150.0;
        double highHertz = 3600.0;
    };
    /// Rendering (or export) thread: the newest band, given to the vocal remover.
    void applyVocalBand() noexcept;
    LatestValue<VocalBand> mVocalBand;
    VocalBand mVocalBandSet;     // under `mValuesSetMutex`
    VocalBand mVocalBandApplied; // rendering thread's copy
    std::atomic<bool> mPanAdjust{false};
    std::atomic<double> mPanAmount{0.5};
    std::atomic<bool> mOutOfPhase{false};

    /// How many frames `mDelayedLeft` holds after the last slice. Written on the rendering
    /// thread.
    std::atomic<std::uint32_t> mVocalDelayFrames{0};

    // Rendering thread only.
    float mAppliedLevel = 1.0f;
    /// The pan mix as the last slice applied it: a change glides across the next slice.
    struct PanSettings {
        bool enabled = false;
        double amount = 0.5;
        bool outOfPhase = false;
        bool operator==(const PanSettings&) const = default;
    };
    PanSettings panSettings() const noexcept;
    void applyPan(float* left, float* right, std::uint32_t frameCount);
    PanSettings mAppliedPan;
    /// Renders a slice from the oldest delayed frames: through the vocal remover while it is
    /// on, plain while it is off, faded from one to the other in the slice it is switched.
    void renderDelayed(float* left, float* right, std::uint32_t frameCount, bool removeVocals);
    /// Stretches `frameCount` more frames onto the delay, and into the vocal remover too when
    /// `feedRemover`.
    void stretchIntoDelay(std::uint32_t frameCount, bool feedRemover);
    /// Gives the remover the first `frameCount` frames of `mStretchedLeft` and `mStretchedRight`.
    void feedVocalRemover(std::uint32_t frameCount);
    std::vector<float> mPanLeft; // a slice as the old mix leaves it
    std::vector<float> mPanRight;
    /// Whether the last slice went through the vocal remover: a switch fades between the two.
    bool mRemovingVocals = false;
    /// Stretched frames not yet played. The remover gives a frame back only once a block and a
    /// half has come in after it, so when it is switched on the stretcher runs that far ahead at
    /// once and the sound goes on without a pause; the remover is fed the same frames, so its
    /// output lines up with the oldest held. Switched off, the plain sound goes on from the
    /// held frames, so nothing is skipped; the delay then stays until the next reset.
    BufferQueue<float> mDelayedLeft;
    BufferQueue<float> mDelayedRight;
    /// For each delayed frame, the rate it was stretched at, and their sum: how many source
    /// frames the delay holds, which the play position counts back across a speed change.
    BufferQueue<float> mDelayedRates;
    double mDelayedSourceFrames = 0.0;
    double mSliceSourceFrames = 0.0; // the source frames the last slice played
    std::vector<float> mDryLeft;     // a slice of the delayed frames, plain
    std::vector<float> mDryRight;
    std::vector<float> mStretchedLeft; // a slice straight from the stretcher
    std::vector<float> mStretchedRight;
    std::vector<float> mRates;            // a slice's rates, on their way into or out of the delay
    std::uint32_t mExportFlushFrames = 0; // silence fed to the vocal remover after the end
    bool mExportStretchEnded = false;
    std::uint64_t mInputFrames = 0;   // frames fed to the stretcher since the last reset
    std::uint64_t mStarvedFrames = 0; // silence fed in place of the source since it last supplied
    /// Where runs of the chain's input came from, newest last, so a heard frame can be traced
    /// back to the song even across loop seams and seeks.
    struct InputRun {
        std::uint64_t inputFrame;
        std::int64_t sourceFrame;
        int direction;
    };
    static constexpr std::size_t kInputRunCount = 256;
    std::array<InputRun, kInputRunCount> mInputRuns{};
    std::uint64_t mInputRunsWritten = 0;
};

} // namespace tesk
