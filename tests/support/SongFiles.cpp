#include "support/SongFiles.h"

#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

namespace tesk::test {

QString writeTone(const QString& path, double seconds, double frequency,
                  const QStringList& ffmpegArguments) {
    const auto tone = sine(frequency, 0.5, std::size_t(std::llround(seconds * kSampleRate)));
    QString log;
    EXPECT_TRUE(ffmpegArguments.isEmpty() && path.endsWith(QStringLiteral(".wav"))
                    ? writeWav(path, {tone, tone}, int(kSampleRate))
                    : writeEncoded(path, {tone, tone}, int(kSampleRate), ffmpegArguments, &log))
        << path.toStdString() << ": " << log.toStdString();
    return path;
}

QString writeTones(const QString& path, std::initializer_list<double> frequencies) {
    std::vector<float> tones;
    for (const double frequency : frequencies) {
        const auto tone = sine(frequency, 0.5, std::size_t(kSampleRate));
        tones.insert(tones.end(), tone.begin(), tone.end());
    }
    EXPECT_TRUE(writeWav(path, {tones, tones}, int(kSampleRate))) << path.toStdString();
    return path;
}

SongMetadata threeScriptTags(const QByteArray& cover, const QString& mimeType) {
    return {"Ünïcødé — 日本語", "Björk Guðmundsdóttir", "Ágætis byrjun ♪", cover, mimeType};
}

QStringList tagArguments(const SongMetadata& tags) {
    return {"-metadata", "title=" + tags.title, "-metadata", "artist=" + tags.artist,
            "-metadata", "album=" + tags.album};
}

} // namespace tesk::test
