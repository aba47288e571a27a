#pragma once

// Why a song couldn't be opened, or couldn't be decoded to its end.

#include "diagnostics/TeskError.h"

#include <QString>

namespace tesk {

inline const QString SongFileErrorDomain = QStringLiteral("TeskSongFileErrorDomain");

/// The path of the song, in the user information of every song file error.
inline const QString SongFilePathKey = QStringLiteral("NSFilePath");
/// A technical account (FFmpeg's or the system's message), for logs; not shown to the user.
inline const QString SongFileDetailKey = QStringLiteral("TeskSongFileDetail");

enum class SongFileErrorCode : qint64 {
    NotFound = 1,
    NotReadable,
    Empty,
    NotAudio,
    NoAudioStream,
    NoSound,
    UnsupportedCodec,
    /// The file opened but ends early or holds parts that couldn't be decoded.
    Damaged,
    /// A file of a kind Tesk reads whose sound can't be found at all: cut off before the index
    /// that says where its sound is (an M4A whose download stopped), or broken there.
    Unopenable,
    /// No room for the decoded song: the cache couldn't be created or the disk filled up.
    CacheUnavailable,
};

/// An error in `SongFileErrorDomain` whose description names the file at `path` and says
/// what went wrong. Any thread.
TeskError songFileError(SongFileErrorCode code, const QString& path, const QString& detail = {});

} // namespace tesk
