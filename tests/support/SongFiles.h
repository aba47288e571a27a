#pragma once

// Songs for the document and tesk-render tests: a steady tone, written as the test needs it.

#include "audio/SongMetadata.h"

#include <QString>
#include <QStringList>

namespace tesk::test {

/// `seconds` of a sine at `frequency` Hz and half full scale, the same on both channels (so
/// that the vocal reduction and out of phase take all of it), at 44100 Hz. A ".wav" without
/// `ffmpegArguments` is written as a float WAV; anything else is encoded by ffmpeg, with those
/// arguments, into the container the extension names. Returns `path`; a failure to write fails
/// the test.
QString writeTone(const QString& path, double seconds, double frequency = 440.0,
                  const QStringList& ffmpegArguments = {});

/// A float WAV of one second of each of `frequencies` in a row, as `writeTone` makes them, so
/// that which part of the song a render or an export holds shows by its pitch. Returns `path`.
QString writeTones(const QString& path, std::initializer_list<double> frequencies);

/// A title, an artist and an album in three scripts, so that text read in the wrong encoding
/// shows, with `cover` of type `mimeType`.
SongMetadata threeScriptTags(const QByteArray& cover = {}, const QString& mimeType = {});

/// ffmpeg's arguments that write the title, artist and album of `tags`.
QStringList tagArguments(const SongMetadata& tags);

} // namespace tesk::test
