#include "audio/SSpectrumAnalyzer.h"

#include "diagnostics/TeskAssert.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace tesk {
namespace {

constexpr float kSmoothFraction = 1.0f / 6.0f;

// The smoothing works on whole hertz, so a fractional rate (never seen in practice) loses its
// fraction here.
std::uint32_t wholeSampleRate(double sampleRate) {
    TESK_PARAMETER_ASSERT(sampleRate >= 1.0 && sampleRate <= 1.0e6);
    return static_cast<std::uint32_t>(sampleRate);
}

// The gain that makes a full-scale sine's band read `level` dB. Summed over its bins (one
// side), the power of a windowed sine of amplitude 1 is N · Σw² / 4.
float fullScaleGain(const HammingWindow& window, float level) {
    double energy = 0.0;
    for (const float w : window.coefficients())
        energy += static_cast<double>(w) * w;
    const double sinePower = static_cast<double>(window.length()) * energy / 4.0;
    return static_cast<float>(std::pow(10.0, level / 20.0) / std::sqrt(sinePower));
}

} // namespace

SSpectrumAnalyzer::SSpectrumAnalyzer(const AudioStreamDescription& streamDescription)
    : AudioBufferQueue(kBlockCount, kBlockFrames, streamDescription)
    , mStreamDescription(streamDescription)
    , mChannels(streamDescription.channelsPerFrame)
    , mSmoothFraction(kSmoothFraction)
    , mWindow(kFftLength)
    , mFullScaleGain(fullScaleGain(mWindow, kFullScaleLevel))
    , mFft(kFftLength)
    , mSmoother(mSmoothFraction, wholeSampleRate(streamDescription.sampleRate), kFftLength,
                kFirstBin, kBinCount)
    , mSamples(kFftLength)
    , mMagnitudes(mFft.binCount()) {
    mFrequencyTable.assign(mSmoother.frequencyTable().begin(), mSmoother.frequencyTable().end());
    const std::vector<float> emptySpectrum(mSmoother.pointCount());
    mSpectrumAverageArray.resize(mChannels);
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
        mSpectrum.push_back(std::make_unique<LatestValue<std::vector<float>>>(emptySpectrum));
        mSpectrumAverageArray[channel].spectra.fill(emptySpectrum);
    }
}

SSpectrumAnalyzer::~SSpectrumAnalyzer() = default;

std::vector<float> SSpectrumAnalyzer::spectrumForChannel(unsigned channel) {
    TESK_PARAMETER_ASSERT(channel < mChannels);
    const std::vector<float>* current = mSpectrum[channel]->read();
    return current ? *current : std::vector<float>{};
}

std::vector<float> SSpectrumAnalyzer::spectrum() {
    std::vector<float> average(mFrequencyTable.size(), 0.0f);
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
        const std::vector<float>* current = mSpectrum[channel]->read();
        if (!current)
            return {};
        for (std::size_t i = 0; i < average.size(); ++i)
            average[i] += (*current)[i];
    }
    for (float& value : average)
        value /= static_cast<float>(mChannels);
    return average;
}

void SSpectrumAnalyzer::processBuffer(Block& block) {
    const AudioBufferList& list = block.audioBufferList();
    if (list.bufferCount != mChannels)
        return;

    // Magnitudes start as the FFT's bins 0..1024; the constant term is dropped from here on.
    const std::span<float> bins = std::span<float>(mMagnitudes).subspan(kFirstBin, kBinCount);
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
        const AudioBuffer& buffer = list.buffers[channel];
        if (buffer.numberChannels != 1)
            continue;
        const std::size_t frames = std::min<std::size_t>(buffer.sampleCount, kFftLength);
        std::copy_n(buffer.data, frames, mSamples.begin());
        std::fill(mSamples.begin() + static_cast<std::ptrdiff_t>(frames), mSamples.end(), 0.0f);

        mWindow.apply(mSamples);
        mFft.compute(mSamples, mMagnitudes);
        for (float& magnitude : bins)
            magnitude *= mFullScaleGain;

        History& history = mSpectrumAverageArray[channel];
        mSmoother.smooth(bins, history.spectra[history.next]);
        history.next = (history.next + 1) % kHistoryLength;
        history.count = std::min(history.count + 1, kHistoryLength);

        // Until the ring has wrapped, its first `count` entries are the ones written so far.
        std::array<std::span<const float>, kHistoryLength> recent;
        for (std::uint32_t i = 0; i < history.count; ++i)
            recent[i] = history.spectra[i];
        LatestValue<std::vector<float>>& current = *mSpectrum[channel];
        averageOfVectors(std::span(recent).first(history.count), current.writeSlot());
        current.publish();
    }
    block.setEmpty();
}

} // namespace tesk
