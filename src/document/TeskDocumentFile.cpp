#include "document/TeskDocumentFile.h"

#include "audio/EngineConstants.h"
#include "audio/TimePitchStage.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRegularExpression>
#include <QSaveFile>
#include <algorithm>
#include <cmath>
#include <limits>
#include <sys/stat.h>

namespace tesk {
namespace {

// The keys, in the order they are written.
const QString kAudioFileAliasKey = QStringLiteral("audioFileAlias");
const QString kGenericMarkersKey = QStringLiteral("genericMarkers");
const QString kChorusMarkersKey = QStringLiteral("chorusMarkers");
const QString kVerseMarkersKey = QStringLiteral("verseMarkers");
const QString kBridgeMarkersKey = QStringLiteral("bridgeMarkers");
const QString kEffectsSettingsKey = QStringLiteral("effectsSettings");
const QString kZoomLevelKey = QStringLiteral("zoomLevel");
const QString kPlaybackVolumeKey = QStringLiteral("playbackVolume");
const QString kLoopLocationKey = QStringLiteral("loopRange.location");
const QString kLoopLengthKey = QStringLiteral("loopRange.length");
const QString kPlaybackSpeedKey = QStringLiteral("playbackSpeed");
const QString kPitchAdjustmentKey = QStringLiteral("pitchAdjustment");
const QString kDocumentWindowFrameKey = QStringLiteral("documentWindowFrame");
const QString kEffectsVisibleKey = QStringLiteral("effectsVisible");

QJsonArray markersToJson(const QList<quint32>& markers) {
    QJsonArray array;
    for (quint32 frame : markers)
        array.append(static_cast<qint64>(frame));
    return array;
}

std::optional<double> readDouble(const QJsonObject& object, const QString& key) {
    const QJsonValue value = object.value(key);
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return std::nullopt;
    return value.toDouble();
}

/// A setting past what Tesk plays or shows (a file edited by hand) reads as the nearest value it
/// does, in the window as in `tesk-render`.
std::optional<double> readWithin(const QJsonObject& object, const QString& key, double lowest,
                                 double highest) {
    const std::optional<double> value = readDouble(object, key);
    return value ? std::optional(std::clamp(*value, lowest, highest)) : std::nullopt;
}

/// Backwards speeds keep their direction, and 0 (which is not applied) stays 0.
std::optional<double> readSpeed(const QJsonObject& object, const QString& key) {
    const std::optional<double> speed = readDouble(object, key);
    if (!speed || *speed == 0.0)
        return speed;
    return std::copysign(
        std::clamp(std::abs(*speed), TimePitchStage::kMinimumRate, TimePitchStage::kMaximumRate),
        *speed);
}

std::optional<quint32> frameFromJson(const QJsonValue& value) {
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (!(number >= 0.0) || number > std::numeric_limits<quint32>::max() ||
        number != std::floor(number))
        return std::nullopt;
    return static_cast<quint32>(number);
}

std::optional<quint32> readFrame(const QJsonObject& object, const QString& key) {
    return frameFromJson(object.value(key));
}

/// A marker array with any entry that is not a frame number counts as missing as a whole:
/// keeping the good entries of a damaged array would silently move markers the user placed.
std::optional<QList<quint32>> readMarkers(const QJsonObject& object, const QString& key) {
    const QJsonValue value = object.value(key);
    if (!value.isArray())
        return std::nullopt;
    QList<quint32> markers;
    const QJsonArray array = value.toArray();
    markers.reserve(array.size());
    for (const QJsonValue& entry : array) {
        const std::optional<quint32> frame = frameFromJson(entry);
        if (!frame)
            return std::nullopt;
        markers.append(*frame);
    }
    return markers;
}

/// One line of the object: the key and its value in compact JSON.
QByteArray jsonLine(const QString& key, const QJsonValue& value) {
    // QJsonDocument only writes whole arrays and objects; the brackets are cut off again.
    QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    text = text.mid(1, text.size() - 2);
    return QJsonDocument(QJsonArray{key}).toJson(QJsonDocument::Compact).mid(1).chopped(1) + ": " +
           text;
}

} // namespace

QByteArray writeDocumentContents(const TeskDocumentContents& contents) {
    QList<QByteArray> lines;
    auto add = [&lines](const QString& key, const auto& member, auto toJson) {
        if (member)
            lines.append(jsonLine(key, toJson(*member)));
    };
    auto number = [](auto value) { return QJsonValue(static_cast<double>(value)); };
    add(kAudioFileAliasKey, contents.audioFileAlias,
        [](const QByteArray& bytes) { return QJsonValue(QString::fromLatin1(bytes.toBase64())); });
    add(kGenericMarkersKey, contents.genericMarkers, markersToJson);
    add(kChorusMarkersKey, contents.chorusMarkers, markersToJson);
    add(kVerseMarkersKey, contents.verseMarkers, markersToJson);
    add(kBridgeMarkersKey, contents.bridgeMarkers, markersToJson);
    add(kEffectsSettingsKey, contents.effectsSettings,
        [](const QVariantMap& map) { return QJsonValue(QJsonObject::fromVariantMap(map)); });
    add(kZoomLevelKey, contents.zoomLevel, number);
    add(kPlaybackVolumeKey, contents.playbackVolume, number);
    add(kLoopLocationKey, contents.loopLocation, number);
    add(kLoopLengthKey, contents.loopLength, number);
    add(kPlaybackSpeedKey, contents.playbackSpeed, number);
    add(kPitchAdjustmentKey, contents.pitchAdjustment, number);
    add(kDocumentWindowFrameKey, contents.documentWindowFrame,
        [](const QRectF& rect) { return QJsonValue(stringFromRect(rect)); });
    add(kEffectsVisibleKey, contents.effectsVisible, [](bool flag) { return QJsonValue(flag); });

    QByteArray bytes = "{\n";
    for (qsizetype i = 0; i < lines.size(); ++i)
        bytes += "    " + lines[i] + (i + 1 < lines.size() ? ",\n" : "\n");
    bytes += "}\n";
    return bytes;
}

std::optional<TeskDocumentContents> readDocumentContents(const QByteArray& bytes,
                                                         QString* problem) {
    // Nothing at all (a save cut off before its first byte, or a file made empty) says so in
    // plain words, rather than as a damaged first byte.
    if (bytes.trimmed().isEmpty()) {
        if (problem)
            *problem = QStringLiteral("It is empty: it holds no settings at all.");
        return std::nullopt;
    }
    QJsonParseError parseError;
    const QJsonDocument json = QJsonDocument::fromJson(bytes, &parseError);
    if (json.isNull() || !json.isObject()) {
        if (problem) {
            *problem = json.isNull()
                           ? QStringLiteral("Its contents are damaged (%1 at byte %2).")
                                 .arg(parseError.errorString())
                                 .arg(parseError.offset)
                           : QStringLiteral("It does not hold Tesk's settings for a song.");
        }
        return std::nullopt;
    }
    const QJsonObject object = json.object();

    TeskDocumentContents contents;
    const QJsonValue alias = object.value(kAudioFileAliasKey);
    // A reference whose text is damaged, or that is no text at all, still reads, as damaged
    // bytes: the document then says its song reference is damaged and offers to locate the
    // song, instead of taking itself for a practice that never had one.
    if (alias.isString())
        contents.audioFileAlias = QByteArray::fromBase64(alias.toString().toLatin1());
    else if (!alias.isUndefined())
        contents.audioFileAlias = QByteArray();
    contents.genericMarkers = readMarkers(object, kGenericMarkersKey);
    contents.chorusMarkers = readMarkers(object, kChorusMarkersKey);
    contents.verseMarkers = readMarkers(object, kVerseMarkersKey);
    contents.bridgeMarkers = readMarkers(object, kBridgeMarkersKey);
    const QJsonValue effects = object.value(kEffectsSettingsKey);
    if (effects.isObject())
        contents.effectsSettings = effects.toObject().toVariantMap();
    // Past 1 the waveform is drawn closer than the zoom slider goes, and soon at no frames a
    // point at all. Below 0 it is drawn smaller than the view, as fitting a loop nearly as long
    // as the song saves; below -1 the difference that makes is well under a hundredth.
    contents.zoomLevel = readWithin(object, kZoomLevelKey, -1.0, 1.0);
    contents.playbackVolume =
        readWithin(object, kPlaybackVolumeKey, 0.0, double(engine::kMaximumLinearLevel));
    contents.loopLocation = readFrame(object, kLoopLocationKey);
    contents.loopLength = readFrame(object, kLoopLengthKey);
    contents.playbackSpeed = readSpeed(object, kPlaybackSpeedKey);
    contents.pitchAdjustment =
        readWithin(object, kPitchAdjustmentKey, TimePitchStage::kMinimumPitchCents / 100.0,
                   TimePitchStage::kMaximumPitchCents / 100.0);
    const QJsonValue frame = object.value(kDocumentWindowFrameKey);
    if (frame.isString())
        contents.documentWindowFrame = rectFromString(frame.toString());
    const QJsonValue effectsVisible = object.value(kEffectsVisibleKey);
    if (effectsVisible.isBool())
        contents.effectsVisible = effectsVisible.toBool();
    return contents;
}

std::optional<TeskDocumentContents> readDocumentFile(const QString& path,
                                                     DocumentFileError* error) {
    // A document holds a few settings; anything this large is not one, and reading it whole
    // could take all the memory there is.
    constexpr qint64 largestDocumentBytes = 16 * 1024 * 1024;
    auto fail = [error](DocumentFileError::Kind kind, const QString& reason) {
        if (error)
            *error = {kind, reason};
        return std::nullopt;
    };
    QFile file(path);
    if (!file.exists())
        return fail(DocumentFileError::Kind::NotFound,
                    QCoreApplication::translate("TeskDocument", "There is no such file."));
    // Opening a pipe waits for something to write into it, and reading one waits for it to
    // end: perhaps forever.
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) == 0 &&
        (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)))
        return fail(DocumentFileError::Kind::NotReadable,
                    QCoreApplication::translate("TeskDocument", "It is a pipe, not a file."));
    if (!file.open(QIODevice::ReadOnly))
        return fail(DocumentFileError::Kind::NotReadable, file.errorString());
    // Read one byte past the limit rather than trust the size: a device or a pipe has none.
    const QByteArray bytes = file.read(largestDocumentBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return fail(DocumentFileError::Kind::NotReadable, file.errorString());
    if (bytes.size() > largestDocumentBytes)
        return fail(
            DocumentFileError::Kind::Damaged,
            QCoreApplication::translate("TeskDocument", "It is too large to be a Tesk document."));
    QString problem;
    std::optional<TeskDocumentContents> contents = readDocumentContents(bytes, &problem);
    if (!contents)
        return fail(DocumentFileError::Kind::Damaged, problem);
    return contents;
}

