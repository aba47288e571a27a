// Tesk with its window, as the user meets it: how soon the first window is up, what playing with
// the effects panel shown costs the whole process next to headless playback, whether a restless
// user resizing the window makes the sound drop out, and the memory of a long song. Each run is a
// separate process, so its figures are its own.
#include "app/SingleInstance.h"
#include "support/BenchApplication.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <thread>
#include <unistd.h>

namespace {

using namespace tesk;
using Clock = std::chrono::steady_clock;

/// A settings, data and runtime folder of the benchmark's own, so no Tesk of the user's answers,
/// the user's settings stay untouched, and the copies kept of the practice in the windows it
/// ends are not offered back at the user's next start; children inherit it.
const QTemporaryDir& privateSession() {
    static QTemporaryDir folder;
    static const bool set = [] {
        qputenv("XDG_RUNTIME_DIR", folder.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", (folder.path() + QStringLiteral("/config")).toUtf8());
        qputenv("XDG_DATA_HOME", (folder.path() + QStringLiteral("/data")).toUtf8());
        qputenv("XDG_SESSION_ID", QByteArray("bench-") + QByteArray::number(qint64(getpid())));
        return true;
    }();
    (void)set;
    return folder;
}

/// The probe's "name value" lines.
std::map<QString, double> probeFigures(const QString& song, int seconds, bool resize) {
    QProcess probe;
    QStringList arguments{song, QString::number(seconds)};
    if (resize)
        arguments << QStringLiteral("--resize");
    probe.start(QStringLiteral(TESK_WINDOW_PROBE), arguments);
    probe.waitForFinished((seconds + 60) * 1000);
    std::map<QString, double> figures;
    for (const QString& line : QString::fromLocal8Bit(probe.readAllStandardOutput()).split(u'\n')) {
        if (line.count(u' ') == 1)
            figures[line.section(u' ', 0, 0)] = line.section(u' ', 1).toDouble();
    }
    if (probe.exitCode() != 0)
        figures.clear();
    return figures;
}

/// User and system processor seconds a running process has used so far.
double processCpuSeconds(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1.0;
    // The command name may hold spaces; the fields after its closing parenthesis do not.
    const QByteArray text = stat.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const double ticks = double(sysconf(_SC_CLK_TCK));
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) / ticks;
}

// --- Start-up -------------------------------------------------------------------------------

/// The floor any program pays: starting tesk-render, loading its libraries, printing its help.
void BM_TeskRenderHelp(benchmark::State& state) {
    bench::application();
    for (auto _ : state) {
        QProcess render;
        render.start(QStringLiteral(TESK_RENDER_PATH), {QStringLiteral("--help")});
        render.waitForFinished(10000);
    }
}
BENCHMARK(BM_TeskRenderHelp)->Iterations(10)->Unit(benchmark::kMillisecond);

/// From starting `tesk` to its first window shown and its event loop answering: the moment a
/// later start could hand it files.
void BM_TeskFirstWindow(benchmark::State& state) {
    bench::application();
    privateSession();
    for (auto _ : state) {
        SingleInstance later;
        QProcess tesk;
        const auto started = Clock::now();
        tesk.start(QStringLiteral(TESK_PATH), {});
        bool answered = false;
        while (!answered && Clock::now() - started < std::chrono::seconds(10)) {
            answered = later.handOver({}, 10000);
            if (!answered)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - started).count());
        tesk.terminate();
        tesk.waitForFinished(5000);
        if (!answered) {
            state.SkipWithError("tesk did not come up");
            return;
        }
    }
}
BENCHMARK(BM_TeskFirstWindow)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

// --- Opening a song ------------------------------------------------------------------------

/// The floor for opening a song: ffmpeg decoding the same 4-minute MP3 to the engine's format and
/// throwing it away, process start included.
void BM_FfmpegDecode(benchmark::State& state) {
    bench::application();
    const QString song = test::generatedSongFile(240);
    for (auto _ : state) {
        QProcess ffmpeg;
        const auto started = Clock::now();
        ffmpeg.start(QStringLiteral("ffmpeg"), {"-nostdin", "-y", "-v", "error", "-i", song, "-f",
                                                "f32le", "-ar", "44100", "-ac", "2", "/dev/null"});
        if (!ffmpeg.waitForFinished(60000) || ffmpeg.exitCode() != 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - started).count());
    }
}
BENCHMARK(BM_FfmpegDecode)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

/// From starting Tesk with the song on its command line to its window having painted the
/// song's complete waveform.
void BM_OpenToWaveformDrawn(benchmark::State& state) {
    bench::application();
    privateSession();
    const QString song = test::generatedSongFile(240);
    for (auto _ : state) {
        QProcess probe;
        const auto started = Clock::now();
        probe.start(QStringLiteral(TESK_WINDOW_PROBE),
                    {song, QStringLiteral("60"), QStringLiteral("--until-drawn")});
        // The moment the probe says so: the user sees the waveform then, whatever tearing the
        // process down costs afterwards.
        QByteArray said;
        while (!said.contains("drawn_seconds") && probe.waitForReadyRead(70000))
            said += probe.readAllStandardOutput();
        const auto drawn = Clock::now();
        if (!probe.waitForFinished(10000) || probe.exitCode() != 0 ||
            !said.contains("drawn_seconds")) {
            state.SkipWithError("the window probe did not draw the waveform");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(drawn - started).count());
    }
}
BENCHMARK(BM_OpenToWaveformDrawn)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

