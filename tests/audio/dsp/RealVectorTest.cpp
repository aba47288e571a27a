#include "audio/dsp/RealVector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tesk {
namespace {

TEST(RealVector, WindowsConvertsToDecibelsAndAverages) {
    // Hamming over 9 points: 0.08 at the ends, 0.54 a quarter of the way, 1 in the middle.
    std::vector<float> samples(9, 2.0f);
    HammingWindow(9).apply(samples);
    for (const auto& [index, expected] :
         {std::pair{0, 0.16f}, {2, 1.08f}, {4, 2.0f}, {6, 1.08f}, {8, 0.16f}})
        EXPECT_NEAR(samples[index], expected, 1e-6f) << "point " << index;

    // Raw 20 log10, floored so that silence stays finite.
    const std::pair<float, float> decibels[] = {{1.0f, 0.0f},          {10.0f, 20.0f},
                                                {0.001f, -60.0f},      {553.0f, 54.854503f},
                                                {0.0f, kDecibelFloor}, {1e-9f, kDecibelFloor}};
    for (const auto& [value, expected] : decibels) {
        std::vector<float> converted{value};
        convertToDecibels(converted);
        EXPECT_NEAR(converted[0], expected, 1e-5f) << value;
    }

    std::vector<float> a{1.0f, -6.0f, 30.0f};
    const std::vector<float> b{2.0f, -12.0f, 60.0f};
    const std::vector<float> c{6.0f, 0.0f, -30.0f};
    const std::vector<std::span<const float>> vectors{a, b, c};
    averageOfVectors(vectors, a); // into one of its own inputs
    EXPECT_EQ(a, (std::vector<float>{3.0f, -6.0f, 20.0f}));
}

TEST(RealVector, SmoothedPointsAreASixthOfAnOctaveApartAroundOneKilohertz) {
    constexpr double kSpacing = 44100.0 / 2048.0;
    const OctaveSmoother smoother(1.0f / 6.0f, 44100, 2048, 1, 1024);
    const auto table = smoother.frequencyTable();
    // 1000 · 2^(k/6) for k = -33 (22.1 Hz, above the first bin) .. 26 (20.2 kHz)
    ASSERT_EQ(table.size(), 60u);
    EXPECT_GE(table.front(), kSpacing);
    EXPECT_LT(table.front() / std::exp2(1.0 / 6.0), kSpacing);
    EXPECT_GT(table.back() * std::exp2(1.0 / 6.0), 22050.0);
    EXPECT_FLOAT_EQ(table[33], 1000.0f);
    for (std::size_t p = 1; p < table.size(); ++p) {
        EXPECT_NEAR(table[p] / table[p - 1], std::exp2(1.0 / 6.0), 1e-5) << "point " << p;
    }

    // Bins of these levels: a point holds the power of the bins within its band or, where the
    // band holds no bin, the level interpolated at its own frequency.
    std::vector<float> bins(1024);
    for (std::size_t i = 0; i < bins.size(); ++i)
        bins[i] = static_cast<float>(40.0 * std::sin(0.37 * static_cast<double>(i)));
    const auto binFrequency = [&](std::size_t i) { return static_cast<double>(i + 1) * kSpacing; };
    std::vector<float> magnitudes(bins.size());
    for (std::size_t i = 0; i < bins.size(); ++i)
        magnitudes[i] = static_cast<float>(std::pow(10.0, bins[i] / 20.0));
    std::vector<float> points(table.size());
    smoother.smooth(magnitudes, points);
    std::size_t interpolated = 0;
    for (std::size_t p = 0; p < table.size(); ++p) {
        double power = 0.0;
        for (std::size_t i = 0; i < bins.size(); ++i) {
            if (binFrequency(i) >= table[p] * std::exp2(-1.0 / 12.0) &&
                binFrequency(i) < table[p] * std::exp2(1.0 / 12.0))
                power += std::pow(10.0, bins[i] / 10.0);
        }
        double expected = 10.0 * std::log10(power);
        if (power == 0.0) {
            const auto below = static_cast<std::size_t>(table[p] / kSpacing) - 1;
            const double t = table[p] / kSpacing - static_cast<double>(below + 1);
            expected = (1.0 - t) * bins[below] + t * bins[below + 1];
            ++interpolated;
        }
        EXPECT_NEAR(points[p], expected, 1e-3) << "point " << p << " at " << table[p];
    }
    EXPECT_GT(interpolated, 5u);
}

} // namespace
} // namespace tesk
