#pragma once

// Vector helpers for spectrum analysis. Each helper that needs tables or work space gets them
// when it is created; after that, nothing here allocates, locks or throws, so all of it may run
// on the rendering thread. Sizes are checked with assertions.

#include <kiss_fftr.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tesk {

/// A symmetric Hamming window, 0.54 − 0.46 cos(2πn / (N − 1)): 0.08 at both ends, 1 in the
/// middle. The coefficients are computed once.
class HammingWindow {
public:
    /// Any thread; allocates.
    explicit HammingWindow(std::size_t length);

    std::size_t length() const { return mCoefficients.size(); }
    std::span<const float> coefficients() const { return mCoefficients; }

    /// Multiplies `samples` (exactly `length()` of them) by the window in place.
    /// Any thread. Never allocates.
    void apply(std::span<float> samples) const;

private:
    std::vector<float> mCoefficients;
};

/// Magnitudes of the forward FFT of real input, unnormalised: a sine of peak A on a bin reads
/// A · length / 2 there, a constant c reads c · length at bin 0.
class FftMagnitudes {
public:
    /// `length` must be even. Any thread; allocates the transform's state.
    explicit FftMagnitudes(std::size_t length);
    ~FftMagnitudes();

    FftMagnitudes(const FftMagnitudes&) = delete;
    FftMagnitudes& operator=(const FftMagnitudes&) = delete;

    std::size_t length() const { return mLength; }
    /// length / 2 + 1: bins 0 (the constant term) to length / 2 (the Nyquist frequency).
    std::size_t binCount() const { return mLength / 2 + 1; }

    /// Writes |X[k]| of `input` (exactly `length()` samples) for every bin to `magnitudes`
    /// (exactly `binCount()` values).
    /// One thread at a time per object (it has work space). Never allocates.
    void compute(std::span<const float> input, std::span<float> magnitudes);

private:
    std::size_t mLength;
    kiss_fftr_cfg mConfig;
    std::vector<kiss_fft_cpx> mSpectrum;
};

/// The level that silence and anything quieter maps to, so that a silent spectrum still has
/// finite values to draw.
inline constexpr float kDecibelFloor = -120.0f;

/// Replaces each magnitude by 20 log10 of it, never below `kDecibelFloor`.
/// Any thread. Never allocates.
void convertToDecibels(std::span<float> values);

/// Writes the element-wise mean of `vectors` (at least one, all as long as `average`) to
/// `average`, which may be one of them.
/// Any thread. Never allocates.
void averageOfVectors(std::span<const std::span<const float>> vectors, std::span<float> average);

/// Reduces a run of FFT bins to points a fixed fraction of an octave apart, so that a spectrum
/// drawn on a logarithmic frequency axis is evenly dense and not ragged at the top.
///
/// The points are centred at 1000 · 2^(k · fraction) Hz for every integer k whose centre lies
/// between the first bin's frequency and the Nyquist frequency, so one point is exactly 1 kHz.
/// The bins are magnitudes, the points levels in dB (as `convertToDecibels`). A point's value
/// is the level of all the power of the bins whose frequencies fall in
/// [f · 2^(−fraction/2), f · 2^(fraction/2)), 10 log10 of the sum of their squares: a tone reads
/// at the same level at any frequency, however many bins the band spreads over (a mean would
/// sink it into the quiet bins around it, further the higher it lies). Where no bin falls in
/// the band (low frequencies, where bins are wider apart than points) it is the level
/// interpolated linearly at f between the levels of the bins either side.
class OctaveSmoother {
public:
    /// Bins `firstBin` .. `firstBin + binCount − 1` of an FFT of `fftLength` samples at
    /// `sampleRate` (bin k lies at k · sampleRate / fftLength Hz); `firstBin` must be at least
    /// 1 and the last bin at most the Nyquist bin. Builds the frequency table and the mapping
    /// from bins to points. Any thread; allocates.
    OctaveSmoother(float fraction, std::uint32_t sampleRate, std::size_t fftLength,
                   std::size_t firstBin, std::size_t binCount);

    std::size_t binCount() const { return mBinCount; }
    std::size_t pointCount() const { return mPoints.size(); }
    /// The centre frequency of each point in Hz, increasing.
    std::span<const float> frequencyTable() const { return mFrequencyTable; }

    /// Writes the points (exactly `pointCount()`, in dB) for the magnitudes `bins` (exactly
    /// `binCount()` values, starting at `firstBin`).
    /// Any thread. Never allocates.
    void smooth(std::span<const float> bins, std::span<float> points) const;

private:
    // Either the power sum of `count` bins from `first`, or when `count` is 0 the interpolation
    // (1 − weight) · bins[first] + weight · bins[first + 1].
    struct Point {
        std::uint32_t first;
        std::uint32_t count;
        float weight;
    };

    std::size_t mBinCount;
    std::vector<float> mFrequencyTable;
    std::vector<Point> mPoints;
};

} // namespace tesk