// --- Playing with the window ----------------------------------------------------------------

constexpr int kCpuSeconds = 20;
/// Both ways of playing are measured once the song has opened, decoded and (in the window)
/// been scanned: from this many seconds in.
constexpr int kSettleSeconds = 5;

/// Processor seconds per second of playing at 0.5x and +3 semitones with every effect on, the
/// effects panel shown: the whole process, window and all. The iteration time is that ratio.
void BM_WindowPlaybackCpu(benchmark::State& state) {
    bench::application();
    privateSession();
    const QString song = test::generatedSongFile(240);
    for (auto _ : state) {
        const auto figures = probeFigures(song, kSettleSeconds + kCpuSeconds, false);
        if (figures.empty() || figures.at(QStringLiteral("playing")) != 1.0) {
            state.SkipWithError("the window probe did not play");
            return;
        }
        const double cpu = figures.at(QStringLiteral("playing_cpu_seconds"));
        const double wall = figures.at(QStringLiteral("playing_wall_seconds"));
        state.SetIterationTime(cpu / wall);
        state.counters["cpu_percent"] = 100.0 * cpu / wall;
    }
}
BENCHMARK(BM_WindowPlaybackCpu)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

/// The same playing without a window: tesk-render through the sound device.
void BM_HeadlessPlaybackCpu(benchmark::State& state) {
    bench::application();
    const QString song = test::generatedSongFile(240);
    for (auto _ : state) {
        QProcess render;
        render.start(QStringLiteral(TESK_RENDER_PATH),
                     {QStringLiteral("--speed"), QStringLiteral("0.5"), QStringLiteral("--pitch"),
                      QStringLiteral("3"), QStringLiteral("--eq"), QStringLiteral("isolate-bass"),
                      QStringLiteral("--vocal-reduction"), QStringLiteral("male"),
                      QStringLiteral("--pan"), QStringLiteral("0.4"), QStringLiteral("-q"), song});
        if (!render.waitForStarted(5000)) {
            state.SkipWithError("tesk-render did not start");
            return;
        }
        std::this_thread::sleep_for(std::chrono::seconds(kSettleSeconds));
        const double cpuAtSettled = processCpuSeconds(render.processId());
        const auto started = Clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(kCpuSeconds));
        const double cpu = processCpuSeconds(render.processId()) - cpuAtSettled;
        const double wall = std::chrono::duration<double>(Clock::now() - started).count();
        render.terminate();
        render.waitForFinished(5000);
        if (cpuAtSettled < 0.0 || cpu < 0.0) {
            state.SkipWithError("tesk-render stopped early");
            return;
        }
        state.SetIterationTime(cpu / wall);
        state.counters["cpu_percent"] = 100.0 * cpu / wall;
    }
}
BENCHMARK(BM_HeadlessPlaybackCpu)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

/// Two minutes of playing while the window is resized and the effects panel toggled.
void BM_WindowResizeSoak(benchmark::State& state) {
    bench::application();
    privateSession();
    const QString song = test::generatedSongFile(240);
    for (auto _ : state) {
        const auto figures = probeFigures(song, 120, true);
        if (figures.empty() || figures.at(QStringLiteral("playing")) != 1.0) {
            state.SkipWithError("the window probe did not play");
            return;
        }
        state.counters["underruns"] = figures.at(QStringLiteral("underruns"));
    }
}
BENCHMARK(BM_WindowResizeSoak)->Iterations(1)->Unit(benchmark::kSecond);

/// Peak resident memory of Tesk with a 10-minute song open and playing in its window, until the
/// song has been decoded and scanned.
void BM_WindowTenMinuteSongMemory(benchmark::State& state) {
    bench::application();
    privateSession();
    const QString song = test::generatedSongFile(600);
    for (auto _ : state) {
        const auto figures = probeFigures(song, 10, false);
        if (figures.empty()) {
            state.SkipWithError("the window probe failed");
            return;
        }
        state.counters["peak_rss_mb"] = figures.at(QStringLiteral("peak_rss_kb")) / 1024.0;
    }
}
BENCHMARK(BM_WindowTenMinuteSongMemory)->Iterations(1)->Unit(benchmark::kSecond);

const bool declared = [] {
    bench::declareTarget("window_start_to_first_window",
                         "BM_TeskFirstWindow/iterations:10/manual_time", "s", 1e-9, 0.5);
    bench::declareRatioTarget("window_start_vs_render_help",
                              "BM_TeskFirstWindow/iterations:10/manual_time",
                              "BM_TeskRenderHelp/iterations:10", 3.0);
    bench::declareRatioTarget("window_open_to_waveform_drawn_vs_ffmpeg_decode",
                              "BM_OpenToWaveformDrawn/iterations:5/manual_time",
                              "BM_FfmpegDecode/iterations:5/manual_time", 1.2);
    bench::declareRatioTarget("window_playback_cpu_vs_headless",
                              "BM_WindowPlaybackCpu/iterations:1/manual_time",
                              "BM_HeadlessPlaybackCpu/iterations:1/manual_time", 1.4);
    bench::declareCounterTarget("window_resize_underruns", "BM_WindowResizeSoak/iterations:1",
                                "underruns", "count", 0.0);
    bench::declareCounterTarget("window_ten_minute_song_peak_memory",
                                "BM_WindowTenMinuteSongMemory/iterations:1", "peak_rss_mb", "MB",
                                200.0);
    return true;
}();

} // namespace
