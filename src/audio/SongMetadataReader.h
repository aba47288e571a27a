#pragma once

#include "audio/SongMetadata.h"

#include <QString>
#include <optional>

namespace tesk {

/// Reads the title, artist, album and cover picture of the song at `path` with FFmpeg. Text
/// arrives as UTF-8 whatever the file's tag encoding (Latin-1, UTF-16 ID3 frames, MP4 atoms,
/// Vorbis comments...); container-level tags win over those of the first sound stream. A file
/// without tags or picture gives empty members; a file FFmpeg can't open, or one without
/// sound, gives nullopt.
/// Any thread but the device callback and the rendering thread: it reads the file's header and may
/// block on the disk.
std::optional<SongMetadata> readSongMetadata(const QString& path);

} // namespace tesk
