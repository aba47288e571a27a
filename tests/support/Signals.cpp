#include "support/Signals.h"

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace tesk::test {

std::vector<float> sine(double frequency, double amplitude, std::size_t frames, double sampleRate,
                        double phase) {
    std::vector<float> samples(frames);
    const double step = 2.0 * std::numbers::pi * frequency / sampleRate;
    for (std::size_t i = 0; i < frames; ++i)
        samples[i] =
            static_cast<float>(amplitude * std::sin(phase + step * static_cast<double>(i)));
    return samples;
}

std::vector<float> noise(double amplitude, std::size_t frames, std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> distribution(-amplitude, amplitude);
    std::vector<float> samples(frames);
    for (float& sample : samples)
        sample = static_cast<float>(distribution(generator));
    return samples;
}

std::vector<float> mix(std::span<const float> a, std::span<const float> b) {
    std::vector<float> sum(a.size());
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
        sum[i] = a[i] + b[i];
    return sum;
}

double rms(std::span<const float> samples) {
    if (samples.empty())
        return 0.0;
    double sum = 0.0;
    for (float sample : samples)
        sum += static_cast<double>(sample) * sample;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

double rmsDb(std::span<const float> samples) {
    const double value = rms(samples);
    return value > 0.0 ? 20.0 * std::log10(value) : -std::numeric_limits<double>::infinity();
}

double toneAmplitude(std::span<const float> samples, double frequency, double sampleRate) {
    const double step = 2.0 * std::numbers::pi * frequency / sampleRate;
    double re = 0.0;
    double im = 0.0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        re += samples[i] * std::cos(step * static_cast<double>(i));
        im -= samples[i] * std::sin(step * static_cast<double>(i));
    }
    return 2.0 * std::hypot(re, im) / static_cast<double>(samples.size());
}

} // namespace tesk::test
