#include "audio/TimePitchStage.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tesk {
namespace {

using RubberBand::RubberBandStretcher;

// Left and right to mid and side, in place. Halving and doubling are exact in floating point,
// so identical channels give a mid equal to either and a side of exact zeros.
void toMidSide(float* left, float* right, std::uint32_t frameCount) {
    for (std::uint32_t i = 0; i < frameCount; ++i) {
        const float l = left[i];
        const float r = right[i];
        left[i] = (l + r) * 0.5f;
        right[i] = (l - r) * 0.5f;
    }
}

RubberBandStretcher::Options optionsFor(TimePitchQuality quality) {
    // Real time; one thread, since the stage already runs on the rendering thread; a pitch method
    // that glides through live changes, including across no shift at all, without a jump.
    const RubberBandStretcher::Options common = RubberBandStretcher::OptionProcessRealTime |
                                                RubberBandStretcher::OptionThreadingNever |
                                                RubberBandStretcher::OptionPitchHighConsistency;
    // The channels are mid and side here (see the class comment). The finer engine decides each
    // channel's phases by its own transients unless told to keep them together, and a drum hit
    // in the centre is only in the mid: the side's phases then drift from the mid's, and left
    // and right no longer come back apart (a right-hand part heard on the left, at anything but
    // rate 1 and no shift; after a reset while slowing down or shifting up, even the sum on the
    // left and silence on the right). Together, the side follows the mid across the whole band; the
    // cost is that a part on one side only comes out half a cent sharp, far below what is heard.
    // The faster engine would turn mid and side into a mid and side of its own: it keeps them
    // apart.
    switch (quality) {
    case TimePitchQuality::Light:
        return common | RubberBandStretcher::OptionEngineFaster;
    case TimePitchQuality::Standard:
        break;
    }
    return common | RubberBandStretcher::OptionEngineFiner |
           RubberBandStretcher::OptionWindowStandard | RubberBandStretcher::OptionChannelsTogether;
}

// The library reports problems on standard error unless given somewhere else to put them; the
// rendering thread must not write to a stream, and nothing it could say would be acted on there.
struct SilentLogger : RubberBandStretcher::Logger {
    void log(const char*) override {}
    void log(const char*, double) override {}
    void log(const char*, double, double) override {}
};

double pitchScale(double cents) {
    return std::exp2(cents / 1200.0);
}

} // namespace

TimePitchStage::TimePitchStage(double sampleRate, TimePitchQuality quality)
    : mQuality(quality)
    , mInputBuffer(kChannelCount * kMaxProcessSize)
    , mOutputBuffer(kChannelCount * kMaxProcessSize) {
    mStretcher = std::make_unique<RubberBandStretcher>(
        static_cast<std::size_t>(std::lround(sampleRate)), kChannelCount,
        std::make_shared<SilentLogger>(), optionsFor(quality));
    mStretcher->setMaxProcessSize(kMaxProcessSize);
    warmUp();
    mResamplerDelay = measureResamplerDelay(sampleRate);
    reset();
}

void TimePitchStage::warmUp() {
    // The library sizes some buffers lazily, to the largest the ratios seen so far have needed,
    // and would grow them inside `process` on the rendering thread the first time a user reaches a
    // new extreme. Driving it through the extremes here makes it grow them now.
    std::fill(mInputBuffer.begin(), mInputBuffer.end(), 0.0f);
    const auto step = [&] {
        const float* silence[kChannelCount] = {mInputBuffer.data(),
                                               mInputBuffer.data() + kMaxProcessSize};
        float* discard[kChannelCount] = {mOutputBuffer.data(),
                                         mOutputBuffer.data() + kMaxProcessSize};
        mStretcher->process(
            silence, std::clamp<std::size_t>(mStretcher->getSamplesRequired(), 1, kMaxProcessSize),
            false);
        while (mStretcher->available() > 0)
            mStretcher->retrieve(discard,
                                 std::min<std::size_t>(mStretcher->available(), kMaxProcessSize));
    };
    for (const double rate : {kMinimumRate, 0.5, 1.0, 2.0, kMaximumRate}) {
        for (const double cents :
             {kMinimumPitchCents, -1200.0, -100.0, 0.0, 100.0, 1200.0, kMaximumPitchCents}) {
            mStretcher->setTimeRatio(1.0 / rate);
            mStretcher->setPitchScale(pitchScale(cents));
            step();
        }
    }
    // The pitch resampler builds a phase table for each new ratio, into whichever of its two
    // tables is not playing, and grows a table only when a ratio needs more room than it has
    // ever had. Of all whole-cent shifts at 44100 Hz, -1087 cents needs the most (found by
    // trying every one with the library's 3.1 series); this order puts it in both tables. At
    // other rates or versions it is just one more warm-up step.
    mStretcher->setTimeRatio(1.0);
    for (const double cents : {-1087.0, -835.0, -1803.0, -1087.0}) {
        mStretcher->setPitchScale(pitchScale(cents));
        step();
    }
    mStretcher->setPitchScale(1.0);
    mStretcher->setTimeRatio(stretcherTimeRatio(1.0, 0.0, mQuality));
    mStretcher->reset();
}

