#pragma once

// Sound files the tests and benchmarks make themselves: generated signals written as WAV, and
// the ffmpeg command-line tool to encode them into any other format (or decode them back).
// Without GoogleTest, so that the benchmarks share them.

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace tesk::test {

/// One vector of samples per channel, all of the same length.
using Channels = std::vector<std::vector<float>>;

enum class WavSampleFormat { Float32, Int16 };

/// Writes `channels` as a WAV file at `sampleRate`. Int16 rounds to nearest and clips. The
/// header is the plain one without a channel mask, so FFmpeg gives a file with more than two
/// channels its usual layout for that count (six channels: 5.1). Returns false if the file
/// can't be written.
bool writeWav(const QString& path, const Channels& channels, int sampleRate,
              WavSampleFormat format = WavSampleFormat::Float32);

/// The whole contents of the file at `path`; empty if it can't be read.
QByteArray readFile(const QString& path);
/// Writes `bytes` as the whole contents of the file at `path`; false if that fails.
bool writeFile(const QString& path, const QByteArray& bytes);

/// Writes a small test picture at `path` with ffmpeg, in the format its extension names (PNG,
/// JPEG...); returns its bytes, empty if ffmpeg failed.
QByteArray writePicture(const QString& path);

/// `text` split at its spaces: command-line arguments written compactly. Arguments that hold a
/// space themselves (or a path) go in a list of their own.
QStringList splitArguments(const QString& text);

/// Runs `ffmpeg -nostdin -y -v error` with `arguments`; returns whether it succeeded and puts
/// what it printed on error in `log`.
bool runFfmpeg(const QStringList& arguments, QString* log = nullptr);

/// Encodes `input` into `output` with ffmpeg. The container follows the extension of
/// `output`; `arguments` (codec, bit rate, rate, channels...) go between, for example
/// {"-c:a", "libmp3lame", "-b:a", "192k"}.
bool encodeWithFfmpeg(const QString& input, const QString& output,
                      const QStringList& arguments = {}, QString* log = nullptr);

/// Writes `channels` as a float WAV beside `output` (same name plus ".source.wav") and encodes
/// it into `output` as above.
bool writeEncoded(const QString& output, const Channels& channels, int sampleRate,
                  const QStringList& arguments, QString* log = nullptr);

/// Decodes `path` with ffmpeg to float samples at `sampleRate` with `channelCount` channels;
/// null if ffmpeg fails.
std::optional<Channels> decodeWithFfmpeg(const QString& path, int sampleRate = 44100,
                                         int channelCount = 2);

/// A field of the first audio stream as ffprobe reports it, such as "duration_ts" or
/// "codec_name"; empty if ffprobe fails.
QString probeAudioStream(const QString& path, const QString& field);

/// A field of the container as ffprobe reports it, such as "format_name"; empty if ffprobe
/// fails.
QString probeContainer(const QString& path, const QString& field);

/// A stereo MP3 of `seconds` (two tones over pink noise, 192 kbit/s), made once per process in
/// a temporary folder; empty if ffmpeg failed.
QString generatedSongFile(int seconds);

} // namespace tesk::test
