#pragma once

#include <QString>

namespace tesk::bench {

/// A generated stereo MP3 of `seconds` (two tones and noise, 192 kbit/s), made once per run
/// with the ffmpeg command in a temporary folder; empty if ffmpeg failed.
QString generatedSongFile(int seconds);

} // namespace tesk::bench
