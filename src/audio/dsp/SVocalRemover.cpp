#include "audio/dsp/SVocalRemover.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tesk {
namespace {

constexpr std::uint32_t kBlockLength = 2048;
constexpr std::uint32_t kHop = 1024;
constexpr std::uint32_t kFFTSize = 4096;
constexpr float kInverseScale = 0.000244140625f; // 1 / 4096: KISS FFT does not normalise.
constexpr double kReferenceHalfRate = 22050.0;

// Symmetric (over N − 1) and computed in single precision with 2π rounded to a float: these
// details reach the last bits of the output, and an export should not change between versions.
// Built on first use rather than at load, so a remover created during static initialisation
// still finds it; every constructor uses it first, so the rendering thread never builds it.
const std::array<float, kBlockLength>& hannWindow() {
    static const std::array<float, kBlockLength> window = [] {
        std::array<float, kBlockLength> values{};
        const float twoPi = 6.2831855f;
        const float lastIndex = static_cast<float>(kBlockLength - 1);
        for (std::uint32_t n = 0; n < kBlockLength; ++n)
            values[n] = 0.5f - 0.5f * std::cos(twoPi * static_cast<float>(n) / lastIndex);
        return values;
    }();
    return window;
}

long bandEdgeBin(double hertz) {
    return std::lrint(hertz / kReferenceHalfRate * static_cast<double>(kFFTSize));
}

} // namespace

void SVocalRemover::FFTDeleter::operator()(kiss_fftr_state* state) const noexcept {
    kiss_fftr_free(state);
}

SVocalRemover::SVocalRemover(std::uint32_t channelCount, std::uint64_t bufferSize)
    : channelCount(channelCount)
    , frameBuffers(channelCount, std::vector<float>(kFFTSize))
    , overlapBuffers(channelCount, std::vector<float>(kHop))
    , restSpectra(channelCount, std::vector<kiss_fft_cpx>(kFFTSize))
    , bandSpectra(channelCount, std::vector<kiss_fft_cpx>(kFFTSize))
    , scratchBuffer(kFFTSize)
    , forwardFFT(kiss_fftr_alloc(kFFTSize, 0, nullptr, nullptr))
    , inverseFFT(kiss_fftr_alloc(kFFTSize, 1, nullptr, nullptr)) {
    // The side signal needs a left and a right channel.
    TESK_PARAMETER_ASSERT(channelCount >= 2);
    TESK_ASSERT(forwardFFT && inverseFFT);
    hannWindow();
    inputQueues.reserve(channelCount);
    outputQueues.reserve(channelCount);
    for (std::uint32_t channel = 0; channel < channelCount; ++channel) {
        inputQueues.push_back(std::make_unique<BufferQueue<float>>(bufferSize));
        outputQueues.push_back(std::make_unique<BufferQueue<float>>(bufferSize));
    }
}

SVocalRemover::~SVocalRemover() = default;

void SVocalRemover::addInput(std::uint32_t channel, const float* samples,
                             std::uint32_t frameCount) {
    TESK_PARAMETER_ASSERT(channel < channelCount);
    inputQueues[channel]->append(samples, frameCount);
}

void SVocalRemover::process() {
    // Only channel 0's count decides: the output chain always feeds all channels together. A
    // block needs one sample beyond a full 2048, so exactly 2048 waiting frames wait longer.
    while (inputQueues[0]->used() > kBlockLength)
        processBlock();
}

