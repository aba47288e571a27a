#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

namespace tesk {

/// The types of file Tesk opens, in order: its own documents (TeskDocumentType), MP3, MPEG-4
/// audio, AIFF, AIFC and WAV, as MIME names.
QStringList supportedAudioFileTypes();

/// The name patterns of the songs Tesk opens, for file dialogs: "*.mp3 *.m4a …".
QString songFilePatterns();
/// Whether `path` is named as a song Tesk opens (by its extension, in any case).
bool isNamedAsSong(const QString& path);

/// The type of the file at `path`: TeskDocumentType for a file named "*.tesk", else what its
/// content says (the name is not trusted: songs are often misnamed). Empty when the file can't
/// be read. Any thread.
QString contentTypeOfFile(const QString& path);

/// What the file at `path` holds when it is sound of a kind Tesk does not open, as people call
/// it ("FLAC audio"); empty for anything else, a playlist included. Any thread.
QString unopenedSoundKind(const QString& path);

/// Whether Tesk opens the local file `url`: its type must be one of the supported types
/// exactly. A type that merely derives from one (an audiobook's from MPEG-4 audio) is refused,
/// as is any URL that is not a local file. Sets `type` (when given) to the type found, if any.
/// Any thread.
bool canOpenFile(const QUrl& url, QString* type = nullptr);

} // namespace tesk
