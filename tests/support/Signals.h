#pragma once

// Generated test signals and measurements on them: no sample files anywhere in the tests.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tesk {
class SVocalRemover;
}

namespace tesk::test {

constexpr double kSampleRate = 44100.0;

/// Two channels of samples; `centred` puts the same ones on both sides, `side` puts them on the
/// left and their negation on the right.
struct Stereo {
    std::vector<float> left;
    std::vector<float> right;
    static Stereo centred(const std::vector<float>& samples) { return {samples, samples}; }
    static Stereo side(const std::vector<float>& samples);
};

/// `frames` samples of a sine of `frequency` Hz and peak `amplitude`, starting at `phase`.
std::vector<float> sine(double frequency, double amplitude, std::size_t frames,
                        double sampleRate = kSampleRate, double phase = 0.0);

/// Uniform white noise in [-amplitude, amplitude], the same for the same seed.
std::vector<float> noise(double amplitude, std::size_t frames, std::uint32_t seed = 1);

/// The sample-by-sample sum of two signals of equal length.
std::vector<float> mix(std::span<const float> a, std::span<const float> b);

/// Adds a `frequency` Hz tone burst of peak `amplitude` under a Gaussian envelope of `sigma`
/// frames centred on frame `centre`. A time stretcher keeps so smooth a burst in place, whereas
/// it deliberately moves a sharp attack by a few milliseconds.
void addToneBurst(std::vector<float>& samples, double centre, double sigma,
                  double frequency = 2000.0, double amplitude = 0.8);

/// `input` through `remover` in 512-frame slices, as the output chain calls it: each slice goes
/// in, is processed, and whatever is ready comes back into the same buffers, which otherwise
/// keep the unprocessed frames.
Stereo throughVocalRemover(SVocalRemover& remover, Stereo input);

/// Root mean square, and the same in dB (20 log10); a silent signal gives -infinity.
double rms(std::span<const float> samples);
double rmsDb(std::span<const float> samples);

/// The amplitude of the `frequency` component of `samples` (a single-bin DFT, Goertzel),
/// scaled so a sine of peak A reads about A when the window holds whole periods.
double toneAmplitude(std::span<const float> samples, double frequency,
                     double sampleRate = kSampleRate);

/// The frame at the centre of the signal's energy: where a lone burst in silence lies.
double energyCentre(std::span<const float> samples);

/// The largest step between neighbouring samples: a click or a seam shows as a jump.
double largestStep(std::span<const float> samples);

/// The most samples in a row quieter than `level`: a gap in the sound.
std::size_t longestQuiet(std::span<const float> samples, float level = 0.01f);

/// `samples` through an 8th-order Butterworth high-pass at `low` Hz and low-pass at `high` Hz:
/// 48 dB per octave outside the band, so what is left can be measured as the band's content.
std::vector<float> bandPass(std::span<const float> samples, double low, double high,
                            double sampleRate = kSampleRate);

} // namespace tesk::test
