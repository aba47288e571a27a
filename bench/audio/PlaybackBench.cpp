// Playback as the user meets it: what the whole chain costs, how fast a seek is heard, and
// whether a long session under a busy main thread ever leaves the device without sound.
#include "audio/ProcessingChainPool.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"
#include "support/BenchApplication.h"
#include "support/ManualSoundDevice.h"
#include "support/MemorySong.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <thread>

namespace {

using namespace tesk;

/// A generated song held in memory: tones over noise, so no stage sees silence.
std::shared_ptr<test::MemorySong> generatedSong(qint64 frames) {
    std::vector<float> left(static_cast<std::size_t>(frames));
    std::vector<float> right(static_cast<std::size_t>(frames));
    std::mt19937 generator(3);
    std::uniform_real_distribution<float> noise(-0.05f, 0.05f);
    for (std::size_t i = 0; i < left.size(); ++i) {
        const double t = double(i) / 44100.0;
        const float voice = float(0.3 * std::sin(2 * M_PI * 440.0 * t) *
                                  (0.6 + 0.4 * std::sin(2 * M_PI * 3.0 * t)));
        left[i] = voice + float(0.2 * std::sin(2 * M_PI * 110.0 * t)) + noise(generator);
        right[i] = voice + float(0.2 * std::sin(2 * M_PI * 165.0 * t)) + noise(generator);
    }
    return std::make_shared<test::MemorySong>(std::move(left), std::move(right));
}

/// Feeds the chain straight from a song, looping, without the reader's thread.
class SongSource : public ChainSource {
public:
    explicit SongSource(const DecodedFrames& song)
        : mSong(song) {}
    std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                               SourceRuns& runs) noexcept override {
        if (mPosition + frameCount > mSong.frameCount())
            mPosition = 0;
        runs.count = 1;
        runs.runs[0] = {0, mPosition, 1};
        mPosition += mSong.readFrames(mPosition, frameCount, buffers.buffers[0].data,
                                      buffers.buffers[1].data);
        return frameCount;
    }

private:
    const DecodedFrames& mSong;
    qint64 mPosition = 0;
};

void configureAllEffects(ProcessingChain& chain) {
    chain.setRate(0.5f);
    chain.setPitchCents(300.0f);
    chain.setEqualizerEnabled(true);
    chain.setEqualizerGains({3, 2, 0, -2, -4, -4, -2, 0, 2, 3});
    chain.setRemoveVocals(true);
    chain.setVocalBand(120.0, 2800.0);
    chain.setPanAdjust(true);
    chain.setPanAmount(0.4);
}

/// One second of output through the whole chain at 0.5x, +3 semitones, every effect on.
void BM_ChainAllEffectsPerOutputSecond(benchmark::State& state) {
    const auto song = generatedSong(44100 * 30);
    SongSource source(*song);
    ProcessingChain chain(44100.0, TimePitchQuality::Standard);
    chain.setSource(&source);
    configureAllEffects(chain);
    std::vector<float> left(512), right(512);
    for (int warm = 0; warm < 40; ++warm)
        chain.render(left.data(), right.data(), 512);
    for (auto _ : state) {
        for (int slice = 0; slice < 44100 / 512 + 1; ++slice)
            chain.render(left.data(), right.data(), 512);
        benchmark::DoNotOptimize(left.data());
    }
}
BENCHMARK(BM_ChainAllEffectsPerOutputSecond)->Unit(benchmark::kMillisecond)->MinTime(3.0);

/// Pulls one period from `device` and says whether it held sound. What the device keeps is
/// cleared first: its memory stays, so a timed pull never waits for a larger buffer.
bool pullHeldSound(test::ManualSoundDevice& device) {
    device.left.clear();
    device.right.clear();
    device.pull();
    return std::any_of(device.left.begin(), device.left.end(),
                       [](float sample) { return std::fabs(sample) > 1e-3f; });
}

