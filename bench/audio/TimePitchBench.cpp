// What slowing down and transposing costs: the share of one core that a second of output takes
// at half speed and three semitones up, through the time-pitch stage alone, through the stages
// of the output chain around it, and through the Rubber Band command-line tool (run as a
// separate process on the same audio, same engine and options) as an anchor.
#include "audio/TimePitchStage.h"
#include "audio/dsp/GraphicEqualizer.h"
#include "audio/dsp/SVocalRemover.h"
#include "support/TeskBench.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kSliceFrames = 512;
constexpr std::uint32_t kFramesPerSecond = 44100;
constexpr double kRate = 0.5;
constexpr double kCents = 300.0;
constexpr std::size_t kSongFrames = 8 * kFramesPerSecond;

struct Song {
    std::vector<float> left;
    std::vector<float> right;
};

// Eight seconds of something like a band: a bass line and a chord that change every half
// second, each panned its own way, and a decaying noise hit on every beat, so the stretcher
// meets both steady tones and transients and the channels differ.
const Song& song() {
    static const Song generated = [] {
        Song song{std::vector<float>(kSongFrames), std::vector<float>(kSongFrames)};
        std::mt19937 generator(11);
        std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
        const double roots[] = {110.0, 146.8, 164.8, 123.5};
        for (std::size_t i = 0; i < kSongFrames; ++i) {
            const double t = static_cast<double>(i) / kFramesPerSecond;
            const double root = roots[static_cast<std::size_t>(t * 2.0) % 4];
            const double beat = std::fmod(t, 0.5);
            const double bass = 0.3 * std::sin(2.0 * std::numbers::pi * root * t);
            double chord = 0.0;
            for (const double ratio : {2.0, 2.52, 3.0})
                chord += 0.08 * std::sin(2.0 * std::numbers::pi * root * ratio * t);
            const double hit = 0.4 * std::exp(-beat * 30.0) * noise(generator);
            song.left[i] = static_cast<float>(bass + 0.8 * chord + hit);
            song.right[i] = static_cast<float>(bass + 0.4 * chord + 0.7 * hit);
        }
        return song;
    }();
    return generated;
}

// Plays the song over and over, as long as it is pulled.
class LoopingSource : public tesk::TimePitchStage::Source {
public:
    std::uint32_t pull(float* const* input, std::uint32_t frameCount) override {
        const Song& samples = song();
        for (std::uint32_t i = 0; i < frameCount; ++i) {
            input[0][i] = samples.left[mPosition];
            input[1][i] = samples.right[mPosition];
            mPosition = (mPosition + 1) % kSongFrames;
        }
        return frameCount;
    }

private:
    std::size_t mPosition = 0;
};

// The equalizer in front of the stretcher, as the output chain puts it.
class EqualizedSource : public tesk::TimePitchStage::Source {
public:
    EqualizedSource()
        : mEqualizer(kFramesPerSecond) {
        mEqualizer.setBandGains({3, 2, 0, -2, -4, 0, 2, 4, 2, 0});
    }

    std::uint32_t pull(float* const* input, std::uint32_t frameCount) override {
        const std::uint32_t count = mSong.pull(input, frameCount);
        mEqualizer.process(input, count);
        return count;
    }

private:
    LoopingSource mSong;
    tesk::GraphicEqualizer mEqualizer;
};

// The stretcher at half speed and three semitones up, alone or with the stages of the output
// chain that do real work on every frame around it: the equalizer before and the vocal remover
// after (the spectrum feed and the pan mix have their own benchmarks and cost a fraction of a
// percent). Made past its start-up.
class Stretch {
public:
    Stretch(tesk::TimePitchQuality quality, bool inChain)
        : mStage(kFramesPerSecond, quality)
        , mSource(inChain ? static_cast<tesk::TimePitchStage::Source&>(mEqualized) : mSong) {
        mStage.setRate(kRate);
        mStage.setPitchCents(kCents);
        if (inChain) {
            mRemover.emplace(2, 4096);
            mRemover->setLowFrequency(120.0);
            mRemover->setHighFrequency(2800.0);
        }
        renderSecond();
    }

    void renderSecond() {
        for (std::uint32_t frame = 0; frame < kFramesPerSecond; frame += kSliceFrames)
            renderSlice(std::min(kSliceFrames, kFramesPerSecond - frame));
        benchmark::ClobberMemory();
    }

private:
    void renderSlice(std::uint32_t frames) {
        float* output[] = {mLeft.data(), mRight.data()};
        mStage.render(output, frames, mSource);
        if (!mRemover)
            return;
        mRemover->addInput(0, mLeft.data(), frames);
        mRemover->addInput(1, mRight.data(), frames);
        mRemover->process();
        mRemover->getOutput(0, mLeft.data(), frames);
        mRemover->getOutput(1, mRight.data(), frames);
    }

    tesk::TimePitchStage mStage;
    LoopingSource mSong;
    EqualizedSource mEqualized;
    tesk::TimePitchStage::Source& mSource;
    std::optional<tesk::SVocalRemover> mRemover;
    std::vector<float> mLeft = std::vector<float>(kSliceFrames);
    std::vector<float> mRight = std::vector<float>(kSliceFrames);
};