void SVocalRemover::processBlock() {
    // The band is read once per block, so a change made between slices applies to whole blocks.
    const long lowBin = std::max(bandEdgeBin(lowFrequency), 0L);
    const long highBin = std::min(bandEdgeBin(highFrequency), static_cast<long>(kFFTSize));

    for (std::uint32_t channel = 0; channel < channelCount; ++channel) {
        float* frame = frameBuffers[channel].data();
        kiss_fft_cpx* rest = restSpectra[channel].data();
        kiss_fft_cpx* band = bandSpectra[channel].data();

        // Zero-padding to twice the block sends most of the band filter's circular spill into
        // the half that is thrown away.
        std::fill_n(frame, kFFTSize, 0.0f);
        inputQueues[channel]->read(frame, kBlockLength);

        kiss_fftr(forwardFFT.get(), frame, rest);
        std::fill_n(band, kFFTSize, kiss_fft_cpx{0.0f, 0.0f});
        // Bins past the transform's 2049 are never read back, so a band reaching up there
        // simply ends at the top of the spectrum.
        for (long bin = lowBin; bin < highBin; ++bin) {
            band[bin] = rest[bin];
            rest[bin] = kiss_fft_cpx{0.0f, 0.0f};
        }
        kiss_fftri(inverseFFT.get(), band, frame);
        for (std::uint32_t i = 0; i < kFFTSize; ++i)
            frame[i] *= kInverseScale;
    }

    // Both channels get the side signal with the same sign, so the band stays in phase between
    // the speakers instead of sounding wide. The zero-padded tail is left as it is: it only
    // holds the filter's spill, which the window and the hop discard.
    float* left = frameBuffers[0].data();
    float* right = frameBuffers[1].data();
    for (std::uint32_t i = 0; i < kBlockLength; ++i) {
        const float side = (left[i] - right[i]) * 0.5f;
        left[i] = side;
        right[i] = side;
    }

    const std::array<float, kBlockLength>& window = hannWindow();
    for (std::uint32_t channel = 0; channel < channelCount; ++channel) {
        float* frame = frameBuffers[channel].data();
        float* overlap = overlapBuffers[channel].data();

        kiss_fftri(inverseFFT.get(), restSpectra[channel].data(), scratchBuffer.data());
        for (std::uint32_t i = 0; i < kFFTSize; ++i)
            frame[i] += scratchBuffer[i] * kInverseScale;

        // The window goes on after processing only: the analysis block stays rectangular, and
        // two Hann windows a hop apart add up to (almost exactly) one. A first hop with no
        // block before it to overlap gets that sum at once.
        const bool fullFirstHop = firstHopAtFullLevel;
        for (std::uint32_t i = 0; i < kHop; ++i)
            frame[i] *= fullFirstHop ? window[i] + window[i + kHop] : window[i];
        for (std::uint32_t i = kHop; i < kBlockLength; ++i)
            frame[i] *= window[i];
        for (std::uint32_t i = 0; i < kHop; ++i)
            frame[i] += overlap[i];

        outputQueues[channel]->append(frame, kHop);
        std::copy_n(frame + kHop, kHop, overlap);
    }

    for (std::uint32_t channel = 0; channel < channelCount; ++channel)
        inputQueues[channel]->advance(kHop);
    firstHopAtFullLevel = false;
}

std::uint32_t SVocalRemover::getOutput(std::uint32_t channel, float* destination,
                                       std::uint32_t frameCount) {
    TESK_PARAMETER_ASSERT(channel < channelCount);
    BufferQueue<float>& queue = *outputQueues[channel];
    const auto taken =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(frameCount, queue.used()));
    queue.read(destination, taken);
    queue.advance(taken);
    return taken;
}

std::uint32_t SVocalRemover::processedFrames() const noexcept {
    return static_cast<std::uint32_t>(outputQueues[0]->used());
}

void SVocalRemover::reset() noexcept {
    for (std::vector<float>& overlap : overlapBuffers)
        std::fill(overlap.begin(), overlap.end(), 0.0f);
}

void SVocalRemover::clear() noexcept {
    reset();
    firstHopAtFullLevel = false;
    for (std::uint32_t channel = 0; channel < channelCount; ++channel) {
        inputQueues[channel]->advance(inputQueues[channel]->used());
        outputQueues[channel]->advance(outputQueues[channel]->used());
    }
}

} // namespace tesk
