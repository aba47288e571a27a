#include "audio/dsp/RealVector.h"

#include "diagnostics/TeskAssert.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tesk {

HammingWindow::HammingWindow(std::size_t length)
    : mCoefficients(length) {
    if (length == 1) {
        mCoefficients[0] = 1.0f;
        return;
    }
    const double step = 2.0 * std::numbers::pi / static_cast<double>(length - 1);
    for (std::size_t n = 0; n < length; ++n)
        mCoefficients[n] =
            static_cast<float>(0.54 - 0.46 * std::cos(step * static_cast<double>(n)));
}

void HammingWindow::apply(std::span<float> samples) const {
    TESK_PARAMETER_ASSERT(samples.size() == mCoefficients.size());
    for (std::size_t n = 0; n < samples.size(); ++n)
        samples[n] *= mCoefficients[n];
}

FftMagnitudes::FftMagnitudes(std::size_t length)
    : mLength(length)
    , mConfig(nullptr)
    , mSpectrum(length / 2 + 1) {
    TESK_PARAMETER_ASSERT(length >= 2 && length % 2 == 0);
    mConfig = kiss_fftr_alloc(static_cast<int>(length), 0, nullptr, nullptr);
    TESK_ASSERT(mConfig != nullptr);
}

FftMagnitudes::~FftMagnitudes() {
    kiss_fftr_free(mConfig);
}

void FftMagnitudes::compute(std::span<const float> input, std::span<float> magnitudes) {
    TESK_PARAMETER_ASSERT(input.size() == mLength);
    TESK_PARAMETER_ASSERT(magnitudes.size() == mSpectrum.size());
    kiss_fftr(mConfig, input.data(), mSpectrum.data());
    for (std::size_t k = 0; k < mSpectrum.size(); ++k)
        magnitudes[k] =
            std::sqrt(mSpectrum[k].r * mSpectrum[k].r + mSpectrum[k].i * mSpectrum[k].i);
}

void convertToDecibels(std::span<float> values) {
    // Below this magnitude 20 log10 would fall under the floor (and reach -inf at 0).
    const float floorMagnitude = std::pow(10.0f, kDecibelFloor / 20.0f);
    for (float& value : values)
        value = value > floorMagnitude ? 20.0f * std::log10(value) : kDecibelFloor;
}

void averageOfVectors(std::span<const std::span<const float>> vectors, std::span<float> average) {
    TESK_PARAMETER_ASSERT(!vectors.empty());
    for (const std::span<const float> vector : vectors)
        TESK_PARAMETER_ASSERT(vector.size() == average.size());
    // Summing per element, rather than accumulating into `average`, lets `average` be one of
    // the inputs.
    const float scale = 1.0f / static_cast<float>(vectors.size());
    for (std::size_t i = 0; i < average.size(); ++i) {
        float sum = 0.0f;
        for (const std::span<const float> vector : vectors)
            sum += vector[i];
        average[i] = sum * scale;
    }
}

OctaveSmoother::OctaveSmoother(float fraction, std::uint32_t sampleRate, std::size_t fftLength,
                               std::size_t firstBin, std::size_t binCount)
    : mBinCount(binCount) {
    TESK_PARAMETER_ASSERT(fraction > 0.0f);
    TESK_PARAMETER_ASSERT(sampleRate > 0);
    TESK_PARAMETER_ASSERT(firstBin >= 1 && binCount >= 2);
    TESK_PARAMETER_ASSERT(firstBin + binCount - 1 <= fftLength / 2);

    const double spacing = static_cast<double>(sampleRate) / static_cast<double>(fftLength);
    const auto binFrequency = [&](std::size_t i) {
        return static_cast<double>(firstBin + i) * spacing;
    };
    const double lowest = binFrequency(0);
    const double highest = binFrequency(binCount - 1);
    const double step = static_cast<double>(fraction);
    const auto centre = [&](long k) { return 1000.0 * std::exp2(static_cast<double>(k) * step); };

    // Start a little outside the range and let the exact test decide, so rounding in log2
    // cannot lose an end point.
    long k = static_cast<long>(std::floor(std::log2(lowest / 1000.0) / step)) - 1;
    while (centre(k) < lowest)
        ++k;
    for (; centre(k) <= highest; ++k) {
        const double f = centre(k);
        const double lower = f * std::exp2(-step / 2.0);
        const double upper = f * std::exp2(step / 2.0);
        std::size_t first = 0;
        while (binFrequency(first) < lower)
            ++first;
        std::size_t end = first;
        while (end < binCount && binFrequency(end) < upper)
            ++end;

        Point point{static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end - first),
                    0.0f};
        if (point.count == 0) {
            // No bin inside the band, so f lies strictly between bins `first - 1` and `first`
            // (it is not below the first bin, nor above the last one, and not on a bin).
            point.first = static_cast<std::uint32_t>(first - 1);
            point.weight = static_cast<float>((f - binFrequency(first - 1)) / spacing);
        }
        mFrequencyTable.push_back(static_cast<float>(f));
        mPoints.push_back(point);
    }
}

void OctaveSmoother::smooth(std::span<const float> bins, std::span<float> points) const {
    TESK_PARAMETER_ASSERT(bins.size() == mBinCount);
    TESK_PARAMETER_ASSERT(points.size() == mPoints.size());
    const auto level = [](float magnitude) {
        convertToDecibels(std::span(&magnitude, 1));
        return magnitude;
    };
    // Below this power 10 log10 would fall under the floor, as a magnitude does.
    const float floorPower = std::pow(10.0f, kDecibelFloor / 10.0f);
    for (std::size_t p = 0; p < mPoints.size(); ++p) {
        const Point& point = mPoints[p];
        if (point.count == 0) {
            points[p] = (1.0f - point.weight) * level(bins[point.first]) +
                        point.weight * level(bins[point.first + 1]);
            continue;
        }
        float power = 0.0f;
        for (std::uint32_t i = point.first; i < point.first + point.count; ++i)
            power += bins[i] * bins[i];
        points[p] = power > floorPower ? 10.0f * std::log10(power) : kDecibelFloor;
    }
}

} // namespace tesk