bool writeDocumentFile(const QString& path, const TeskDocumentContents& contents, QString* reason) {
    const QByteArray bytes = writeDocumentContents(contents);
    QSaveFile file(path);
    QString failure;
    // Unbuffered, so that a short write (a full disk) shows here: QSaveFile::commit() would
    // flush it quietly and keep the cut file.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        failure = file.errorString();
    } else if (file.write(bytes) != bytes.size()) {
        failure = QCoreApplication::translate(
            "TeskDocument", "Not all of it could be written; the disk may be full.");
        file.cancelWriting();
    } else if (!file.commit()) {
        failure = file.errorString();
    }
    if (failure.isEmpty())
        return true;
    if (reason)
        *reason = failure;
    return false;
}

QString stringFromRect(const QRectF& rect) {
    // The shortest text that reads back to the same number.
    auto number = [](double value) {
        return QString::number(value, 'g', QLocale::FloatingPointShortest);
    };
    return QStringLiteral("{{%1, %2}, {%3, %4}}")
        .arg(number(rect.x()), number(rect.y()), number(rect.width()), number(rect.height()));
}

QRectF rectFromString(const QString& text) {
    static const QRegularExpression numberPattern(
        QStringLiteral(R"([-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)"));
    double values[4] = {0.0, 0.0, 0.0, 0.0};
    int count = 0;
    for (auto match = numberPattern.globalMatch(text); match.hasNext() && count < 4; ++count) {
        const double value = match.next().captured().toDouble();
        // A window frame has to fit a screen; anything absurd reads as no frame at all.
        if (!std::isfinite(value) || std::abs(value) > 1.0e7)
            return {};
        values[count] = value;
    }
    return QRectF(values[0], values[1], values[2], values[3]);
}

} // namespace tesk
