#include "document/SongTypes.h"

#include "document/TeskDocumentFile.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMimeDatabase>
#include <utility>

namespace tesk {

QStringList supportedAudioFileTypes() {
    return {TeskDocumentType,
            QStringLiteral("audio/mpeg"),
            QStringLiteral("audio/mp4"),
            QStringLiteral("audio/x-aiff"),
            QStringLiteral("audio/x-aifc"),
            QStringLiteral("audio/x-wav")};
}

namespace {
const QStringList kSongExtensions{"mp3", "m4a", "aif", "aiff", "aifc", "wav"};
} // namespace

QString songFilePatterns() {
    QStringList patterns;
    for (const QString& extension : kSongExtensions)
        patterns.append(QStringLiteral("*.") + extension);
    return patterns.join(QLatin1Char(' '));
}

bool isNamedAsSong(const QString& path) {
    return kSongExtensions.contains(QFileInfo(path).suffix().toLower());
}

QString contentTypeOfFile(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable())
        return {};
    if (info.suffix().compare(TeskDocumentExtension, Qt::CaseInsensitive) == 0)
        return TeskDocumentType;
    const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForFile(path, QMimeDatabase::MatchContent);
    // The database answers with its generic type when the content says nothing it knows.
    if (type.isDefault())
        return {};
    // An MPEG-4 file tells sound from film only by a brand that most encoders leave generic
    // ("isom", "mp42"), which reads as video: named .m4a, it is MPEG-4 audio.
    const QString mpeg4Audio = QStringLiteral("audio/mp4");
    if (type.name() == QLatin1String("video/mp4") &&
        database.mimeTypeForFile(path, QMimeDatabase::MatchExtension).name() == mpeg4Audio)
        return mpeg4Audio;
    return type.name();
}

QString unopenedSoundKind(const QString& path) {
    const QMimeType type = QMimeDatabase().mimeTypeForName(contentTypeOfFile(path));
    // Playlists are named as sound but are text.
    if (!type.name().startsWith(QLatin1String("audio/")) ||
        supportedAudioFileTypes().contains(type.name()) ||
        type.inherits(QStringLiteral("text/plain")))
        return {};
    // Tesk's own words rather than the type database's, which follow the system's language.
    static const std::pair<const char*, const char*> kKinds[] = {
        {"audio/flac", QT_TRANSLATE_NOOP("SongTypes", "FLAC audio")},
        {"audio/x-flac+ogg", QT_TRANSLATE_NOOP("SongTypes", "FLAC audio")},
        {"audio/x-vorbis+ogg", QT_TRANSLATE_NOOP("SongTypes", "Ogg Vorbis audio")},
        {"audio/x-opus+ogg", QT_TRANSLATE_NOOP("SongTypes", "Opus audio")},
        {"audio/x-ms-wma", QT_TRANSLATE_NOOP("SongTypes", "Windows Media audio")},
        {"audio/x-wavpack", QT_TRANSLATE_NOOP("SongTypes", "WavPack audio")},
        {"audio/x-ape", QT_TRANSLATE_NOOP("SongTypes", "Monkey's Audio")},
        {"audio/aac", QT_TRANSLATE_NOOP("SongTypes", "AAC audio outside an M4A file")},
        {"audio/x-m4b", QT_TRANSLATE_NOOP("SongTypes", "an MPEG-4 audiobook")},
    };
    for (const auto& [name, kind] : kKinds)
        if (type.name() == QLatin1String(name))
            return QCoreApplication::translate("SongTypes", kind);
    return QCoreApplication::translate("SongTypes", "sound of another kind");
}

bool canOpenFile(const QUrl& url, QString* type) {
    if (!url.isLocalFile())
        return false;
    const QString found = contentTypeOfFile(url.toLocalFile());
    if (found.isEmpty())
        return false;
    if (type)
        *type = found;
    // Equality, never inheritance: QMimeType::inherits would accept a subtype.
    return supportedAudioFileTypes().contains(found);
}

} // namespace tesk
