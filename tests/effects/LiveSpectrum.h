#pragma once

// A playing song's spectrum for the effect editors' tests, pictures and benchmarks: a bass line,
// a chord with its overtones and a little noise, slightly different on the two sides, run
// through the engine's own spectrum analyzer.

#include "audio/SSpectrumAnalyzer.h"

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace tesk::test {

struct LiveSpectrum {
    std::vector<float> frequencyTable;
    std::vector<float> left;
    std::vector<float> right;
};

inline LiveSpectrum liveSpectrum(std::uint32_t seed = 3) {
    const AudioStreamDescription format = AudioStreamDescription::engineFormat();
    SSpectrumAnalyzer analyzer(format);
    constexpr std::uint32_t kFrames = SSpectrumAnalyzer::kBlockFrames * 4;
    AudioBufferStorage song(format, kFrames);
    std::mt19937 generator(seed);
    std::normal_distribution<float> noise(0.0f, 0.01f);
    const double notes[] = {82.4, 164.8, 261.6, 329.6, 392.0, 523.3, 659.3};
    int channel = 0;
    for (AudioBuffer& buffer : song.list().active()) {
        for (std::uint32_t i = 0; i < buffer.sampleCount; ++i) {
            const double t = double(i) / format.sampleRate;
            double sample = noise(generator);
            for (double note : notes)
                for (int overtone = 1; overtone <= 6; ++overtone)
                    sample += 0.08 / (overtone * overtone) * (channel == 0 ? 1.0 : 0.7) *
                              std::sin(2.0 * M_PI * note * overtone * t + overtone);
            buffer.data[i] = float(sample);
        }
        ++channel;
    }
    analyzer.copyFromAudioBufferList(song.list(), kFrames);
    return {analyzer.frequencyTable(), analyzer.spectrumForChannel(0),
            analyzer.spectrumForChannel(1)};
}

} // namespace tesk::test