/// From a seek to the moment the device is handed the new sound, plus one device period for the
/// device to play it.
void BM_SeekToSound(benchmark::State& state) {
    bench::application();
    TeskExtendedAudioFilePlayer player(generatedSong(44100 * 240), false);
    test::ManualSoundDevice* device = nullptr;
    player.outputAudioUnit()->setSoundDeviceFactory([&device](AudioRenderer& renderer) {
        auto made = std::make_unique<test::ManualSoundDevice>(renderer);
        device = made.get();
        return made;
    });
    player.setPlaybackSpeed(0.75f);
    player.setPlaybackPitchInSemitones(-2.0);
    player.startFilePlaying();
    std::mt19937 generator(5);
    std::uniform_int_distribution<qint64> where(0, 44100 * 230);
    const double period = double(TeskSoundDevice::kDefaultBufferFrames) / 44100.0;
    for (auto _ : state) {
        for (int i = 0; i < 20; ++i) // play a little first
            pullHeldSound(*device);
        const auto started = std::chrono::steady_clock::now();
        player.setCurrentFrame(where(generator));
        // The first pull right after the seek may still find the ring being emptied.
        while (!pullHeldSound(*device) &&
               std::chrono::steady_clock::now() - started < std::chrono::seconds(1))
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        state.SetIterationTime(seconds + period);
    }
    player.stopFilePlaying();
}
BENCHMARK(BM_SeekToSound)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);

/// Long playback at a 512-frame device period while the main thread is kept busy and keeps
/// changing every parameter: the device must never find the ring empty. TESK_SOAK_SECONDS sets
/// the length (ten minutes by default).
void BM_PlaybackSoak(benchmark::State& state) {
    bench::application();
    const char* configured = std::getenv("TESK_SOAK_SECONDS");
    const int seconds = configured ? std::max(1, std::atoi(configured)) : 600;
    for (auto _ : state) {
        TeskExtendedAudioFilePlayer player(generatedSong(44100 * 60), false);
        player.outputAudioUnit()->useSilentDevice();
        player.setEqualizerEnabled(true);
        player.setVocalRemoval(true);
        player.setPanAdjust(true);
        player.setLooping(true);
        player.setLoopRange({44100, 44100 * 50});
        player.startFilePlaying();
        QElapsedTimer elapsed;
        elapsed.start();
        volatile double busy = 0.0;
        for (int step = 0; elapsed.elapsed() < seconds * 1000; ++step) {
            // A busy main thread: 20 ms of work out of every 25.
            const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
            while (std::chrono::steady_clock::now() < until)
                busy = busy + std::sqrt(double(step));
            player.setPlaybackSpeed(0.5f + 0.05f * float(step % 20));
            player.setPlaybackPitchInSemitones(double(step % 9) - 4.0);
            TeskEqualizerSettings bands;
            bands.setBands({double(step % 7) - 3, 1, 2, 0, -2, 0, 1, -1, 2, 0});
            player.setEqualizerSettings(&bands);
            player.setPanAmount(double(step % 10) / 10.0);
            QCoreApplication::processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        state.counters["underruns"] = double(player.outputAudioUnit()->underrunCount());
        state.counters["seconds"] = seconds;
        player.stopFilePlaying();
    }
}
BENCHMARK(BM_PlaybackSoak)->Iterations(1)->Unit(benchmark::kSecond);

/// From opening a 4-minute MP3 to the device being handed its first sound, plus one device
/// period for the device to play it.
void BM_OpenToFirstSound(benchmark::State& state) {
    bench::application();
    const QString song = test::generatedSongFile(240);
    if (song.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    const double period = double(TeskSoundDevice::kDefaultBufferFrames) / 44100.0;
    for (auto _ : state) {
        // As Tesk does at start-up, and again once a song has opened, well before the user
        // opens the next one.
        ProcessingChainPool::prepare();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto started = std::chrono::steady_clock::now();
        std::optional<TeskError> error;
        std::shared_ptr<TeskExtendedAudioFile> file =
            TeskExtendedAudioFile::openForPlayback(song, &error);
        if (!file) {
            state.SkipWithError("the song did not open");
            return;
        }
        TeskExtendedAudioFilePlayer player(file, false);
        test::ManualSoundDevice* device = nullptr;
        player.outputAudioUnit()->setSoundDeviceFactory([&device](AudioRenderer& renderer) {
            auto made = std::make_unique<test::ManualSoundDevice>(renderer);
            device = made.get();
            return made;
        });
        player.startFilePlaying();
        while (!pullHeldSound(*device) &&
               std::chrono::steady_clock::now() - started < std::chrono::seconds(2))
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count() +
            period);
        player.stopFilePlaying();
    }
}
BENCHMARK(BM_OpenToFirstSound)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

/// How often each of this process's threads named `name` has given up the processor to wait,
/// summed: the kernel's count of voluntary context switches.
double wakeupsOfThreadsNamed(const QByteArray& name) {
    double wakeups = 0.0;
    for (const QString& task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs)) {
        QFile comm(QStringLiteral("/proc/self/task/%1/comm").arg(task));
        if (!comm.open(QIODevice::ReadOnly) || comm.readAll().trimmed() != name)
            continue;
        QFile status(QStringLiteral("/proc/self/task/%1/status").arg(task));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("voluntary_ctxt_switches:"))
                wakeups += line.mid(24).trimmed().toDouble();
    }
    return wakeups;
}