double TimePitchStage::measureResamplerDelay(double sampleRate) {
    // Once the pitch resampler has been through a few ratio changes, as the warm-up takes it,
    // it delays its input by a fixed extra amount (128 frames with the library's 3.1 series)
    // that its reported start delay leaves out and that a reset does not clear. Timing a probe
    // whose placement a fresh stretcher gets exactly right measures it: a 1 kHz tone under a
    // Gaussian envelope, at rate 1 and no shift, located by its energy centroid.
    constexpr double kCentre = 6000.0;
    constexpr double kWidth = 1000.0;
    constexpr std::size_t kLength = 12000;
    constexpr std::size_t kEnough = 20000; // input frames after which the probe is all out

    std::size_t pad = mStretcher->getPreferredStartPad();
    std::uint64_t toDrop = mStretcher->getStartDelay();
    float* left = mInputBuffer.data();
    float* right = mInputBuffer.data() + kMaxProcessSize;
    const float* input[kChannelCount] = {left, right};
    float* discard[kChannelCount] = {mOutputBuffer.data(), mOutputBuffer.data() + kMaxProcessSize};

    double energy = 0.0;
    double moment = 0.0;
    std::size_t fed = 0;
    std::uint64_t retrieved = 0;
    while (fed < kEnough) {
        const std::size_t count =
            std::clamp<std::size_t>(mStretcher->getSamplesRequired(), 1, kMaxProcessSize);
        for (std::size_t i = 0; i < count; ++i) {
            const double n = static_cast<double>(fed + i) - static_cast<double>(pad);
            const double envelope = std::exp(-0.5 * std::pow((n - kCentre) / kWidth, 2.0));
            left[i] =
                n >= 0.0 && n < static_cast<double>(kLength)
                    ? static_cast<float>(0.5 * envelope *
                                         std::sin(2.0 * std::numbers::pi * 1000.0 * n / sampleRate))
                    : 0.0f;
            right[i] = left[i];
        }
        mStretcher->process(input, count, false);
        fed += count;
        while (mStretcher->available() > 0) {
            const std::size_t got = mStretcher->retrieve(
                discard, std::min<std::size_t>(mStretcher->available(), kMaxProcessSize));
            for (std::size_t i = 0; i < got; ++i, ++retrieved) {
                if (retrieved < toDrop)
                    continue;
                const double value = discard[0][i];
                energy += value * value;
                moment += value * value * static_cast<double>(retrieved - toDrop);
            }
        }
    }
    mStretcher->reset();
    return energy > 0.0 ? std::max(0.0, moment / energy - kCentre) : 0.0;
}

TimePitchStage::~TimePitchStage() = default;

void TimePitchStage::setRate(double rate) noexcept {
    if (std::isfinite(rate))
        mRate.store(std::clamp(rate, kMinimumRate, kMaximumRate), std::memory_order_relaxed);
}

void TimePitchStage::setPitchCents(double cents) noexcept {
    if (std::isfinite(cents))
        mPitchCents.store(std::clamp(cents, kMinimumPitchCents, kMaximumPitchCents),
                          std::memory_order_relaxed);
}

void TimePitchStage::reset() {
    mStretcher->reset();
    mStarted = false;
    mSourceEnded = false;
    mTailFramesLeft = 0;
    mInputEnded = false;
    mFramesToDrop = 0;
    mExpectedOutputFrames = 0.0;
    mStarvedOutputFrames = 0.0;
    mStarvedInputFrames = 0.0;
    mInputFrames = 0.0;
    mOutputFrames = 0;
    mLastRequest = 0;
    mLastPulledLeft = 0.0f;
    mLastPulledRight = 0.0f;
    mStarvedFaded = kStarvedFadeFrames;
    mLatencyFrames.store(0.0, std::memory_order_relaxed);
}

