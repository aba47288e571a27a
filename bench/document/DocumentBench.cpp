// Documents as the user meets them: how long a saved document takes to open until its song can
// play, and how long a save takes.
#include "audio/ProcessingChainPool.h"
#include "document/TeskDocument.h"
#include "document/TeskDocumentFile.h"
#include "support/BenchApplication.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

namespace {

using namespace tesk;
using Clock = std::chrono::steady_clock;

/// A Qt application whose settings (the documents keep the last volume used) go to a folder of
/// their own instead of the user's.
QCoreApplication& application() {
    QCoreApplication& app = bench::application();
    static QTemporaryDir settings;
    static const bool configured = [] {
        QCoreApplication::setOrganizationName(QStringLiteral("TeskBench"));
        QCoreApplication::setApplicationName(QStringLiteral("TeskBench"));
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
        return true;
    }();
    (void)configured;
    return app;
}

/// A folder for the documents of one run.
const QTemporaryDir& documentFolder() {
    static QTemporaryDir folder;
    return folder;
}

/// A document for `song` with 50 markers of each kind and a loop, as a user's practice
/// document might look after a while.
std::unique_ptr<TeskDocument> practiceDocument(const QString& song) {
    auto document = std::make_unique<TeskDocument>();
    document->setAudioFileURL(QUrl::fromLocalFile(song));
    for (int kind = 0; kind < 4; ++kind) {
        QList<quint32> markers;
        for (quint32 i = 0; i < 50; ++i)
            markers.append(44100u * (4 * i + quint32(kind)) + 1234u);
        document->setMarkers(MarkerKind(kind), markers);
    }
    document->setLoopRange({44100u * 60, 44100u * 15});
    document->setPlaybackSpeed(0.75);
    document->setPitchAdjustment(-2.0);
    return document;
}

/// How long building a processing chain takes here, to know how long a prepared one needs.
std::chrono::milliseconds chainBuildTime() {
    static const std::chrono::milliseconds measured = [] {
        const auto started = Clock::now();
        ProcessingChainPool::take(TimePitchQuality::Standard);
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
    }();
    return measured;
}

/// From asking a saved document (a 4-minute MP3, markers, a loop) to open until it has a player
/// whose song has frames to play. As in Tesk, a processing chain was prepared well before.
void BM_OpenSavedDocumentToPlayable(benchmark::State& state) {
    application();
    // Measured first, before a document has prepared a chain that would be taken instead.
    const auto chainWait = std::max(std::chrono::milliseconds(300), 4 * chainBuildTime());
    const QString song = test::generatedSongFile(240);
    if (song.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    const QString path = documentFolder().filePath(QStringLiteral("Practice.tesk"));
    {
        TeskError error;
        if (!practiceDocument(song)->saveToURL(QUrl::fromLocalFile(path), &error)) {
            state.SkipWithError("could not save the document");
            return;
        }
    }
    int readyOnReturn = 0;
    for (auto _ : state) {
        // The chain has several times what it takes to build here to be ready.
        ProcessingChainPool::prepare();
        std::this_thread::sleep_for(chainWait);
        QCoreApplication::processEvents();

        const auto started = Clock::now();
        auto document = std::make_unique<TeskDocument>();
        TeskError error;
        const bool read =
            document->readFromURL(QUrl::fromLocalFile(path), TeskDocumentType, &error);
        TeskExtendedAudioFilePlayer* player = document->player();
        if (!read || !player) {
            state.SkipWithError("the document or its song did not open");
            return;
        }
        // The song's first sound is decoded when the open returns; its frames reach the cache
        // from the decoder's thread a moment later, so this says how often they already have.
        if (player->audioFile()->decodedFrameCount() > 0)
            ++readyOnReturn;
        while (player->audioFile()->decodedFrameCount() == 0 &&
               Clock::now() - started < std::chrono::seconds(2))
            std::this_thread::yield();
        const auto playable = Clock::now();
        if (player->audioFile()->decodedFrameCount() == 0) {
            state.SkipWithError("the song had no frames two seconds after opening");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(playable - started).count());

        if (document->genericMarkers().size() != 50 || document->loopRange().length == 0) {
            state.SkipWithError("the document's markers or loop did not open");
            return;
        }
        // The metadata arrives through the event loop; let it, then close the document.
        QCoreApplication::processEvents();
        document.reset();
    }
    state.counters["ready_on_return"] = double(readyOnReturn) / double(state.iterations());
    state.counters["chain_build_ms"] = double(chainBuildTime().count());
}
BENCHMARK(BM_OpenSavedDocumentToPlayable)
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);

/// Saving a document with a song, 50 markers of each of the four kinds and a loop, over its
/// previous save, as the user saving again does.
void BM_SaveDocument(benchmark::State& state) {
    application();
    const QString song = test::generatedSongFile(240);
    if (song.isEmpty()) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    std::unique_ptr<TeskDocument> document = practiceDocument(song);
    if (!document->player()) {
        state.SkipWithError("the song did not open");
        return;
    }
    const QUrl url =
        QUrl::fromLocalFile(documentFolder().filePath(QStringLiteral("Saved Again.tesk")));
    for (auto _ : state) {
        TeskError error;
        if (!document->saveToURL(url, &error)) {
            state.SkipWithError("the save failed");
            return;
        }
    }
    QCoreApplication::processEvents();

    // What was timed has to have written the whole document.
    QFile saved(url.toLocalFile());
    const std::optional<TeskDocumentContents> contents =
        saved.open(QIODevice::ReadOnly) ? readDocumentContents(saved.readAll()) : std::nullopt;
    const bool whole = contents && contents->audioFileAlias && contents->loopLength &&
                       contents->genericMarkers && contents->genericMarkers->size() == 50 &&
                       contents->chorusMarkers && contents->chorusMarkers->size() == 50 &&
                       contents->verseMarkers && contents->verseMarkers->size() == 50 &&
                       contents->bridgeMarkers && contents->bridgeMarkers->size() == 50;
    if (!whole)
        state.SkipWithError("the saved document does not hold the song, loop and markers");
}
BENCHMARK(BM_SaveDocument)->MinTime(2.0)->Unit(benchmark::kMillisecond);

/// What each key asks of a document (whether it has a song, to drop a marker) after its song
/// was deleted while open, in a folder of 3,000 other files, as a music library's folder is.
void BM_KeyCheckWithTheSongGone(benchmark::State& state) {
    application();
    const QString generated = test::generatedSongFile(5);
    static QTemporaryDir library;
    const QString song = library.filePath(QStringLiteral("gone.mp3"));
    if (generated.isEmpty() || !QFile::copy(generated, song)) {
        state.SkipWithError("could not make the song with ffmpeg");
        return;
    }
    for (int i = 0; i < 3000; ++i) {
        QFile other(library.filePath(QStringLiteral("track %1.mp3").arg(i)));
        if (!other.open(QIODevice::WriteOnly)) {
            state.SkipWithError("could not fill the folder");
            return;
        }
    }
    std::unique_ptr<TeskDocument> document = practiceDocument(song);
    if (!document->player() || !QFile::remove(song)) {
        state.SkipWithError("the song did not open, or could not be deleted");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(document->canDropMarkers());
}
BENCHMARK(BM_KeyCheckWithTheSongGone)->MinTime(1.0)->Unit(benchmark::kMicrosecond);

const bool declared = [] {
    bench::declareTarget("open_saved_document_to_playable",
                         "BM_OpenSavedDocumentToPlayable/iterations:10/manual_time", "ms", 1e-6,
                         100.0);
    bench::declareTarget("save_document", "BM_SaveDocument/min_time:2.000", "ms", 1e-6, 5.0);
    bench::declareTarget("key_check_with_song_gone", "BM_KeyCheckWithTheSongGone/min_time:1.000",
                         "ms", 1e-6, 1.0);
    return true;
}();

} // namespace
