#include "document/SongTypes.h"

#include "document/TeskDocumentFile.h"

#include <QFileInfo>
#include <QMimeDatabase>

namespace tesk {

QStringList supportedAudioFileTypes() {
    return {TeskDocumentType,
            QStringLiteral("audio/mpeg"),
            QStringLiteral("audio/mp4"),
            QStringLiteral("audio/x-aiff"),
            QStringLiteral("audio/x-aifc"),
            QStringLiteral("audio/x-wav")};
}

QString contentTypeOfFile(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable())
        return {};
    if (info.suffix().compare(TeskDocumentExtension, Qt::CaseInsensitive) == 0)
        return TeskDocumentType;
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchContent);
    // The database answers with its generic type when the content says nothing it knows.
    return type.isDefault() ? QString() : type.name();
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