void TimePitchStage::applyParameters() {
    // The library's ratios may only change between process calls on the thread that makes
    // them, so values from other threads wait in atomics until here.
    const double rate = mRate.load(std::memory_order_relaxed);
    const double cents = mPitchCents.load(std::memory_order_relaxed);
    const double wholeCents = std::round(cents);
    if (rate == mAppliedRate && wholeCents == mAppliedPitchCents)
        return;
    const double delayBefore = outputDelay();
    if (rate != mAppliedRate) {
        // The input the stretcher holds ahead of what it has analysed was counted at the old
        // rate but comes out at the new one: without this, the position would lag or lead what
        // is heard by tens of milliseconds after each change. That is its start pad's worth,
        // less the step it last asked for, which it has taken in but not yet moved past (its
        // analysis step, which depends on the old rate: from 128 frames at a quarter speed to
        // 337 at twice). Of the held input, the newest may be silence fed while the source was
        // starved, counted apart, and the oldest the silence the start put in, never counted.
        const double held = std::max(0.0, static_cast<double>(mStretcher->getPreferredStartPad()) -
                                              static_cast<double>(mLastRequest));
        const double starved = std::min(held, mStarvedInputFrames);
        const double pulled = std::min(held - starved, mInputFrames);
        const double change = 1.0 / rate - 1.0 / mAppliedRate;
        mExpectedOutputFrames += pulled * change;
        mStarvedOutputFrames += starved * change;
        mAppliedRate = rate;
    }
    // Whole cents (a hundredth of a semitone, well below what anyone hears) keep the
    // resampler within the tables the warm-up made room for.
    if (wholeCents != mAppliedPitchCents) {
        mStretcher->setPitchScale(pitchScale(wholeCents));
        mAppliedPitchCents = wholeCents;
    }
    mStretcher->setTimeRatio(stretcherTimeRatio(mAppliedRate, mAppliedPitchCents, mQuality));
    // The stretcher's own delay depends on the ratios (twice as long an octave down): what is
    // in it comes out that much later, or earlier, than counted.
    if (mStarted)
        mExpectedOutputFrames += outputDelay() - delayBefore;
}

double TimePitchStage::outputDelay() const {
    return static_cast<double>(mStretcher->getStartDelay()) +
           mResamplerDelay / pitchScale(mAppliedPitchCents);
}

double TimePitchStage::stretcherTimeRatio(double rate, double pitchCents,
                                          TimePitchQuality quality) {
    // The finer engine takes an overall ratio within 1e-7 of one as no change at all and, in real
    // time, then rebuilds the sound from three fixed bands whose crossovers, at 500 Hz and 4 kHz,
    // dent it by up to 3.5 dB: at normal speed and pitch, the setting heard most. A ratio a
    // millionth longer takes the engine's ordinary path, which is flat; a millionth is 3.6 ms
    // in an hour, far below anything heard or shown.
    constexpr double kUnityMargin = 1e-6;
    const double timeRatio = 1.0 / rate;
    if (quality == TimePitchQuality::Standard &&
        std::abs(timeRatio * pitchScale(pitchCents) - 1.0) < kUnityMargin)
        return timeRatio * (1.0 + kUnityMargin);
    return timeRatio;
}

