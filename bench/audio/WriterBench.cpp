// What exporting costs once the sound is rendered: four minutes of stereo written to M4A and to
// AIFF through the writer, against FFmpeg's own tool encoding the same sound to M4A.
#include "audio/TeskAudioFileWriter.h"
#include "support/TeskBench.h"

#include <benchmark/benchmark.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cmath>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kSongMinutes = 4;
constexpr std::size_t kFrames = std::size_t(kSongMinutes) * 60 * 44100;

/// Two tones and a slow sweep over noise, different on each side, so that the AAC encoder has
/// music-like work on both channels.
struct Song {
    std::vector<float> left = std::vector<float>(kFrames);
    std::vector<float> right = std::vector<float>(kFrames);
    Song() {
        std::mt19937 generator(11);
        std::uniform_real_distribution<float> noise(-0.15f, 0.15f);
        for (std::size_t i = 0; i < kFrames; ++i) {
            const double t = double(i) / 44100.0;
            const double sweep = std::sin(2.0 * M_PI * (200.0 * t + 2.0 * t * t));
            left[i] =
                float(0.3 * std::sin(2.0 * M_PI * 220.0 * t) + 0.2 * sweep) + noise(generator);
            right[i] =
                float(0.3 * std::sin(2.0 * M_PI * 330.0 * t) + 0.2 * sweep) + noise(generator);
        }
    }
};

const Song& song() {
    static const Song made;
    return made;
}

QTemporaryDir& folder() {
    static QTemporaryDir made;
    return made;
}

/// Writes the song to `path` through the writer; the error, if it failed.
std::optional<std::string> writeSong(tesk::ExportFormat format, const QString& path) {
    const Song& sound = song();
    std::optional<tesk::TeskError> error;
    auto writer = tesk::TeskAudioFileWriter::create(path, format, {}, &error);
    bool written = writer != nullptr;
    // Slices of the render loop's size, as the export thread delivers them.
    for (std::size_t done = 0; written && done < kFrames;
         done += tesk::TeskAudioFileWriter::kSliceFrames) {
        const auto count = std::uint32_t(
            std::min<std::size_t>(tesk::TeskAudioFileWriter::kSliceFrames, kFrames - done));
        written = writer->write(sound.left.data() + done, sound.right.data() + done, count, &error);
    }
    if (written && writer->finish(&error))
        return std::nullopt;
    return error ? error->description().toStdString() : "failed";
}

void BM_ExportAiff(benchmark::State& state) {
    const QString path = folder().filePath(QStringLiteral("export.aif"));
    song(); // made before the clock starts
    for (auto _ : state) {
        if (const auto error = writeSong(tesk::ExportFormat::Aiff, path)) {
            state.SkipWithError(error->c_str());
            return;
        }
    }
    state.counters["file_MB"] = double(QFile(path).size()) / 1e6;
}
BENCHMARK(BM_ExportAiff)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

/// M4A through the writer against FFmpeg's tool encoding the same sound, from raw interleaved
/// floats, with the same encoder and muxer; the two take turns, five times each.
void BM_ExportM4aAgainstFfmpeg(benchmark::State& state) {
    const QString raw = folder().filePath(QStringLiteral("song.f32"));
    {
        const Song& sound = song();
        std::vector<float> interleaved(2 * kFrames);
        for (std::size_t i = 0; i < kFrames; ++i) {
            interleaved[2 * i] = sound.left[i];
            interleaved[2 * i + 1] = sound.right[i];
        }
        QFile file(raw);
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(reinterpret_cast<const char*>(interleaved.data()),
                       qint64(interleaved.size() * sizeof(float))) !=
                qint64(interleaved.size() * sizeof(float))) {
            state.SkipWithError("could not write the raw song");
            return;
        }
    }
    const QString ours = folder().filePath(QStringLiteral("export.m4a"));
    const QString theirs = folder().filePath(QStringLiteral("ffmpeg.m4a"));
    for (auto _ : state) {
        const auto medians = tesk::bench::medianSecondsInTurns(
            5, {[&] {
                    return tesk::bench::secondsTaken(
                        [&] { return !writeSong(tesk::ExportFormat::M4a, ours); });
                },
                [&] {
                    return tesk::bench::secondsTaken([&] {
                        return QProcess::execute(QStringLiteral("ffmpeg"),
                                                 {"-nostdin", "-y", "-v", "quiet", "-f", "f32le",
                                                  "-ar", "44100", "-ac", "2", "-i", raw, "-c:a",
                                                  "aac", "-f", "ipod", theirs}) == 0;
                    });
                }});
        if (!medians) {
            state.SkipWithError("the writer or ffmpeg failed");
            return;
        }
        state.SetIterationTime((*medians)[0]);
        state.counters["ffmpeg_s"] = (*medians)[1];
        state.counters["ratio"] = (*medians)[0] / (*medians)[1];
    }
    state.counters["file_MB"] = double(QFile(ours).size()) / 1e6;
    QFile::remove(raw);
}
BENCHMARK(BM_ExportM4aAgainstFfmpeg)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

const bool declared = [] {
    // Per minute of sound: the real time for the four minutes, in ms, divided by four.
    using namespace tesk::bench;
    const std::string m4a = "BM_ExportM4aAgainstFfmpeg/iterations:1/manual_time";
    declareTarget("export_m4a_per_audio_minute", m4a, "ms", 1e-6 / kSongMinutes, 1500);
    declareTarget("export_aiff_per_audio_minute", "BM_ExportAiff/iterations:3/real_time", "ms",
                  1e-6 / kSongMinutes, 100);
    declareCounterTarget("export_m4a_vs_ffmpeg", m4a, "ratio", "x", 1.1);
    return true;
}();

} // namespace