/// How many times a second the reader and the renderer wake while a song plays steadily into
/// the silent device: what hours of practice cost a laptop's battery when nothing changes.
void BM_PlaybackWakeups(benchmark::State& state) {
    bench::application();
    constexpr int kSeconds = 5;
    for (auto _ : state) {
        TeskExtendedAudioFilePlayer player(generatedSong(44100 * 60), false);
        player.outputAudioUnit()->useSilentDevice();
        player.startFilePlaying();
        std::this_thread::sleep_for(std::chrono::seconds(1)); // settled
        const double reader = wakeupsOfThreadsNamed("tesk-reader");
        const double renderer = wakeupsOfThreadsNamed("tesk-renderer");
        std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
        state.counters["reader_per_second"] =
            (wakeupsOfThreadsNamed("tesk-reader") - reader) / kSeconds;
        state.counters["renderer_per_second"] =
            (wakeupsOfThreadsNamed("tesk-renderer") - renderer) / kSeconds;
        player.stopFilePlaying();
    }
}
BENCHMARK(BM_PlaybackWakeups)->Iterations(1)->Unit(benchmark::kSecond);

/// Peak resident memory of a separate headless process that opens a 10-minute MP3 and plays it
/// with effects on until the whole song has been decoded.
void BM_TenMinuteSongMemory(benchmark::State& state) {
    const QString song = test::generatedSongFile(600);
    if (song.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    for (auto _ : state) {
        QProcess probe;
        probe.start(QStringLiteral(TESK_MEMORY_PROBE), {song, QStringLiteral("8")});
        probe.waitForFinished(60000);
        const QString output = QString::fromLocal8Bit(probe.readAllStandardOutput());
        const auto lines = output.split(u'\n');
        for (const QString& line : lines) {
            if (line.startsWith(QStringLiteral("peak_rss_kb ")))
                state.counters["peak_rss_mb"] = line.section(u' ', 1).toDouble() / 1024.0;
            if (line.startsWith(QStringLiteral("decoded_frames ")))
                state.counters["decoded_seconds"] = line.section(u' ', 1).toDouble() / 44100.0;
        }
        if (probe.exitCode() != 0)
            state.SkipWithError("the memory probe failed");
    }
}
BENCHMARK(BM_TenMinuteSongMemory)->Iterations(1)->Unit(benchmark::kSecond);

const bool declared = [] {
    bench::declareTarget("chain_cpu_all_effects",
                         "BM_ChainAllEffectsPerOutputSecond/min_time:3.000", "%", 1e-7, 20.0);
    bench::declareTarget("seek_to_sound", "BM_SeekToSound/iterations:30/manual_time", "ms", 1e-6,
                         50.0);
    bench::declareTarget("open_to_first_sound", "BM_OpenToFirstSound/iterations:10/manual_time",
                         "ms", 1e-6, 50.0);
    bench::declareCounterTarget("ten_minute_song_peak_memory",
                                "BM_TenMinuteSongMemory/iterations:1", "peak_rss_mb", "MB", 120.0);
    bench::declareCounterTarget("playback_underruns", "BM_PlaybackSoak/iterations:1", "underruns",
                                "count", 0.0);
    // A few hundred renders a second at most, and the reader only when there is room to fill.
    bench::declareCounterTarget("reader_wakeups", "BM_PlaybackWakeups/iterations:1",
                                "reader_per_second", "per s", 150.0);
    bench::declareCounterTarget("renderer_wakeups", "BM_PlaybackWakeups/iterations:1",
                                "renderer_per_second", "per s", 400.0);
    return true;
}();

} // namespace
