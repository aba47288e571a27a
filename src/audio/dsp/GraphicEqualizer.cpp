#include "audio/dsp/GraphicEqualizer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tesk {
namespace {

// Coefficients are recomputed at the ends of sub-blocks this long and interpolated sample by
// sample in between: one power function per band every 32 frames instead of every frame.
constexpr std::uint32_t kSubBlock = 32;

// Long enough that a 24 dB jump or a bypass switch does not click, short enough that a fader
// still feels immediate.
constexpr double kTransitionSeconds = 0.010;

// Above this fraction of the sample rate the bilinear transform squeezes a bell into a shelf
// against Nyquist; such a band stays flat rather than boost everything near the top.
constexpr double kHighestCentre = 0.45;

} // namespace

GraphicEqualizer::GraphicEqualizer(double sampleRate)
    : mFadeFrames(std::max<std::uint32_t>(
          1, static_cast<std::uint32_t>(std::lround(kTransitionSeconds * sampleRate))))
    , mGlideFrames(mFadeFrames) {
    for (std::size_t index = 0; index < kBandCount; ++index) {
        Band& band = mBands[index];
        const double frequency = kCentreFrequencies[index];
        band.active = frequency < kHighestCentre * sampleRate;
        if (!band.active)
            continue;
        const double omega = 2.0 * std::numbers::pi * frequency / sampleRate;
        band.cosine = std::cos(omega);
        band.alpha = std::sin(omega) / (2.0 * kQuality);
        band.coefficients = coefficientsFor(band, 0.0);
    }
}

GraphicEqualizer::Coefficients GraphicEqualizer::coefficientsFor(const Band& band,
                                                                 double gainDb) const noexcept {
    // The peaking filter of R. Bristow-Johnson's audio EQ cookbook: exactly `gainDb` at the
    // centre, whatever the warping of the bilinear transform does to the skirts.
    const double amplitude = std::pow(10.0, gainDb / 40.0);
    const double a0 = 1.0 + band.alpha / amplitude;
    Coefficients c;
    c.b0 = (1.0 + band.alpha * amplitude) / a0;
    c.b1 = -2.0 * band.cosine / a0;
    c.b2 = (1.0 - band.alpha * amplitude) / a0;
    c.a1 = c.b1;
    c.a2 = (1.0 - band.alpha / amplitude) / a0;
    return c;
}

void GraphicEqualizer::setBandGains(const std::array<float, kBandCount>& gainsDb) noexcept {
    for (std::size_t index = 0; index < kBandCount; ++index) {
        Band& band = mBands[index];
        const double target = gainsDb[index];
        if (!band.active || !std::isfinite(target) || target == band.targetDb)
            continue;
        // A glide always takes the same time, however far it goes; a change in mid-glide
        // starts a new one from wherever the gain has got to.
        band.targetDb = target;
        band.stepDb = (target - band.currentDb) / static_cast<double>(mGlideFrames);
        band.framesLeft = mGlideFrames;
    }
}

void GraphicEqualizer::setBypassed(bool bypassed) noexcept {
    if (bypassed == mBypassed)
        return;
    mBypassed = bypassed;
    // Fading at a fixed speed means a switch back in mid-fade turns around where it is.
    mWetGainStep = (bypassed ? -1.0 : 1.0) / static_cast<double>(mFadeFrames);
}

void GraphicEqualizer::reset() noexcept {
    for (Band& band : mBands) {
        if (!band.active)
            continue;
        band.currentDb = band.targetDb;
        band.framesLeft = 0;
        band.coefficients = coefficientsFor(band, band.currentDb);
        band.states.fill(State{});
    }
    mWetGain = mBypassed ? 0.0 : 1.0;
    mWetGainStep = 0.0;
}

void GraphicEqualizer::process(float* const* channels, std::uint32_t frameCount) noexcept {
    for (std::uint32_t offset = 0; offset < frameCount; offset += kSubBlock)
        processSubBlock(channels, offset, std::min(kSubBlock, frameCount - offset));
}

void GraphicEqualizer::processSubBlock(float* const* channels, std::uint32_t offset,
                                       std::uint32_t frameCount) noexcept {
    // Where each band's coefficients must be at the end of this sub-block, and how far they
    // move per frame to get there.
    std::array<Coefficients, kBandCount> ends;
    std::array<Coefficients, kBandCount> steps;
    std::array<bool, kBandCount> moving{};
    for (std::size_t index = 0; index < kBandCount; ++index) {
        Band& band = mBands[index];
        ends[index] = band.coefficients;
        if (!band.active || band.framesLeft == 0)
            continue;
        const std::uint32_t advance = std::min(band.framesLeft, frameCount);
        band.framesLeft -= advance;
        band.currentDb = band.framesLeft == 0
                             ? band.targetDb
                             : band.currentDb + band.stepDb * static_cast<double>(advance);
        const Coefficients end = coefficientsFor(band, band.currentDb);
        const Coefficients& start = band.coefficients;
        const double perFrame = 1.0 / static_cast<double>(frameCount);
        ends[index] = end;
        steps[index] = {(end.b0 - start.b0) * perFrame, (end.b1 - start.b1) * perFrame,
                        (end.b2 - start.b2) * perFrame, (end.a1 - start.a1) * perFrame,
                        (end.a2 - start.a2) * perFrame};
        moving[index] = true;
    }

    const double wetStart = mWetGain;
    const double wetStep = mWetGainStep;

    for (std::uint32_t channel = 0; channel < kChannelCount; ++channel) {
        float* samples = channels[channel] + offset;
        std::array<double, kSubBlock> wet;
        for (std::uint32_t i = 0; i < frameCount; ++i)
            wet[i] = samples[i];

        for (std::size_t index = 0; index < kBandCount; ++index) {
            Band& band = mBands[index];
            if (!band.active)
                continue;
            State& s = band.states[channel];
            Coefficients c = band.coefficients;
            const Coefficients& d = steps[index];
            const bool glide = moving[index];
            for (std::uint32_t i = 0; i < frameCount; ++i) {
                if (glide) {
                    c.b0 += d.b0;
                    c.b1 += d.b1;
                    c.b2 += d.b2;
                    c.a1 += d.a1;
                    c.a2 += d.a2;
                }
                const double x = wet[i];
                const double y = c.b0 * x + c.b1 * s.x1 + c.b2 * s.x2 - c.a1 * s.y1 - c.a2 * s.y2;
                s.x2 = s.x1;
                s.x1 = x;
                s.y2 = s.y1;
                s.y1 = y;
                wet[i] = y;
            }
        }

        if (wetStep == 0.0 && wetStart == 0.0)
            continue; // bypassed: the input stays exactly as it came
        if (wetStep == 0.0) {
            for (std::uint32_t i = 0; i < frameCount; ++i)
                samples[i] = static_cast<float>(wet[i]);
            continue;
        }
        double wetGain = wetStart;
        for (std::uint32_t i = 0; i < frameCount; ++i) {
            wetGain = std::clamp(wetGain + wetStep, 0.0, 1.0);
            const double dry = samples[i];
            samples[i] = static_cast<float>(dry + wetGain * (wet[i] - dry));
        }
    }

    for (std::size_t index = 0; index < kBandCount; ++index)
        mBands[index].coefficients = ends[index];

    if (wetStep != 0.0) {
        mWetGain = std::clamp(wetStart + wetStep * static_cast<double>(frameCount), 0.0, 1.0);
        if (mWetGain == 0.0 || mWetGain == 1.0)
            mWetGainStep = 0.0;
    }
}

} // namespace tesk
