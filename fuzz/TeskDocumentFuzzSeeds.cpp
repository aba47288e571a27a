// Writes the document fuzzer's starting corpus into the folder given: documents made by
// Tesk's own writer, from one with every key and a real song reference to an empty one.
// Usage: tesk_document_fuzz_seeds FOLDER
#include "audio/TeskEffectsSettings.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskFileReference.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdio>

namespace {

using namespace tesk;

bool writeSeed(const QDir& folder, const QString& name, const TeskDocumentContents& contents) {
    QFile file(folder.filePath(name + QLatin1Char('.') + TeskDocumentExtension));
    const QByteArray bytes = writeDocumentContents(contents);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        std::fprintf(stderr, "could not write %s\n", qPrintable(file.fileName()));
        return false;
    }
    return true;
}

/// A reference to a real (empty) song file beside a document, in the form a save writes it.
std::optional<QByteArray> songReferenceBytes() {
    QTemporaryDir folder;
    const QString song = folder.filePath(QStringLiteral("Practice Song.mp3"));
    QFile file(song);
    if (!folder.isValid() || !file.open(QIODevice::WriteOnly))
        return std::nullopt;
    file.close();
    const auto reference =
        TeskFileReference::fromPath(song, folder.filePath(QStringLiteral("Practice.tesk")));
    if (!reference)
        return std::nullopt;
    return reference->toBytes();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    if (!folder.mkpath(QStringLiteral("."))) {
        std::fprintf(stderr, "could not make %s\n", argv[1]);
        return 1;
    }

    const std::optional<QByteArray> alias = songReferenceBytes();
    if (!alias) {
        std::fprintf(stderr, "could not make a song reference\n");
        return 1;
    }

    TeskEffectsSettings effects;
    effects.setEqualizerEnabled(true);
    effects.setEqualizerSettings(TeskEqualizerSettings::isolateBassPreset().get());
    effects.setVocalReductionEnabled(true);
    effects.setVocalReductionEffectSettings(
        TeskVocalReductionEffectSettings::femaleVocalPreset().get());
    effects.setPanningEnabled(true);
    effects.setPanAmount(0.25);

    TeskDocumentContents everything;
    everything.audioFileAlias = *alias;
    everything.genericMarkers = QList<quint32>{44100, 882000, 4294967295u};
    everything.chorusMarkers = QList<quint32>{1323000};
    everything.verseMarkers = QList<quint32>{0, 220500};
    everything.bridgeMarkers = QList<quint32>{};
    everything.effectsSettings = effects.dictionaryRepresentation();
    everything.zoomLevel = 0.9;
    everything.playbackVolume = 0.75;
    everything.loopLocation = 441000;
    everything.loopLength = 88200;
    everything.playbackSpeed = 0.65;
    everything.pitchAdjustment = -2.5;
    everything.documentWindowFrame = QRectF(120, 80.5, 1024, 640);
    everything.effectsVisible = true;

    TeskDocumentContents defaults;
    defaults.effectsSettings = TeskEffectsSettings().dictionaryRepresentation();
    defaults.playbackSpeed = -1.0;
    defaults.playbackVolume = 1.0;
    defaults.genericMarkers = QList<quint32>{};
    defaults.effectsVisible = false;

    TeskDocumentContents songOnly;
    songOnly.audioFileAlias = *alias;

    const bool written = writeSeed(folder, QStringLiteral("everything"), everything) &&
                         writeSeed(folder, QStringLiteral("defaults"), defaults) &&
                         writeSeed(folder, QStringLiteral("song-only"), songOnly) &&
                         writeSeed(folder, QStringLiteral("empty"), TeskDocumentContents{});
    return written ? 0 : 1;
}