// One iteration is one second of output; the argument is the quality, then whether the chain's
// other stages run too.
void BM_TimePitch(benchmark::State& state) {
    Stretch stretch(static_cast<tesk::TimePitchQuality>(state.range(0)), state.range(1) != 0);
    for (auto _ : state)
        stretch.renderSecond();
}
BENCHMARK(BM_TimePitch)
    ->ArgsProduct({{static_cast<int>(tesk::TimePitchQuality::Standard),
                    static_cast<int>(tesk::TimePitchQuality::Light)},
                   {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->MinTime(3.0);

// A 32-bit float WAV of the song repeated `repeats` times.
void writeSongWav(const std::string& path, int repeats) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return;
    const auto frames = static_cast<std::uint32_t>(kSongFrames * repeats);
    const std::uint32_t dataBytes = frames * 2 * sizeof(float);
    const auto put32 = [&](std::uint32_t value) { std::fwrite(&value, 4, 1, file); };
    const auto put16 = [&](std::uint16_t value) { std::fwrite(&value, 2, 1, file); };
    std::fwrite("RIFF", 1, 4, file);
    put32(36 + dataBytes);
    std::fwrite("WAVEfmt ", 1, 8, file);
    put32(16);
    put16(3); // IEEE float
    put16(2);
    put32(kFramesPerSecond);
    put32(kFramesPerSecond * 2 * sizeof(float));
    put16(2 * sizeof(float));
    put16(32);
    std::fwrite("data", 1, 4, file);
    put32(dataBytes);
    const Song& samples = song();
    for (int repeat = 0; repeat < repeats; ++repeat) {
        for (std::size_t i = 0; i < kSongFrames; ++i) {
            const float frame[] = {samples.left[i], samples.right[i]};
            std::fwrite(frame, sizeof(float), 2, file);
        }
    }
    std::fclose(file);
}

// Against an anchor: Debian's `rubberband` tool in real-time mode with the default quality's
// engine and pitch method (a pitch map is what selects the high-consistency method there), over
// 16 s of the song, timed as a whole process. The stage alone, the stages of the chain and the
// tool take turns, five times each, each making the same 32 s of output.
void BM_TimePitchAgainstTool(benchmark::State& state) {
    constexpr int kRepeats = 2;
    const std::string directory = std::filesystem::temp_directory_path().string();
    const std::string input = directory + "/tesk-timepitch-bench-in.wav";
    const std::string output = directory + "/tesk-timepitch-bench-out.wav";
    const std::string pitchMap = directory + "/tesk-timepitch-bench-map.txt";
    writeSongWav(input, kRepeats);
    if (std::FILE* map = std::fopen(pitchMap.c_str(), "w")) {
        std::fputs("0 0\n", map);
        std::fclose(map);
    }
    const std::string command = "rubberband -q -3 -t " + std::to_string(1.0 / kRate) + " -p " +
                                std::to_string(kCents / 100.0) + " --pitchmap " + pitchMap + " " +
                                input + " " + output + " > /dev/null 2>&1";
    const auto outputSeconds = static_cast<int>(kSongFrames * kRepeats / kFramesPerSecond / kRate);
    const auto stretched = [&](bool inChain) {
        Stretch stretch(tesk::TimePitchQuality::Standard, inChain);
        return tesk::bench::secondsTaken([&] {
            for (int second = 0; second < outputSeconds; ++second)
                stretch.renderSecond();
            return true;
        });
    };
    for (auto _ : state) {
        const auto medians = tesk::bench::medianSecondsInTurns(
            5, {[&] { return stretched(false); }, [&] { return stretched(true); },
                [&] {
                    return tesk::bench::secondsTaken(
                        [&] { return std::system(command.c_str()) == 0; });
                }});
        if (!medians) {
            state.SkipWithError("the rubberband tool (rubberband-cli) did not run");
            break;
        }
        const double tool = (*medians)[2];
        state.SetIterationTime(tool / outputSeconds);
        state.counters["stage_vs_tool"] = (*medians)[0] / tool;
        state.counters["chain_vs_tool"] = (*medians)[1] / tool;
    }
    std::remove(input.c_str());
    std::remove(output.c_str());
    std::remove(pitchMap.c_str());
}
BENCHMARK(BM_TimePitchAgainstTool)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

// Milliseconds per second of output are tenths of a percent of a core.
const bool declared = [] {
    using namespace tesk::bench;
    declareTarget("time_pitch_default_cpu", "BM_TimePitch/0/0/min_time:3.000", "%", 1e-7, 20.0);
    declareTarget("time_pitch_default_in_chain_cpu", "BM_TimePitch/0/1/min_time:3.000", "%", 1e-7,
                  20.0);
    const std::string turns = "BM_TimePitchAgainstTool/iterations:1/manual_time";
    declareCounterTarget("time_pitch_default_vs_rubberband_tool", turns, "stage_vs_tool", "x", 1.1);
    // The chain may add at most a tenth to what the stretcher alone costs in the tool.
    declareCounterTarget("chain_default_vs_rubberband_tool", turns, "chain_vs_tool", "x", 1.1);
    return true;
}();

} // namespace
