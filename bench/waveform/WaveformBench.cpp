// How soon a song's waveform can be drawn: the whole summary from opening the song, against
// FFmpeg's own tool decoding the same song to nowhere; the first block on the main thread; and
// the outline the view asks for at every repaint.
#include "audio/TeskExtendedAudioFile.h"
#include "support/BenchApplication.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"
#include "waveform/Waveform.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <functional>

namespace {

using namespace tesk;
using Clock = std::chrono::steady_clock;

constexpr int kSongSeconds = 240;

/// Runs the main thread's event loop, as the application would, until `done`. The waveform's
/// hand-overs wake the loop themselves; the timer only notices the end of a scan.
void runEventLoopUntil(const std::function<bool()>& done) {
    QEventLoop loop;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (done())
            loop.quit();
    });
    timer.start(1);
    if (!done())
        loop.exec();
}

/// Notes when each block reaches the main thread.
struct Arrivals : WaveformDelegate {
    int blocks = 0;
    Clock::time_point last;
    void waveformHasAvailableFrames(Waveform*, FrameRange) override {
        last = Clock::now();
        ++blocks;
    }
};

std::shared_ptr<const TeskExtendedAudioFile> openSong(benchmark::State& state) {
    const QString path = test::generatedSongFile(kSongSeconds);
    if (path.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return nullptr;
    }
    std::optional<TeskError> error;
    std::shared_ptr<const TeskExtendedAudioFile> song =
        TeskExtendedAudioFile::openForPlayback(path, &error);
    if (!song)
        state.SkipWithError(error ? error->description().toStdString().c_str() : "no error");
    return song;
}

/// From opening the song (the document's one decode, which the player shares) to the last
/// block on the main thread.
void BM_OpenToCompleteWaveform(benchmark::State& state) {
    bench::application();
    test::generatedSongFile(kSongSeconds);
    for (auto _ : state) {
        const auto start = Clock::now();
        const auto song = openSong(state);
        if (!song)
            return;
        Arrivals arrivals;
        Waveform waveform(song, QUrl(), &arrivals);
        runEventLoopUntil([&] { return !waveform.isScanning(); });
        state.SetIterationTime(std::chrono::duration<double>(arrivals.last - start).count());
        state.counters["blocks"] = arrivals.blocks;
    }
}
BENCHMARK(BM_OpenToCompleteWaveform)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);

/// Decoding alone, for what the waveform adds to it.
void BM_OpenToDecoded(benchmark::State& state) {
    test::generatedSongFile(kSongSeconds);
    for (auto _ : state) {
        const auto song = openSong(state);
        if (!song)
            return;
        song->waitUntilDecoded();
    }
}
BENCHMARK(BM_OpenToDecoded)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

/// The anchor: FFmpeg's tool decoding and converting the same song to the engine's rate and
/// channels, writing nowhere.
void BM_FfmpegDecodeMp3(benchmark::State& state) {
    const QString path = test::generatedSongFile(kSongSeconds);
    if (path.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    for (auto _ : state) {
        if (!test::encodeWithFfmpeg(path, "/dev/null", {"-f", "f32le", "-ar", "44100", "-ac", "2"}))
            state.SkipWithError("ffmpeg failed");
    }
}
BENCHMARK(BM_FfmpegDecodeMp3)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

/// From opening the song to its first two seconds drawable.
void BM_OpenToFirstBlock(benchmark::State& state) {
    bench::application();
    test::generatedSongFile(kSongSeconds);
    for (auto _ : state) {
        const auto start = Clock::now();
        const auto song = openSong(state);
        if (!song)
            return;
        Arrivals arrivals;
        Waveform waveform(song, QUrl(), &arrivals);
        runEventLoopUntil([&] { return arrivals.blocks > 0 || !waveform.isScanning(); });
        state.SetIterationTime(std::chrono::duration<double>(arrivals.last - start).count());
    }
}
BENCHMARK(BM_OpenToFirstBlock)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(30);

/// Ten minutes of tones whose loudness swells and fades, made as they are read, so the song
/// needs no memory of its own.
class GeneratedTones : public DecodedFrames {
public:
    qint64 frameCount() const override { return 600 * 44100; }
    qint64 decodedFrameCount() const override { return frameCount(); }
    bool isDecodingFinished() const override { return true; }
    qint64 readFrames(qint64 start, qint64 count, float* left, float* right) const override {
        const qint64 end = std::min(start + count, frameCount());
        for (qint64 frame = start; frame < end; ++frame) {
            const double t = double(frame) / 44100.0;
            const double swell = 0.5 + 0.4 * std::sin(2 * M_PI * 0.3 * t);
            left[frame - start] = float(swell * std::sin(2 * M_PI * 220.0 * t));
            right[frame - start] = float(swell * std::sin(2 * M_PI * 330.0 * t));
        }
        return std::max<qint64>(end - start, 0);
    }
};

/// The outline of a ten-minute song across a 1500-point view at zoom 0.
void BM_PathForWideRectAtZoomZero(benchmark::State& state) {
    bench::application();
    const auto song = std::make_shared<GeneratedTones>();
    Waveform waveform(song, QUrl(), nullptr);
    runEventLoopUntil([&] { return !waveform.isScanning(); });
    const double width = 1500.0;
    const double maximumZoom = double(song->frameCount()) / (width * 50.0) - 1.0;
    int vertices = 0;
    for (auto _ : state) {
        const auto path = waveform.createPathForRect({0, 0, width, 100}, maximumZoom, 0.0);
        vertices = path ? path->elementCount() : 0;
        benchmark::DoNotOptimize(path);
    }
    state.counters["vertices"] = vertices;
}
BENCHMARK(BM_PathForWideRectAtZoomZero)->Unit(benchmark::kMicrosecond);

const bool declared = [] {
    bench::declareRatioTarget("waveform_4min_mp3",
                              "BM_OpenToCompleteWaveform/min_time:3.000/manual_time",
                              "BM_FfmpegDecodeMp3/min_time:3.000/real_time", 1.1);
    bench::declareTarget("waveform_first_block", "BM_OpenToFirstBlock/iterations:30/manual_time",
                         "ms", 1e-6, 50);
    bench::declareTarget("waveform_path_1500_points", "BM_PathForWideRectAtZoomZero", "ms", 1e-6,
                         1);
    return true;
}();

} // namespace