void TimePitchStage::start(Source& source) {
    // Input ahead of the first frame lets the stretcher's analysis window reach the first frame
    // centred; its start delay is then exactly the output to throw away. Both depend on the
    // ratios, which is why this waits for the first render after a reset. The music before the
    // first frame fills the end of that pad: with silence there, the window saw the music cut in
    // and a start in the middle of a song rose from half its level over 20 ms. The finer engine
    // also builds its output from overlapping windows, and its first ones lack the overlap of
    // those before them: it runs in over more of that music, up to a speed-independent 2048
    // output frames, which are thrown away too. Without it, a start two octaves down, or at
    // three times the speed, came at 70 to 80 % of its level for the first 5 ms.
    const std::size_t runIn =
        mQuality == TimePitchQuality::Standard
            ? std::size_t(std::llround(kRunInOutputFrames * std::min(1.0, mAppliedRate)))
            : 0;
    std::size_t pad = mStretcher->getPreferredStartPad() + runIn;
    // The resampler's extra delay is counted in frames before it shifts the pitch.
    mFramesToDrop =
        static_cast<std::uint64_t>(std::llround(outputDelay() + double(runIn) / mAppliedRate));
    float* left = mInputBuffer.data();
    float* right = mInputBuffer.data() + kMaxProcessSize;
    const auto beforeFrames =
        static_cast<std::uint32_t>(std::min<std::size_t>(pad, kMaxProcessSize));
    float* before[kChannelCount] = {left, right};
    const std::uint32_t got = std::min(source.pullBeforeStart(before, beforeFrames), beforeFrames);
    // The last frame before the start goes in last; silence ahead of what the source had.
    std::copy_backward(left, left + got, left + beforeFrames);
    std::copy_backward(right, right + got, right + beforeFrames);
    std::fill(left, left + beforeFrames - got, 0.0f);
    std::fill(right, right + beforeFrames - got, 0.0f);
    // Where the music was cut off, it comes in over the far quarter of the window, which the
    // first frames heard barely see.
    const std::uint32_t fadeFrames = beforeFrames / 4;
    for (std::uint32_t i = 0; i < fadeFrames; ++i) {
        const float gain = 0.5f - 0.5f * std::cos(std::numbers::pi_v<float> * float(i + 1) /
                                                  float(fadeFrames + 1));
        left[i] *= gain;
        right[i] *= gain;
    }
    toMidSide(left, right, beforeFrames);

    float* silence = mOutputBuffer.data();
    std::fill_n(silence, kMaxProcessSize, 0.0f);
    const float* silent[kChannelCount] = {silence, silence};
    for (pad -= beforeFrames; pad > 0;) {
        const std::size_t chunk = std::min<std::size_t>(pad, kMaxProcessSize);
        mStretcher->process(silent, chunk, false);
        pad -= chunk;
    }
    const float* const music[kChannelCount] = {left, right};
    mStretcher->process(music, beforeFrames, false);
    mStarted = true;
}

void TimePitchStage::feed(Source& source, std::uint32_t frameCount, bool toEnd) {
    float* left = mInputBuffer.data();
    float* right = mInputBuffer.data() + kMaxProcessSize;
    std::uint32_t pulled = 0;
    std::uint32_t faded = 0;
    if (!mSourceEnded) {
        float* input[kChannelCount] = {left, right};
        pulled = std::min(source.pull(input, frameCount), frameCount);
        if (!toEnd)
            faded = smoothStarvation(left, right, pulled, frameCount);
        // Silence fed while the source was starved comes out ahead of the input that follows
        // it, so it counts once such input arrives; after the last input it never does.
        if (pulled > 0) {
            mExpectedOutputFrames += mStarvedOutputFrames;
            mInputFrames += mStarvedInputFrames;
            mStarvedOutputFrames = 0.0;
            mStarvedInputFrames = 0.0;
        }
        mExpectedOutputFrames += static_cast<double>(pulled) / mAppliedRate;
        mInputFrames += static_cast<double>(pulled);
        if (!toEnd) {
            mStarvedOutputFrames += static_cast<double>(frameCount - pulled) / mAppliedRate;
            mStarvedInputFrames += static_cast<double>(frameCount - pulled);
        }
        if (toEnd && pulled < frameCount) {
            // The stretcher holds back its latency's worth of audio even when told the input
            // is final (the faster engine then drops part of it), so the end of the range is
            // followed by more input until all of it is out; the output stops at the range's
            // end.
            mSourceEnded = true;
            mTailFramesLeft =
                mStretcher->getPreferredStartPad() + kMaxProcessSize +
                static_cast<std::size_t>(
                    (static_cast<double>(mStretcher->getStartDelay()) + mResamplerDelay) *
                    mAppliedRate);
        }
    }
    std::uint32_t pastEnd = 0;
    if (mSourceEnded) {
        // What follows the range in the song, not silence: the windows that reach past the
        // end then see the music go on, and the range's last frames keep their level.
        float* rest[kChannelCount] = {left + pulled, right + pulled};
        pastEnd = std::min(source.pullPastEnd(rest, frameCount - pulled), frameCount - pulled);
    }
    std::fill(left + pulled + pastEnd + faded, left + frameCount, 0.0f);
    std::fill(right + pulled + pastEnd + faded, right + frameCount, 0.0f);

    toMidSide(left, right, pulled + pastEnd + faded);

    bool last = false;
    if (mSourceEnded) {
        const std::size_t tail = std::min<std::size_t>(frameCount - pulled, mTailFramesLeft);
        mTailFramesLeft -= tail;
        last = mTailFramesLeft == 0;
    }
    const float* const constInput[kChannelCount] = {left, right};
    mStretcher->process(constInput, frameCount, last);
    mInputEnded = last;
}

