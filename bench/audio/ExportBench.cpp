// Export of a 4-minute song with every effect on, against the established tools doing the same
// work one after the other: Rubber Band's own command (same engine, real-time mode, the same
// pitch method) and FFmpeg's AAC encoder.
#include "audio/ProcessingChainPool.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"
#include "support/BenchApplication.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

using namespace tesk;

constexpr double kSpeed = 0.75;
constexpr double kSemitones = -2.0;

QTemporaryDir& folder() {
    static QTemporaryDir made;
    return made;
}

/// Seconds taken by Tesk's export of `file` with every effect on, or -1 when it failed.
double exportAllEffects(const std::shared_ptr<TeskExtendedAudioFile>& file) {
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
    return bench::secondsTaken([&] {
        return player.writeSamplesInRange({0, std::uint32_t(file->frameCount())}, output) ==
               TeskOutputAudioUnit::ExportOutcome::Written;
    });
}

/// Seconds taken by the anchor, or a negative number when a tool failed: Rubber Band's command
/// stretching `wav` to the same speed and pitch, then FFmpeg encoding the result to AAC.
double rubberBandThenFfmpeg(const QString& wav, const QString& map) {
    const QString stretched = folder().filePath(QStringLiteral("anchor-stretched.wav"));
    const QString m4a = folder().filePath(QStringLiteral("anchor.m4a"));
    return bench::secondsTaken([&] {
        const int stretchStatus = QProcess::execute(
            QStringLiteral("rubberband"),
            {"-q", "-3", "--realtime", "-t", QString::number(1.0 / kSpeed, 'f', 6), "-p",
             QString::number(kSemitones), "--pitchmap", map, wav, stretched});
        return stretchStatus == 0 && test::encodeWithFfmpeg(stretched, m4a, {"-c:a", "aac"});
    });
}

// The export and the anchor take turns, three times each; the ratio is that of their medians.
void BM_ExportAgainstAnchor(benchmark::State& state) {
    bench::application();
    const QString song = test::generatedSongFile(240);
    const QString wav = folder().filePath(QStringLiteral("anchor-in.wav"));
    const QString map = folder().filePath(QStringLiteral("anchor-map.txt"));
    QFile mapFile(map);
    std::optional<TeskError> error;
    std::shared_ptr<TeskExtendedAudioFile> file =
        song.isEmpty() ? nullptr : TeskExtendedAudioFile::openForPlayback(song, &error);
    if (!file || !mapFile.open(QIODevice::WriteOnly) ||
        !test::encodeWithFfmpeg(song, wav, {"-ar", "44100", "-ac", "2"})) {
        state.SkipWithError("could not make or open the song");
        return;
    }
    // A pitch map selects the tool's high-consistency pitch method, as Tesk uses.
    mapFile.write("0 0\n");
    mapFile.close();
    file->waitUntilDecoded();
    ProcessingChainPool::prepare();
    for (auto _ : state) {
        const auto medians =
            bench::medianSecondsInTurns(3, {[&] { return exportAllEffects(file); },
                                            [&] { return rubberBandThenFfmpeg(wav, map); }});
        if (!medians) {
            state.SkipWithError("the export, rubberband or ffmpeg failed");
            return;
        }
        const double ours = (*medians)[0];
        const double anchor = (*medians)[1];
        state.SetIterationTime(ours);
        state.counters["export_s"] = ours;
        state.counters["anchor_s"] = anchor;
        state.counters["ratio"] = ours / anchor;
    }
}
BENCHMARK(BM_ExportAgainstAnchor)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

const bool declared = [] {
    bench::declareCounterTarget("export_4min_all_effects_m4a",
                                "BM_ExportAgainstAnchor/iterations:1/manual_time", "ratio", "x",
                                0.6);
    return true;
}();

} // namespace
