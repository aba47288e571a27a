#include "support/SoundFileTools.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>

namespace tesk::test {
namespace {

constexpr int kToolTimeoutMilliseconds = 120000;

void appendLittleEndian(QByteArray& bytes, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i)
        bytes.append(char((value >> (8 * i)) & 0xff));
}

/// Runs `program` with `arguments`; its standard output in `output` when given.
bool runTool(const QString& program, const QStringList& arguments, QByteArray* output,
             QString* log) {
    QProcess process;
    process.start(program, arguments);
    const bool finished = process.waitForFinished(kToolTimeoutMilliseconds);
    if (!finished)
        process.kill();
    if (output)
        *output = process.readAllStandardOutput();
    const bool succeeded =
        finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (log)
        *log = QString::fromLocal8Bit(process.readAllStandardError());
    return succeeded;
}

/// What ffprobe prints of `entries` for `path` (its first sound stream), values only.
QString probe(const QString& path, const QString& entries) {
    QByteArray output;
    const QStringList arguments =
        splitArguments("-v error -select_streams a:0 -of default=noprint_wrappers=1:nokey=1") +
        QStringList{"-show_entries", entries, path};
    if (!runTool(QStringLiteral("ffprobe"), arguments, &output, nullptr))
        return {};
    return QString::fromUtf8(output).trimmed();
}

} // namespace

bool writeWav(const QString& path, const Channels& channels, int sampleRate,
              WavSampleFormat format) {
    if (channels.empty())
        return false;
    const std::size_t frames = channels.front().size();
    const auto channelCount = std::uint32_t(channels.size());
    const std::uint32_t bytesPerSample = format == WavSampleFormat::Float32 ? 4 : 2;
    const auto dataSize = std::uint32_t(frames * channelCount * bytesPerSample);

    QByteArray bytes;
    bytes.reserve(int(44 + dataSize));
    bytes.append("RIFF");
    appendLittleEndian(bytes, 36 + dataSize, 4);
    bytes.append("WAVEfmt ");
    appendLittleEndian(bytes, 16, 4);
    appendLittleEndian(bytes, format == WavSampleFormat::Float32 ? 3 : 1, 2);
    appendLittleEndian(bytes, channelCount, 2);
    appendLittleEndian(bytes, std::uint32_t(sampleRate), 4);
    appendLittleEndian(bytes, std::uint32_t(sampleRate) * channelCount * bytesPerSample, 4);
    appendLittleEndian(bytes, channelCount * bytesPerSample, 2);
    appendLittleEndian(bytes, bytesPerSample * 8, 2);
    bytes.append("data");
    appendLittleEndian(bytes, dataSize, 4);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (const std::vector<float>& channel : channels) {
            const float sample = frame < channel.size() ? channel[frame] : 0.0f;
            if (format == WavSampleFormat::Float32) {
                std::uint32_t bits = 0;
                std::memcpy(&bits, &sample, sizeof bits);
                appendLittleEndian(bytes, bits, 4);
            } else {
                const double scaled =
                    std::clamp(std::round(double(sample) * 32768.0), -32768.0, 32767.0);
                appendLittleEndian(bytes, std::uint32_t(std::int32_t(scaled)), 2);
            }
        }
    }
    return writeFile(path, bytes);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList splitArguments(const QString& text) {
    return text.split(' ', Qt::SkipEmptyParts);
}

bool runFfmpeg(const QStringList& arguments, QString* log) {
    return runTool(QStringLiteral("ffmpeg"), splitArguments("-nostdin -y -v error") + arguments,
                   nullptr, log);
}

bool encodeWithFfmpeg(const QString& input, const QString& output, const QStringList& arguments,
                      QString* log) {
    return runFfmpeg(QStringList{QStringLiteral("-i"), input} + arguments + QStringList{output},
                     log);
}

bool writeEncoded(const QString& output, const Channels& channels, int sampleRate,
                  const QStringList& arguments, QString* log) {
    const QString source = output + QStringLiteral(".source.wav");
    return writeWav(source, channels, sampleRate) &&
           encodeWithFfmpeg(source, output, arguments, log);
}

QByteArray writePicture(const QString& path) {
    if (!runFfmpeg(splitArguments("-f lavfi -i testsrc=size=96x64:duration=1 -frames:v 1") +
                   QStringList{path}))
        return {};
    return readFile(path);
}

std::optional<Channels> decodeWithFfmpeg(const QString& path, int sampleRate, int channelCount) {
    QByteArray output;
    const QStringList arguments =
        QStringList{"-nostdin", "-v", "error", "-i", path} +
        splitArguments(
            QStringLiteral("-f f32le -ar %1 -ac %2 pipe:1").arg(sampleRate).arg(channelCount));
    if (!runTool(QStringLiteral("ffmpeg"), arguments, &output, nullptr) || channelCount <= 0)
        return std::nullopt;
    const std::size_t frames = std::size_t(output.size()) / (sizeof(float) * channelCount);
    Channels channels(static_cast<std::size_t>(channelCount), std::vector<float>(frames));
    const char* bytes = output.constData();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (int channel = 0; channel < channelCount; ++channel) {
            std::memcpy(&channels[std::size_t(channel)][frame], bytes, sizeof(float));
            bytes += sizeof(float);
        }
    }
    return channels;
}

QString probeAudioStream(const QString& path, const QString& field) {
    return probe(path, "stream=" + field);
}

QString probeContainer(const QString& path, const QString& field) {
    return probe(path, "format=" + field);
}

QString generatedSongFile(int seconds) {
    static QTemporaryDir folder;
    static std::map<int, QString> made;
    if (const auto found = made.find(seconds); found != made.end())
        return found->second;
    const QString path = folder.filePath(QStringLiteral("song-%1s.mp3").arg(seconds));
    const QString source = QStringLiteral(":sample_rate=44100:duration=%1").arg(seconds);
    const bool written = runFfmpeg(
        QStringList{"-f", "lavfi", "-i", "sine=frequency=220" + source, "-f", "lavfi", "-i",
                    "sine=frequency=330" + source, "-f", "lavfi", "-i",
                    "anoisesrc=color=pink:amplitude=0.1" + source, "-filter_complex",
                    "[0][2]amix=inputs=2[l];[1][2]amix=inputs=2[r];[l][r]amerge=inputs=2"} +
        splitArguments("-c:a libmp3lame -b:a 192k") + QStringList{path});
    return made[seconds] = written ? path : QString();
}

} // namespace tesk::test