std::uint32_t TimePitchStage::smoothStarvation(float* left, float* right, std::uint32_t pulled,
                                               std::uint32_t frames) {
    // Frames after silence fed for a starved source: they come in from silence.
    if (pulled > 0 && mStarvedInputFrames > 0.0) {
        const std::uint32_t fadeIn = std::min(pulled, kStarvedFadeFrames);
        for (std::uint32_t i = 0; i < fadeIn; ++i) {
            const float gain = float(i + 1) / float(kStarvedFadeFrames + 1);
            left[i] *= gain;
            right[i] *= gain;
        }
    }
    if (pulled > 0) {
        mLastPulledLeft = left[pulled - 1];
        mLastPulledRight = right[pulled - 1];
        mStarvedFaded = 0;
    }
    const std::uint32_t fadeOut = std::min(frames - pulled, kStarvedFadeFrames - mStarvedFaded);
    for (std::uint32_t i = 0; i < fadeOut; ++i) {
        const float gain =
            float(kStarvedFadeFrames - mStarvedFaded - i) / float(kStarvedFadeFrames + 1);
        left[pulled + i] = mLastPulledLeft * gain;
        right[pulled + i] = mLastPulledRight * gain;
    }
    mStarvedFaded += fadeOut;
    return fadeOut;
}

std::uint32_t TimePitchStage::retrieve(float* const* output, std::uint32_t frameCount) {
    float* mid = mOutputBuffer.data();
    float* side = mOutputBuffer.data() + kMaxProcessSize;
    float* const buffers[kChannelCount] = {mid, side};
    const auto count = static_cast<std::uint32_t>(
        mStretcher->retrieve(buffers, std::min(frameCount, kMaxProcessSize)));
    for (std::uint32_t i = 0; i < count; ++i) {
        output[0][i] = mid[i] + side[i];
        output[1][i] = mid[i] - side[i];
    }
    return count;
}

std::uint32_t TimePitchStage::renderFrames(float* const* output, std::uint32_t frameCount,
                                           Source& source, bool toEnd) {
    applyParameters();
    if (!mStarted)
        start(source);

    // An export ends where the input ends, at its rate: whatever the stretcher still rings out
    // past that is not part of the range.
    const auto endOfOutput = [&] {
        return static_cast<std::uint64_t>(std::llround(mExpectedOutputFrames));
    };

    std::uint32_t written = 0;
    while (written < frameCount) {
        if (mSourceEnded && mOutputFrames >= endOfOutput())
            break;
        const int available = mStretcher->available();
        if (available < 0)
            break; // everything after the final input has been retrieved
        if (available > 0) {
            if (mFramesToDrop > 0) {
                float* discard[kChannelCount] = {mOutputBuffer.data(),
                                                 mOutputBuffer.data() + kMaxProcessSize};
                const auto drop = static_cast<std::uint32_t>(std::min<std::uint64_t>(
                    {mFramesToDrop, static_cast<std::uint64_t>(available), kMaxProcessSize}));
                mStretcher->retrieve(discard, drop);
                mFramesToDrop -= drop;
                continue;
            }
            std::uint32_t wanted =
                std::min(frameCount - written, static_cast<std::uint32_t>(available));
            if (mSourceEnded)
                wanted = static_cast<std::uint32_t>(
                    std::min<std::uint64_t>(wanted, endOfOutput() - mOutputFrames));
            float* const destination[kChannelCount] = {output[0] + written, output[1] + written};
            const std::uint32_t count = retrieve(destination, wanted);
            written += count;
            mOutputFrames += count;
            continue;
        }
        if (mInputEnded)
            break; // nothing more will come
        const std::size_t required = mStretcher->getSamplesRequired();
        if (required > 0)
            mLastRequest = required;
        const auto ask =
            static_cast<std::uint32_t>(std::clamp<std::size_t>(required, 1, kMaxProcessSize));
        feed(source, ask, toEnd);
    }

    std::fill(output[0] + written, output[0] + frameCount, 0.0f);
    std::fill(output[1] + written, output[1] + frameCount, 0.0f);
    mLatencyFrames.store(mExpectedOutputFrames - static_cast<double>(mOutputFrames),
                         std::memory_order_relaxed);
    return written;
}

void TimePitchStage::render(float* const* output, std::uint32_t frameCount, Source& source) {
    renderFrames(output, frameCount, source, false);
}

std::uint32_t TimePitchStage::renderToEnd(float* const* output, std::uint32_t frameCount,
                                          Source& source) {
    return renderFrames(output, frameCount, source, true);
}

} // namespace tesk
