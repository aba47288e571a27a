#include "support/Signals.h"

#include "audio/dsp/SVocalRemover.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <random>

namespace tesk::test {

Stereo Stereo::side(const std::vector<float>& samples) {
    Stereo stereo{samples, std::vector<float>(samples.size())};
    std::transform(samples.begin(), samples.end(), stereo.right.begin(), std::negate<float>());
    return stereo;
}

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

void addToneBurst(std::vector<float>& samples, double centre, double sigma, double frequency,
                  double amplitude) {
    const auto first = static_cast<std::size_t>(std::max(0.0, centre - 6.0 * sigma));
    const auto end = std::min(samples.size(), static_cast<std::size_t>(centre + 6.0 * sigma));
    const double step = 2.0 * std::numbers::pi * frequency / kSampleRate;
    for (std::size_t i = first; i < end; ++i) {
        const double t = (static_cast<double>(i) - centre) / sigma;
        samples[i] += static_cast<float>(amplitude * std::exp(-0.5 * t * t) *
                                         std::sin(step * static_cast<double>(i)));
    }
}

Stereo throughVocalRemover(SVocalRemover& remover, Stereo input) {
    constexpr std::uint32_t kSlice = 512;
    for (std::size_t start = 0; start + kSlice <= input.left.size(); start += kSlice) {
        remover.addInput(0, input.left.data() + start, kSlice);
        remover.addInput(1, input.right.data() + start, kSlice);
        remover.process();
        remover.getOutput(0, input.left.data() + start, kSlice);
        remover.getOutput(1, input.right.data() + start, kSlice);
    }
    return input;
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

double energyCentre(std::span<const float> samples) {
    double moment = 0.0;
    double energy = 0.0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        moment += static_cast<double>(samples[i]) * samples[i] * static_cast<double>(i);
        energy += static_cast<double>(samples[i]) * samples[i];
    }
    return moment / energy;
}

double largestStep(std::span<const float> samples) {
    double largest = 0.0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        largest = std::max(largest, static_cast<double>(std::abs(samples[i] - samples[i - 1])));
    return largest;
}

std::size_t longestQuiet(std::span<const float> samples, float level) {
    std::size_t quiet = 0;
    std::size_t longest = 0;
    for (const float sample : samples) {
        quiet = std::abs(sample) < level ? quiet + 1 : 0;
        longest = std::max(longest, quiet);
    }
    return longest;
}

std::vector<float> bandPass(std::span<const float> samples, double low, double high,
                            double sampleRate) {
    // Four biquads per edge, with the Q of each pole pair of an 8th-order Butterworth filter.
    constexpr double kQualities[] = {0.50979558, 0.60134489, 0.89997622, 2.56291545};
    std::vector<double> signal(samples.begin(), samples.end());
    const auto filter = [&](double frequency, double quality, bool highPass) {
        // R. Bristow-Johnson's cookbook high- and low-pass.
        const double omega = 2.0 * std::numbers::pi * frequency / sampleRate;
        const double alpha = std::sin(omega) / (2.0 * quality);
        const double cosine = std::cos(omega);
        const double a0 = 1.0 + alpha;
        const double b1 = (highPass ? -(1.0 + cosine) : 1.0 - cosine) / a0;
        const double b0 = std::abs(b1) / 2.0;
        const double a1 = -2.0 * cosine / a0;
        const double a2 = (1.0 - alpha) / a0;
        double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
        for (double& value : signal) {
            const double y = b0 * value + b1 * x1 + b0 * x2 - a1 * y1 - a2 * y2;
            x2 = x1;
            x1 = value;
            y2 = y1;
            y1 = y;
            value = y;
        }
    };
    for (const double quality : kQualities) {
        filter(low, quality, true);
        filter(high, quality, false);
    }
    return {signal.begin(), signal.end()};
}

} // namespace tesk::test
