#pragma once

#include <QString>

namespace tesk {

/// What Tesk reads from a song file. Plain value; any thread.
struct SongFileInfo {
    /// Engine frames (44100 Hz).
    qint64 frameCount = 0;
    /// The file's own rate and channel count, before conversion to the engine format.
    double sourceSampleRate = 0;
    int sourceChannels = 0;
    /// FFmpeg's name for the codec, such as "mp3", "aac" or "pcm_s16le".
    QString codecName;
    double durationSeconds = 0;
};

} // namespace tesk
