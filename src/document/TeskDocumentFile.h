#pragma once

#include <QByteArray>
#include <QList>
#include <QRectF>
#include <QString>
#include <QVariantMap>
#include <optional>

namespace tesk {

/// The type of Tesk's own document files (a MIME name), and their file-name extension.
inline const QString TeskDocumentType = QStringLiteral("application/x-tesk-document");
inline const QString TeskDocumentExtension = QStringLiteral("tesk");

/// What a document file holds. Reading leaves a member empty when the file lacks its key or
/// holds a value of another type there, or a frame out of range, so that the document can
/// apply its own rule for each missing key; the zoom, volume, speed and pitch are brought within
/// what Tesk plays and shows. Plain value; any thread.
struct TeskDocumentContents {
    /// The song's file reference, in its archived form.
    std::optional<QByteArray> audioFileAlias;
    std::optional<QList<quint32>> genericMarkers;
    std::optional<QList<quint32>> chorusMarkers;
    std::optional<QList<quint32>> verseMarkers;
    std::optional<QList<quint32>> bridgeMarkers;
    /// The effect settings' dictionary form.
    std::optional<QVariantMap> effectsSettings;
    std::optional<double> zoomLevel;
    std::optional<double> playbackVolume;
    std::optional<quint32> loopLocation;
    std::optional<quint32> loopLength;
    std::optional<double> playbackSpeed;
    std::optional<double> pitchAdjustment;
    std::optional<QRectF> documentWindowFrame;
    std::optional<bool> effectsVisible;

    bool operator==(const TeskDocumentContents& other) const = default;
};

/// The file's bytes: a JSON object with the keys in a fixed order, one per line, the empty
/// members left out. Any thread.
QByteArray writeDocumentContents(const TeskDocumentContents& contents);

/// Reads a document file's bytes. Null, with `problem` set to a sentence for the user, when the
/// bytes are not a JSON object; a value of the wrong type only makes its key count as missing.
/// Any thread.
std::optional<TeskDocumentContents> readDocumentContents(const QByteArray& bytes,
                                                         QString* problem = nullptr);

/// Why a document file could not be read.
struct DocumentFileError {
    enum class Kind { NotFound, NotReadable, Damaged };
    Kind kind = Kind::Damaged;
    /// A sentence for the user, without the file's name.
    QString reason;
};

/// Reads and parses the document file at `path`. Null, with `error` set, when there is no such
/// file, it can't be read, or it is not a document (damaged, or far too large to be one).
/// Any thread.
std::optional<TeskDocumentContents> readDocumentFile(const QString& path,
                                                     DocumentFileError* error = nullptr);

/// Writes `contents` to `path` whole or not at all: a failed write, a full disk included,
/// leaves the file that was there. Returns false with `reason` (a sentence) set when it fails.
/// Any thread.
bool writeDocumentFile(const QString& path, const TeskDocumentContents& contents,
                       QString* reason = nullptr);

/// A window frame as text, "{{x, y}, {width, height}}", and back. Reading is lenient, as it has
/// to be for hand-edited files: numbers are taken in order and a missing one is 0.
QString stringFromRect(const QRectF& rect);
QRectF rectFromString(const QString& text);

} // namespace tesk
