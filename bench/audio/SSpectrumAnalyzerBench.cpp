// What the spectrum feed costs the audio thread: one second of playing stereo audio, copied in
// the way the output chain does it, a render slice at a time.
#include "audio/SSpectrumAnalyzer.h"
#include "support/TeskBench.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t kSliceFrames = 512;
constexpr std::uint32_t kFramesPerSecond = 44100;

void BM_SpectrumAnalyzerPerAudioSecond(benchmark::State& state) {
    tesk::SSpectrumAnalyzer analyzer(tesk::AudioStreamDescription::engineFormat());
    tesk::AudioBufferStorage second(tesk::AudioStreamDescription::engineFormat(), kFramesPerSecond);
    // Music-like content: a tone over noise, so no stage can take a shortcut on silence.
    std::mt19937 generator(7);
    std::uniform_real_distribution<float> noise(-0.2f, 0.2f);
    for (tesk::AudioBuffer& buffer : second.list().active()) {
        for (std::uint32_t i = 0; i < buffer.sampleCount; ++i)
            buffer.data[i] = 0.5f * std::sin(0.0712f * static_cast<float>(i)) + noise(generator);
    }

    for (auto _ : state) {
        for (std::uint32_t offset = 0; offset < kFramesPerSecond; offset += kSliceFrames) {
            tesk::AudioBufferList slice = second.list();
            for (tesk::AudioBuffer& buffer : slice.active())
                buffer.data += offset;
            analyzer.copyFromAudioBufferList(slice,
                                             std::min(kSliceFrames, kFramesPerSecond - offset));
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(analyzer.spectrum());
}
BENCHMARK(BM_SpectrumAnalyzerPerAudioSecond)->Unit(benchmark::kMillisecond);

const bool declared = [] {
    tesk::bench::declareTarget("spectrum_analyzer_per_audio_second",
                               "BM_SpectrumAnalyzerPerAudioSecond", "ms", 1e-6, 2.0);
    return true;
}();

} // namespace
