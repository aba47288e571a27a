#include "app/RenderDocument.h"
#include "audio/EngineConstants.h"

#include "audio/TeskEffectsSettings.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "document/TeskFileReference.h"

#include <QFileInfo>
#include <algorithm>
#include <limits>

namespace tesk {
namespace {

constexpr double kEngineRate = engine::kSampleRateHz;
/// A new document's zoom, as the window first shows a song.
constexpr double kNewDocumentZoomLevel = 0.9;

/// The document reader's sentences, fitted into a line that goes on after a colon.
QString asClause(QString sentence) {
    if (sentence.endsWith(QLatin1Char('.')))
        sentence.chop(1);
    if (!sentence.isEmpty())
        sentence[0] = sentence[0].toLower();
    return sentence;
}

} // namespace

std::optional<RenderDocument> readRenderDocument(const QString& path, QString* error) {
    DocumentFileError problem;
    std::optional<TeskDocumentContents> contents = readDocumentFile(path, &problem);
    if (!contents) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, asClause(problem.reason));
        return std::nullopt;
    }
    if (!contents->audioFileAlias) {
        *error = QStringLiteral("%1 names no song").arg(path);
        return std::nullopt;
    }
    const std::optional<TeskFileReference> song =
        TeskFileReference::fromBytes(*contents->audioFileAlias);
    if (!song) {
        *error = QStringLiteral("cannot read %1: its reference to its song is damaged").arg(path);
        return std::nullopt;
    }
    // The reference also looks beside the document, so it has to know where that is now.
    const QString songPath = song->resolvedPath(QFileInfo(path).absoluteFilePath());
    if (songPath.isEmpty()) {
        *error = QStringLiteral("the song of %1 cannot be found (it was %2)")
                     .arg(path, song->absolutePath());
        return std::nullopt;
    }
    return RenderDocument{songPath, *std::move(contents)};
}

bool applyDocumentSettings(const TeskDocumentContents& contents, RenderOptions& options,
                           QString* error) {
    // The reader has brought each setting within what the engine plays.
    if (!options.given.speed && contents.playbackSpeed && *contents.playbackSpeed != 0.0)
        options.speed = *contents.playbackSpeed;
    if (!options.given.pitch)
        options.pitchSemitones = contents.pitchAdjustment.value_or(0.0);
    if (!options.given.level)
        options.level = contents.playbackVolume.value_or(0.0);

    const TeskEffectsSettings effects(contents.effectsSettings.value_or(QVariantMap()));
    if (!options.equalizerBands && effects.isEqualizerEnabled())
        options.equalizerBands = effects.equalizerSettings()->bands();
    if (!options.vocalBand && effects.isVocalReductionEnabled()) {
        const TeskVocalReductionEffectSettings* band = effects.vocalReductionEffectSettings();
        options.vocalBand = FrequencyBand{band->lowFrequency(), band->highFrequency()};
    }
    // Out of phase is only heard through the pan mix, in the document's player as here: the
    // document's flag is kept as it is, and --pan or --out-of-phase switch the mix on.
    if (!options.given.panAmount)
        options.panAmount = effects.panAmount();
    options.outOfPhase = options.outOfPhase || effects.isOutOfPhase();
    options.panAdjust = options.panAdjust || effects.isPanningEnabled();

    if (options.documentLoop && !options.range) {
        const quint32 length = contents.loopLength.value_or(0);
        if (length == 0) {
            *error = QStringLiteral("--loop: %1 has no loop range").arg(options.documentPath);
            return false;
        }
        const qint64 first = contents.loopLocation.value_or(0);
        options.frameRange = FrameRange{first, first + length};
    }
    return true;
}

std::optional<TeskDocumentContents> newDocumentContents(const RenderOptions& options,
                                                        const TeskFileReference& song,
                                                        qint64 songFrames, QString* error) {
    const auto songLength = [songFrames] {
        return QStringLiteral("the song is %1 s long")
            .arg(double(songFrames) / kEngineRate, 0, 'f', 3);
    };
    TeskDocumentContents contents;
    contents.audioFileAlias = song.toBytes();

    QList<quint32> markers[4];
    for (const RenderMarker& marker : options.savedMarkers) {
        const qint64 frame = framesAtSeconds(marker.seconds);
        if (frame > songFrames || frame > std::numeric_limits<quint32>::max()) {
            *error = QStringLiteral("--marker at %1 s is past the song's end (%2)")
                         .arg(marker.seconds)
                         .arg(songLength());
            return std::nullopt;
        }
        markers[int(marker.kind)].append(quint32(frame));
    }
    contents.genericMarkers = markers[int(RenderMarker::Kind::Generic)];
    contents.chorusMarkers = markers[int(RenderMarker::Kind::Chorus)];
    contents.verseMarkers = markers[int(RenderMarker::Kind::Verse)];
    contents.bridgeMarkers = markers[int(RenderMarker::Kind::Bridge)];

    contents.loopLocation = 0;
    contents.loopLength = 0;
    if (options.savedLoop) {
        // Rounded at both ends, so that a loop saved as 1.5-2.5 and one saved as 2.5-3.5 meet.
        const qint64 first = framesAtSeconds(options.savedLoop->start);
        const qint64 end = std::min({songFrames, framesAtSeconds(options.savedLoop->end),
                                     qint64(std::numeric_limits<quint32>::max())});
        if (first >= end) {
            *error = QStringLiteral("--loop holds none of the song (%1)").arg(songLength());
            return std::nullopt;
        }
        contents.loopLocation = quint32(first);
        contents.loopLength = quint32(end - first);
    }

    TeskEffectsSettings effects;
    if (options.equalizerBands) {
        TeskEqualizerSettings equalizer;
        equalizer.setBands(*options.equalizerBands);
        effects.setEqualizerSettings(&equalizer);
        effects.setEqualizerEnabled(true);
    }
    if (options.vocalBand) {
        TeskVocalReductionEffectSettings band;
        band.setLowFrequency(options.vocalBand->low);
        band.setHighFrequency(options.vocalBand->high);
        effects.setVocalReductionEffectSettings(&band);
        effects.setVocalReductionEnabled(true);
    }
    if (options.panAdjust) {
        effects.setPanningEnabled(true);
        effects.setPanAmount(options.panAmount);
        effects.setOutOfPhase(options.outOfPhase);
    }
    contents.effectsSettings = effects.dictionaryRepresentation();

    contents.zoomLevel = kNewDocumentZoomLevel;
    contents.playbackVolume = options.level;
    contents.playbackSpeed = options.speed;
    contents.pitchAdjustment = options.pitchSemitones;
    // Written without a window: Tesk places the window itself when it opens the document.
    contents.documentWindowFrame = QRectF();
    contents.effectsVisible = false;
    return contents;
}

} // namespace tesk
