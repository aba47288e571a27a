// Export of a 4-minute song with every effect on, against the established tools doing the same
// work one after the other: Rubber Band's own command (same engine, real-time mode, the same
// pitch method) and FFmpeg's AAC encoder.
#include "audio/ProcessingChainPool.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <chrono>

namespace {

using namespace tesk;

constexpr double kSpeed = 0.75;
constexpr double kSemitones = -2.0;

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "tesk-export-bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

QTemporaryDir& folder() {
    static QTemporaryDir made;
    return made;
}

void BM_ExportFourMinutesAllEffects(benchmark::State& state) {
    application();
    const QString song = test::generatedSongFile(240);
    std::optional<TeskError> error;
    std::shared_ptr<TeskExtendedAudioFile> file =
        song.isEmpty() ? nullptr : TeskExtendedAudioFile::openForPlayback(song, &error);
    if (!file) {
        state.SkipWithError("could not make or open the song");
        return;
    }
    file->waitUntilDecoded();
    ProcessingChainPool::prepare();
    for (auto _ : state) {
        TeskExtendedAudioFilePlayer player(file, true);
        player.setPlaybackSpeed(float(kSpeed));
        player.setPlaybackPitchInSemitones(kSemitones);
        player.setEqualizerEnabled(true);
        TeskEqualizerSettings bands;
        bands.setBands({3, 2, 0, -2, -4, -4, -2, 0, 2, 3});
        player.setEqualizerSettings(&bands);
        player.setVocalRemoval(true);
        player.setVocalReductionEffectSettings(
            TeskVocalReductionEffectSettings::maleVocalPreset().get());
        player.setPanAdjust(true);
        player.setPanAmount(0.4);
        const QString output = folder().filePath(QStringLiteral("export.m4a"));
        const auto started = std::chrono::steady_clock::now();
        player.writeSamplesInRange({0, std::uint32_t(file->frameCount())}, output);
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    }
}
BENCHMARK(BM_ExportFourMinutesAllEffects)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

void BM_RubberBandThenFfmpegAnchor(benchmark::State& state) {
    const QString song = test::generatedSongFile(240);
    const QString wav = folder().filePath(QStringLiteral("anchor-in.wav"));
    const QString stretched = folder().filePath(QStringLiteral("anchor-stretched.wav"));
    const QString m4a = folder().filePath(QStringLiteral("anchor.m4a"));
    const QString map = folder().filePath(QStringLiteral("anchor-map.txt"));
    QFile mapFile(map);
    if (song.isEmpty() || !mapFile.open(QIODevice::WriteOnly) ||
        !test::encodeWithFfmpeg(song, wav, {"-ar", "44100", "-ac", "2"})) {
        state.SkipWithError("could not prepare the anchor's input");
        return;
    }
    // A pitch map selects the tool's high-consistency pitch method, as Tesk uses.
    mapFile.write("0 0\n");
    mapFile.close();
    for (auto _ : state) {
        const auto started = std::chrono::steady_clock::now();
        const int stretchStatus = QProcess::execute(
            QStringLiteral("rubberband"),
            {"-q", "-3", "--realtime", "-t", QString::number(1.0 / kSpeed, 'f', 6), "-p",
             QString::number(kSemitones), "--pitchmap", map, wav, stretched});
        const bool encoded = test::encodeWithFfmpeg(stretched, m4a, {"-c:a", "aac"});
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        if (stretchStatus != 0 || !encoded) {
            state.SkipWithError("rubberband or ffmpeg failed");
            return;
        }
    }
}
BENCHMARK(BM_RubberBandThenFfmpegAnchor)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

const bool declared = [] {
    bench::declareRatioTarget("export_4min_all_effects_m4a",
                              "BM_ExportFourMinutesAllEffects/iterations:1/manual_time",
                              "BM_RubberBandThenFfmpegAnchor/iterations:1/manual_time", 0.6);
    return true;
}();

} // namespace
