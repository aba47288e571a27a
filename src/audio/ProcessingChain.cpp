#include "audio/ProcessingChain.h"

#include "audio/dsp/PanMix.h"
#include "audio/dsp/VectorUnit.h"

#include <algorithm>
#include <cmath>

namespace tesk {
namespace {

// The remover holds a block and a half (3,072 frames) at the most, and a slice comes on top.
constexpr std::uint64_t kDelayCapacity = 8192;
// What the stretcher renders at a time while it runs ahead for the vocal remover.
constexpr std::uint32_t kRunAheadFrames = 256;

} // namespace

ProcessingChain::ProcessingChain(double sampleRate, TimePitchQuality quality)
    : mSampleRate(sampleRate)
    , mEqualizer(sampleRate)
    , mTimePitch(sampleRate, quality)
    , mVocalRemover(2, 4096)
    , mSpectrumAnalyzer(AudioStreamDescription{sampleRate, 2, false})
    , mLimiter(sampleRate)
    , mPanLeft(kMaxSliceFrames)
    , mPanRight(kMaxSliceFrames)
    , mDelayedLeft(kDelayCapacity)
    , mDelayedRight(kDelayCapacity)
    , mDelayedRates(kDelayCapacity)
    , mDryLeft(kMaxSliceFrames)
    , mDryRight(kMaxSliceFrames)
    , mStretchedLeft(kMaxSliceFrames)
    , mStretchedRight(kMaxSliceFrames)
    , mRates(kMaxSliceFrames) {
    mEqualizer.setBypassed(true);
}

ProcessingChain::~ProcessingChain() = default;

// The rate kept here is the one the stage plays at: an export's length is reckoned from it.
void ProcessingChain::setRate(float rate) noexcept {
    if (!std::isfinite(rate))
        return;
    rate =
        std::clamp(rate, float(TimePitchStage::kMinimumRate), float(TimePitchStage::kMaximumRate));
    mRate.store(rate, std::memory_order_relaxed);
    mTimePitch.setRate(rate);
}

void ProcessingChain::setPitchCents(float cents) noexcept {
    if (!std::isfinite(cents))
        return;
    cents = std::clamp(cents, float(TimePitchStage::kMinimumPitchCents),
                       float(TimePitchStage::kMaximumPitchCents));
    mPitchCents.store(cents, std::memory_order_relaxed);
    mTimePitch.setPitchCents(cents);
}

void ProcessingChain::setLevel(float level) noexcept {
    if (!std::isnan(level))
        mLevel.store(std::clamp(level, 0.0f, kMaximumLevel), std::memory_order_relaxed);
}

void ProcessingChain::setPanAmount(double amount) noexcept {
    if (!std::isnan(amount))
        mPanAmount.store(std::clamp(amount, 0.0, 1.0));
}

void ProcessingChain::setEqualizerGains(const std::array<float, kBandCount>& gainsDb) noexcept {
    std::array<float, kBandCount> gains = gainsDb;
    for (float& gain : gains)
        gain = std::isnan(gain) ? 0.0f : std::clamp(gain, kMinimumBandGain, kMaximumBandGain);
    const std::lock_guard lock(mValuesSetMutex);
    mEqualizerGainsSet = gains;
    mEqualizerGains.write(gains);
}

std::array<float, ProcessingChain::kBandCount> ProcessingChain::equalizerGains() const noexcept {
    const std::lock_guard lock(mValuesSetMutex);
    return mEqualizerGainsSet;
}

void ProcessingChain::copyParametersFrom(const ProcessingChain& other) {
    setRate(other.rate());
    setPitchCents(other.pitchCents());
    setLevel(other.level());
    setEqualizerEnabled(other.equalizerEnabled());
    setEqualizerGains(other.equalizerGains());
    setRemoveVocals(other.removeVocals());
    const VocalBand band = [&] {
        const std::lock_guard lock(other.mValuesSetMutex);
        return other.mVocalBandSet;
    }();
    setVocalBand(band.lowHertz, band.highHertz);
    setPanAdjust(other.panAdjust());
    setPanAmount(other.panAmount());
    setOutOfPhase(other.outOfPhase());
}

void ProcessingChain::setVocalBand(double lowHertz, double highHertz) noexcept {
    if (std::isnan(lowHertz) || std::isnan(highHertz))
        return;
    const double nyquist = mSampleRate / 2.0;
    const std::lock_guard lock(mValuesSetMutex);
    mVocalBandSet = {std::clamp(lowHertz, 0.0, nyquist), std::clamp(highHertz, 0.0, nyquist)};
    mVocalBand.write(mVocalBandSet);
}

void ProcessingChain::applyVocalBand() noexcept {
    if (const VocalBand* band = mVocalBand.read())
        mVocalBandApplied = *band;
    mVocalRemover.setLowFrequency(mVocalBandApplied.lowHertz);
    mVocalRemover.setHighFrequency(mVocalBandApplied.highHertz);
}

void ProcessingChain::reset() {
    // Settings made while nothing rendered hold from the first frame: the equalizer's glides
    // and fades are for changes heard while it plays.
    applyParameters();
    mEqualizer.reset();
    mTimePitch.reset();
    // The vocal remover starts empty, so that nothing of the place played before is heard after
    // a seek or a start, and at full level, as the plain sound does: the device fades a new
    // stream in.
    mVocalRemover.clear();
    mVocalRemover.startAtFullLevel();
    mLimiter.reset();
    mLimiterPrimed = false;
    mDelayedLeft.advance(mDelayedLeft.used());
    mDelayedRight.advance(mDelayedRight.used());
    mDelayedRates.advance(mDelayedRates.used());
    mDelayedSourceFrames = 0.0;
    mRemovingVocals = mRemoveVocals.load(std::memory_order_relaxed);
    mVocalDelayFrames.store(0, std::memory_order_relaxed);
    mInputFrames = 0;
    mStarvedFrames = 0;
    mInputRunsWritten = 0;
    mAppliedLevel = mLevel.load(std::memory_order_relaxed);
    mAppliedPan = panSettings();
}

void ProcessingChain::applyParameters() {
    if (const auto* gains = mEqualizerGains.read())
        mEqualizer.setBandGains(*gains);
    mEqualizer.setBypassed(!mEqualizerEnabled.load(std::memory_order_relaxed));
}

void ProcessingChain::render(float* left, float* right, std::uint32_t frameCount,
                             SlicePosition* position) {
    frameCount = std::min(frameCount, kMaxSliceFrames);
    clearVectorUpperState(); // see renderForExport
    if (!mLimiterPrimed) {
        // The limiter's look-ahead fills with the first frames, so that they play at once
        // rather than after its silence.
        renderSlice(mPrimeLeft.data(), mPrimeRight.data(), PeakLimiter::kLookAheadFrames);
        mLimiter.process(mPrimeLeft.data(), mPrimeRight.data(), PeakLimiter::kLookAheadFrames);
        mLimiterPrimed = true;
    }
    renderSlice(left, right, frameCount);
    mLimiter.process(left, right, frameCount);

    if (position) {
        // The stretcher holds back its latency's worth of input at the rate it plays, the delay
        // the source frames it holds, each stretched at its own rate, and the limiter its
        // look-ahead: the frame after this slice plays input frame (pulled − all three). Once
        // only silence is left in the stretcher its latency dips below zero; no slice plays
        // input that was never fed.
        const double rate = mTimePitch.appliedRate();
        const double next = double(mInputFrames) -
                            std::max(0.0, mTimePitch.latencyFrames() * rate + mDelayedSourceFrames +
                                              PeakLimiter::kLookAheadFrames * rate);
        const double first = std::max(0.0, next - mSliceSourceFrames);
        const TracedFrame traced = traceInputFrame(first);
        position->known = mInputRunsWritten > 0;
        position->sourceFrame = traced.sourceFrame;
        position->sourceStep = traced.direction * rate;
    }
}

void ProcessingChain::renderSlice(float* left, float* right, std::uint32_t frameCount) {
    applyParameters();
    const bool removeVocals = mRemoveVocals.load(std::memory_order_relaxed);
    if (removeVocals || mRemovingVocals || mDelayedLeft.used() > 0) {
        renderDelayed(left, right, frameCount, removeVocals);
    } else {
        float* output[2] = {left, right};
        mTimePitch.render(output, frameCount, *this);
        mSliceSourceFrames = frameCount * mTimePitch.appliedRate();
    }
    mVocalDelayFrames.store(std::uint32_t(mDelayedLeft.used()), std::memory_order_relaxed);
    processAfterVocalReduction(left, right, frameCount);
}

void ProcessingChain::beginExport() {
    reset();
    mExportFlushFrames = 0;
    mExportStretchEnded = false;
}

std::uint32_t ProcessingChain::renderForExport(float* left, float* right,
                                               std::uint32_t frameCount) {
    frameCount = std::min(frameCount, kMaxSliceFrames);
    constexpr std::uint32_t kLookAhead = PeakLimiter::kLookAheadFrames;
    if (!mLimiterPrimed) {
        // As in playback, the look-ahead fills with the first frames (silence past the end of
        // an export shorter than it), so the export starts on its first frame.
        std::uint32_t primed = 0;
        while (primed < kLookAhead) {
            const std::uint32_t rendered = renderExportSlice(
                mPrimeLeft.data() + primed, mPrimeRight.data() + primed, kLookAhead - primed);
            if (rendered == 0)
                break;
            primed += rendered;
        }
        std::fill(mPrimeLeft.begin() + primed, mPrimeLeft.end(), 0.0f);
        std::fill(mPrimeRight.begin() + primed, mPrimeRight.end(), 0.0f);
        mLimiter.process(mPrimeLeft.data(), mPrimeRight.data(), kLookAhead);
        mLimiterPrimed = true;
        mExportLookAheadFrames = primed;
    }
    const std::uint32_t rendered = renderExportSlice(left, right, frameCount);
    if (rendered > 0) {
        mLimiter.process(left, right, rendered);
        return rendered;
    }
    // All is rendered: what the look-ahead still holds comes out last.
    const std::uint32_t held = std::min(frameCount, mExportLookAheadFrames);
    std::fill_n(left, held, 0.0f);
    std::fill_n(right, held, 0.0f);
    mLimiter.process(left, right, held);
    mExportLookAheadFrames -= held;
    return held;
}

std::uint32_t ProcessingChain::renderExportSlice(float* left, float* right,
                                                 std::uint32_t frameCount) {
    // What ran on this thread since the last slice (the file writer's copies, a progress
    // report) can leave the vector unit's upper halves in use, and the stretcher's 128-bit code
    // then pays a state transition on every instruction: a quarter more time for a long export.
    clearVectorUpperState();
    applyParameters();
    if (!mRemoveVocals.load(std::memory_order_relaxed)) {
        float* output[2] = {left, right};
        const std::uint32_t written = mTimePitch.renderToEnd(output, frameCount, *this);
        processAfterVocalReduction(left, right, written);
        return written;
    }

    // The vocal remover gives its first processed frames only after a block and a half: take
    // only what it has processed, so the export neither repeats nor skips anything, and feed it
    // silence after the end until its last block is out.
    applyVocalBand();
    constexpr std::uint32_t kTailFrames = 3072;
    for (;;) {
        const std::uint32_t taken = mVocalRemover.getOutput(0, left, frameCount);
        mVocalRemover.getOutput(1, right, taken);
        if (taken > 0) {
            processAfterVocalReduction(left, right, taken);
            return taken;
        }
        std::uint32_t produced = 0;
        if (!mExportStretchEnded) {
            float* output[2] = {mStretchedLeft.data(), mStretchedRight.data()};
            produced = mTimePitch.renderToEnd(output, kMaxSliceFrames, *this);
            mExportStretchEnded = produced < kMaxSliceFrames;
        }
        if (produced == 0) {
            if (mExportFlushFrames >= kTailFrames)
                return 0;
            std::fill(mStretchedLeft.begin(), mStretchedLeft.end(), 0.0f);
            std::fill(mStretchedRight.begin(), mStretchedRight.end(), 0.0f);
            produced = kMaxSliceFrames;
            mExportFlushFrames += produced;
        }
        feedVocalRemover(produced);
    }
}

std::uint32_t ProcessingChain::pull(float* const* input, std::uint32_t frameCount) {
    std::fill_n(input[0], frameCount, 0.0f);
    std::fill_n(input[1], frameCount, 0.0f);
    std::uint32_t supplied = 0;
    if (mSource) {
        SourceRuns runs;
        supplied =
            std::min(mSource->supplyFrames(AudioBufferList::stereo(input[0], input[1], frameCount),
                                           frameCount, runs),
                     frameCount);
        // The silence the stretcher was fed while the source was starved comes before these
        // frames, as the stretcher counts it.
        if (supplied > 0) {
            mInputFrames += mStarvedFrames;
            mStarvedFrames = 0;
        }
        for (std::uint32_t i = 0; i < runs.count; ++i) {
            const SourceRun& run = runs.runs[i];
            mInputRuns[mInputRunsWritten % kInputRunCount] = {mInputFrames + run.outputOffset,
                                                              run.sourceFrame, run.direction};
            ++mInputRunsWritten;
        }
    }
    mEqualizer.process(input, supplied);
    mInputFrames += supplied;
    mStarvedFrames += frameCount - supplied;
    return supplied;
}

std::uint32_t ProcessingChain::pullPastEnd(float* const* input, std::uint32_t frameCount) {
    // Through the equalizer as well, which goes on from the range's last frame without a seam.
    return pullUnheard(input, frameCount, &ChainSource::supplyFramesPastEnd);
}

std::uint32_t ProcessingChain::pullBeforeStart(float* const* input, std::uint32_t frameCount) {
    // Through the equalizer as well, which then plays the first frame already settled.
    return pullUnheard(input, frameCount, &ChainSource::supplyFramesBeforeStart);
}

std::uint32_t ProcessingChain::pullUnheard(float* const* input, std::uint32_t frameCount,
                                           UnheardSupply supply) {
    if (!mSource)
        return 0;
    std::fill_n(input[0], frameCount, 0.0f);
    std::fill_n(input[1], frameCount, 0.0f);
    const std::uint32_t supplied = std::min(
        (mSource->*supply)(AudioBufferList::stereo(input[0], input[1], frameCount), frameCount),
        frameCount);
    mEqualizer.process(input, supplied);
    return supplied;
}

ProcessingChain::TracedFrame ProcessingChain::traceInputFrame(double inputFrame) const {
    const std::uint64_t kept = std::min<std::uint64_t>(mInputRunsWritten, kInputRunCount);
    for (std::uint64_t back = 1; back <= kept; ++back) {
        const InputRun& run = mInputRuns[(mInputRunsWritten - back) % kInputRunCount];
        if (double(run.inputFrame) <= inputFrame || back == kept)
            return {double(run.sourceFrame) +
                        run.direction * std::max(0.0, inputFrame - double(run.inputFrame)),
                    run.direction};
    }
    return {0.0, 1};
}

void ProcessingChain::renderDelayed(float* left, float* right, std::uint32_t frameCount,
                                    bool removeVocals) {
    applyVocalBand();
    const bool switched = removeVocals != mRemovingVocals;
    if (removeVocals && switched) {
        // Afresh from the oldest frame not yet played, so that its output lines up with the
        // plain sound; its first hop at full level, since the plain sound fades into it.
        mVocalRemover.clear();
        mVocalRemover.startAtFullLevel();
        for (std::uint64_t fed = 0; fed < mDelayedLeft.used();) {
            const auto count =
                std::uint32_t(std::min<std::uint64_t>(kMaxSliceFrames, mDelayedLeft.used() - fed));
            mDelayedLeft.read(mStretchedLeft.data(), count, fed);
            mDelayedRight.read(mStretchedRight.data(), count, fed);
            feedVocalRemover(count);
            fed += count;
        }
    }
    const bool throughRemover = removeVocals || mRemovingVocals;
    stretchIntoDelay(frameCount, throughRemover);
    // Also in the slice it is switched off in, which still fades out of its sound.
    while (throughRemover && mVocalRemover.processedFrames() < frameCount)
        stretchIntoDelay(kRunAheadFrames, true);

    mDelayedLeft.read(mDryLeft.data(), frameCount);
    mDelayedRight.read(mDryRight.data(), frameCount);
    mDelayedRates.read(mRates.data(), frameCount);
    mDelayedLeft.advance(frameCount);
    mDelayedRight.advance(frameCount);
    mDelayedRates.advance(frameCount);
    mSliceSourceFrames = 0.0;
    for (std::uint32_t i = 0; i < frameCount; ++i)
        mSliceSourceFrames += mRates[i];
    // Recounted while the delay empties, so that sums of many slices do not drift from it.
    mDelayedSourceFrames =
        mDelayedRates.used() == 0 ? 0.0 : mDelayedSourceFrames - mSliceSourceFrames;
    mRemovingVocals = removeVocals;
    if (!throughRemover) {
        std::copy_n(mDryLeft.data(), frameCount, left);
        std::copy_n(mDryRight.data(), frameCount, right);
        return;
    }
    const std::uint32_t taken = mVocalRemover.getOutput(0, left, frameCount);
    mVocalRemover.getOutput(1, right, taken);
    std::fill(left + taken, left + frameCount, 0.0f);
    std::fill(right + taken, right + frameCount, 0.0f);
    if (!switched)
        return;
    for (std::uint32_t i = 0; i < frameCount; ++i) {
        const float rising = float(i + 1) / float(frameCount);
        const float wet = removeVocals ? rising : 1.0f - rising;
        left[i] = left[i] * wet + mDryLeft[i] * (1.0f - wet);
        right[i] = right[i] * wet + mDryRight[i] * (1.0f - wet);
    }
}

void ProcessingChain::stretchIntoDelay(std::uint32_t frameCount, bool feedRemover) {
    float* output[2] = {mStretchedLeft.data(), mStretchedRight.data()};
    mTimePitch.render(output, frameCount, *this);
    mDelayedLeft.append(mStretchedLeft.data(), frameCount);
    mDelayedRight.append(mStretchedRight.data(), frameCount);
    const auto rate = float(mTimePitch.appliedRate());
    std::fill_n(mRates.data(), frameCount, rate);
    mDelayedRates.append(mRates.data(), frameCount);
    mDelayedSourceFrames += double(rate) * frameCount;
    if (feedRemover)
        feedVocalRemover(frameCount);
}

void ProcessingChain::feedVocalRemover(std::uint32_t frameCount) {
    mVocalRemover.addInput(0, mStretchedLeft.data(), frameCount);
    mVocalRemover.addInput(1, mStretchedRight.data(), frameCount);
    mVocalRemover.process();
}

void ProcessingChain::processAfterVocalReduction(float* left, float* right,
                                                 std::uint32_t frameCount) {
    if (frameCount == 0)
        return;
    mSpectrumAnalyzer.copyFromAudioBufferList(AudioBufferList::stereo(left, right, frameCount),
                                              frameCount);

    applyPan(left, right, frameCount);

    // The level glides across the slice, so a volume change does not click.
    const float target = mLevel.load(std::memory_order_relaxed);
    const float start = mAppliedLevel;
    if (start == target && target == 1.0f)
        return;
    const float step = (target - start) / float(frameCount);
    for (std::uint32_t i = 0; i < frameCount; ++i) {
        const float gain = start + step * float(i + 1);
        left[i] *= gain;
        right[i] *= gain;
    }
    mAppliedLevel = target;
}

ProcessingChain::PanSettings ProcessingChain::panSettings() const noexcept {
    return {mPanAdjust.load(std::memory_order_relaxed), mPanAmount.load(std::memory_order_relaxed),
            mOutOfPhase.load(std::memory_order_relaxed)};
}

void ProcessingChain::applyPan(float* left, float* right, std::uint32_t frameCount) {
    const PanSettings pan = panSettings();
    if (pan == mAppliedPan) {
        if (pan.enabled)
            applyPanMix(left, right, frameCount, pan.amount, pan.outOfPhase);
        return;
    }
    // A switch or a move of the pan glides from the old mix to the new across the slice: out
    // of phase, in one step, would click.
    frameCount = std::min(frameCount, kMaxSliceFrames);
    std::copy_n(left, frameCount, mPanLeft.data());
    std::copy_n(right, frameCount, mPanRight.data());
    if (mAppliedPan.enabled) {
        applyPanMix(mPanLeft.data(), mPanRight.data(), frameCount, mAppliedPan.amount,
                    mAppliedPan.outOfPhase);
    }
    if (pan.enabled)
        applyPanMix(left, right, frameCount, pan.amount, pan.outOfPhase);
    for (std::uint32_t i = 0; i < frameCount; ++i) {
        const float weight = float(i + 1) / float(frameCount);
        left[i] = mPanLeft[i] + (left[i] - mPanLeft[i]) * weight;
        right[i] = mPanRight[i] + (right[i] - mPanRight[i]) * weight;
    }
    mAppliedPan = pan;
}

} // namespace tesk
