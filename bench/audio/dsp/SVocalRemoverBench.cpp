// The vocal remover runs inside every render slice while it is on, so what matters is its cost
// per second of audio: it must stay a small share of the audio thread's budget.
#include "audio/dsp/SVocalRemover.h"
#include "support/TeskBench.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t kSampleRate = 44100;
constexpr std::uint32_t kSlice = 512;

// A second of a centred tone over uncorrelated noise, so both the band and the side path carry
// signal.
std::vector<float> channel(std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> noise(-0.1f, 0.1f);
    std::vector<float> samples(kSampleRate);
    for (std::uint32_t i = 0; i < kSampleRate; ++i)
        samples[i] =
            0.4f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 1000.0 * i / kSampleRate)) +
            noise(generator);
    return samples;
}

// One second of 44.1 kHz stereo, rendered in slices as the output chain does: both channels in,
// process, both channels back into the same buffers.
void BM_VocalRemoverOneSecond(benchmark::State& state) {
    const std::vector<float> left = channel(1);
    const std::vector<float> right = channel(2);
    std::vector<float> leftBuffer(kSlice);
    std::vector<float> rightBuffer(kSlice);
    tesk::SVocalRemover remover(2, 4096);

    for (auto _ : state) {
        for (std::uint32_t start = 0; start < kSampleRate; start += kSlice) {
            const std::uint32_t frames = std::min(kSlice, kSampleRate - start);
            std::copy_n(left.begin() + start, frames, leftBuffer.begin());
            std::copy_n(right.begin() + start, frames, rightBuffer.begin());
            remover.addInput(0, leftBuffer.data(), frames);
            remover.addInput(1, rightBuffer.data(), frames);
            remover.process();
            remover.getOutput(0, leftBuffer.data(), frames);
            remover.getOutput(1, rightBuffer.data(), frames);
            benchmark::DoNotOptimize(leftBuffer.data());
            benchmark::DoNotOptimize(rightBuffer.data());
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kSampleRate);
}
BENCHMARK(BM_VocalRemoverOneSecond)->Unit(benchmark::kMillisecond);

// The remover has to keep well ahead of real time: 10 ms per second of audio is 1% of the
// audio thread.
const bool kTargetDeclared = [] {
    tesk::bench::declareTarget("vocal_remover_per_audio_second", "BM_VocalRemoverOneSecond", "ms",
                               1e-6, 10.0);
    return true;
}();

} // namespace
