#pragma once

#include <QByteArray>
#include <QString>

namespace tesk {

/// What a song file says about itself: its tags and its cover picture, as they are stored.
/// Empty members mean the file doesn't say. Plain value; any thread.
struct SongMetadata {
    QString title;
    QString artist;
    QString album;
    /// The picture's file bytes (JPEG, PNG...), unscaled; empty when the song has none.
    QByteArray coverImage;
    /// "image/jpeg", "image/png"...; empty when there is no cover or its format is unknown.
    QString coverMimeType;

    bool operator==(const SongMetadata& other) const = default;
};

} // namespace tesk
