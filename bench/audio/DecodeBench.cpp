// What opening a song costs: decoding a four-minute MP3 into the cache, against FFmpeg's own
// command-line tool decoding the same file to nowhere, and how soon playback could start.
#include "audio/TeskExtendedAudioFile.h"
#include "support/TeskBench.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kSongSeconds = 240;
constexpr int kRate = 44100;

/// The benchmark song, made once per run: two tones and a slow sweep over noise, so the encoder
/// has music-like work on both channels.
const QString& songPath() {
    static QTemporaryDir folder;
    static const QString path = [] {
        const QString raw = folder.filePath(QStringLiteral("song.f32"));
        const QString mp3 = folder.filePath(QStringLiteral("song.mp3"));
        std::vector<float> interleaved(std::size_t(2) * kSongSeconds * kRate);
        std::mt19937 generator(5);
        std::uniform_real_distribution<float> noise(-0.15f, 0.15f);
        for (std::size_t i = 0; i < interleaved.size() / 2; ++i) {
            const double t = double(i) / kRate;
            const double sweep = std::sin(2.0 * M_PI * (200.0 * t + 2.0 * t * t));
            interleaved[2 * i] =
                float(0.3 * std::sin(2.0 * M_PI * 220.0 * t) + 0.2 * sweep) + noise(generator);
            interleaved[2 * i + 1] =
                float(0.3 * std::sin(2.0 * M_PI * 330.0 * t) + 0.2 * sweep) + noise(generator);
        }
        QFile file(raw);
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        file.write(reinterpret_cast<const char*>(interleaved.data()),
                   qint64(interleaved.size() * sizeof(float)));
        file.close();
        const int status =
            QProcess::execute(QStringLiteral("ffmpeg"),
                              {"-nostdin", "-y", "-v", "error", "-f", "f32le", "-ar", "44100",
                               "-ac", "2", "-i", raw, "-c:a", "libmp3lame", "-b:a", "192k", mp3});
        QFile::remove(raw);
        return status == 0 ? mp3 : QString();
    }();
    return path;
}

std::unique_ptr<tesk::TeskExtendedAudioFile> open(benchmark::State& state) {
    if (songPath().isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return nullptr;
    }
    std::optional<tesk::TeskError> error;
    auto file = tesk::TeskExtendedAudioFile::openForPlayback(songPath(), &error);
    if (!file)
        state.SkipWithError(error ? error->description().toStdString().c_str() : "no error");
    return file;
}

double residentMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stod(line.substr(6)) / 1024.0;
    }
    return 0.0;
}

/// How much of Tesk's own memory decoding takes: the decoded song goes to the cache file, so
/// the growth should not depend on the song's length.
void BM_DecodeMemory(benchmark::State& state) {
    // First of the benchmarks, so no earlier decoding has left memory for this one to reuse.
    songPath();
    double peakGrowth = 0.0;
    for (auto _ : state) {
        const double before = residentMegabytes();
        auto file = open(state);
        if (!file)
            return;
        while (!file->isDecodingFinished()) {
            peakGrowth = std::max(peakGrowth, residentMegabytes() - before);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    state.counters["peak_rss_growth_MB"] = peakGrowth;
}
BENCHMARK(BM_DecodeMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

void BM_DecodeMp3ToCache(benchmark::State& state) {
    songPath();
    for (auto _ : state) {
        auto file = open(state);
        if (!file)
            return;
        file->waitUntilDecoded();
        benchmark::DoNotOptimize(file->frameCount());
    }
}
BENCHMARK(BM_DecodeMp3ToCache)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

/// The anchor: FFmpeg's tool decoding and converting the same song to the engine's rate and
/// channels, writing nowhere.
void BM_FfmpegDecodeMp3(benchmark::State& state) {
    if (songPath().isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    for (auto _ : state) {
        const int status = QProcess::execute(
            QStringLiteral("ffmpeg"), {"-nostdin", "-y", "-v", "quiet", "-i", songPath(), "-f",
                                       "f32le", "-ar", "44100", "-ac", "2", "/dev/null"});
        if (status != 0)
            state.SkipWithError("ffmpeg failed");
    }
}
BENCHMARK(BM_FfmpegDecodeMp3)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

/// From asking for the song to the moment the first 4096 frames (the file player's first
/// buffer) can be read: how long a musician waits before the song can start playing.
void BM_OpenToFirstFrames(benchmark::State& state) {
    songPath();
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        auto file = open(state);
        if (!file)
            return;
        while (file->decodedFrameCount() < 4096 && !file->isDecodingFinished())
            std::this_thread::yield();
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
}
BENCHMARK(BM_OpenToFirstFrames)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(30);

/// How long closing a song that is still decoding keeps the caller waiting.
void BM_StopWhileDecoding(benchmark::State& state) {
    songPath();
    for (auto _ : state) {
        auto file = open(state);
        if (!file)
            return;
        while (file->decodedFrameCount() < 10 * 44100 && !file->isDecodingFinished())
            std::this_thread::yield();
        const auto start = std::chrono::steady_clock::now();
        file->stopDecoding();
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
}
BENCHMARK(BM_StopWhileDecoding)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(30);

const bool declared = [] {
    QCoreApplication::setApplicationName(QStringLiteral("TeskBench"));
    tesk::bench::declareRatioTarget("decode_4min_mp3",
                                    "BM_DecodeMp3ToCache/min_time:3.000/real_time",
                                    "BM_FfmpegDecodeMp3/min_time:3.000/real_time", 1.1);
    tesk::bench::declareTarget("open_to_first_frames",
                               "BM_OpenToFirstFrames/iterations:30/manual_time", "ms", 1e-6, 50);
    return true;
}();

} // namespace
