// Opening and decoding songs: exact lengths, content in the right place, frame-exact reads while
// decoding goes on, clear errors for files that aren't songs, and a decoder that stops when asked.
#include "audio/TeskExtendedAudioFile.h"

#include "audio/SongFileError.h"
#include "support/AudioFiles.h"
#include "support/Environment.h"
#include "support/Errors.h"
#include "support/Signals.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace tesk {
namespace {

using test::Channels;
using test::openDecoded;
using test::readChannels;

constexpr float kLsb = 1.0f / 32768.0f;
const QStringList kMp3{"-c:a", "libmp3lame"};
const QStringList kAac{"-c:a", "aac"};

qint64 engineFrames(qint64 sourceFrames, int sourceRate) {
    return std::llround(double(sourceFrames) * 44100.0 / sourceRate);
}

float maxDifference(const std::vector<float>& a, const std::vector<float>& b, std::size_t count) {
    float difference = 0.0f;
    for (std::size_t i = 0; i < count; ++i)
        difference = std::max(difference, std::abs(a[i] - b[i]));
    return difference;
}

/// A music-like test song: a tone on each side over broadband noise, so alignment shows.
Channels testSong(std::size_t frames) {
    return {test::mix(test::sine(440.0, 0.4, frames), test::noise(0.2, frames, 1)),
            test::mix(test::sine(1000.0, 0.3, frames), test::noise(0.2, frames, 2))};
}

constexpr std::size_t kSongFrames = 100003;

/// Makes the 36-bit total sample count of a FLAC file's stream information block (bytes 21 to
/// 25) of kSongFrames say 30 000: not padding to trim but a wrong header.
void undercountFlacHeader(const QString& path) {
    QByteArray bytes = test::readFile(path);
    ASSERT_GT(bytes.size(), 26);
    std::uint64_t field = 0;
    for (int i = 21; i < 26; ++i)
        field = field << 8 | std::uint8_t(bytes[i]);
    ASSERT_EQ(field & 0xfffffffffull, kSongFrames);
    field = (field & ~0xfffffffffull) | 30000;
    for (int i = 25; i >= 21; --i, field >>= 8)
        bytes[i] = char(field & 0xff);
    ASSERT_TRUE(test::writeFile(path, bytes));
}

TEST(TeskExtendedAudioFile, EachFormatDecodesToItsExactLengthInPlace) {
    // Every sample where the file has it: no encoder delay or padding left in, no shift, no
    // channel swap, mono doubled at full level rather than panned at -3 dB; the samples those
    // of FFmpeg's own tool, which trims the same delay and padding. The format is told by the
    // content, not by the name.
    QTemporaryDir folder;
    const QString cover = folder.filePath("cover.png");
    ASSERT_TRUE(test::runFfmpeg(
        {"-f", "lavfi", "-i", "color=c=gray:s=1024x1024,noise=alls=100", "-frames:v", "1", cover}));
    ASSERT_GT(QFileInfo(cover).size(), 2 * 1024 * 1024);
    struct Case {
        const char* name;
        QStringList encoding; // empty: a 16-bit WAV written directly
        const char* codec;
        int channels;
        void (*damage)(const QString&) = nullptr;
    };
    const Case cases[] = {
        {"song.wav", {}, "pcm_s16le", 2},
        {"mono.wav", {}, "pcm_s16le", 1},
        {"disguised.mp3", {}, "pcm_s16le", 2},
        {"song.mp3", kMp3 + QStringList{"-b:a", "192k"}, "mp3", 2},
        {"mono.mp3", kMp3, "mp3", 1},
        // Without extension, and with a cover larger than FFmpeg's first probe of a file reaches.
        {"tagged",
         QStringList{"-i", cover} + test::splitArguments("-map 0:a -map 1:v -c:a libmp3lame -c:v "
                                                         "copy -id3v2_version 3 -disposition:v "
                                                         "attached_pic -f mp3"),
         "mp3", 2},
        // An edit list counted in samples rather than in milliseconds states the length exactly.
        {"song.m4a", kAac + QStringList{"-movie_timescale", "44100"}, "aac", 2},
        // A header that undercounts does not cut the song.
        {"undercounted.flac", {"-c:a", "flac"}, "flac", 2, undercountFlacHeader},
    };
    const std::size_t frames = kSongFrames;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Channels song = testSong(frames);
        song.resize(std::size_t(c.channels));
        const QString path = folder.filePath(c.name);
        ASSERT_TRUE(c.encoding.isEmpty()
                        ? test::writeWav(path, song, 44100, test::WavSampleFormat::Int16)
                        : test::writeEncoded(path, song, 44100, c.encoding));
        if (c.damage)
            c.damage(path);

        const auto file = openDecoded(path);
        ASSERT_TRUE(file);
        EXPECT_FALSE(file->decodingError());
        const SongFileInfo info = file->info();
        EXPECT_EQ(info.codecName, c.codec);
        EXPECT_EQ(info.frameCount, qint64(frames));
        EXPECT_EQ(info.sourceChannels, c.channels);
        EXPECT_NEAR(info.durationSeconds, double(frames) / 44100.0, 1e-9);
        const Channels decoded = readChannels(*file);
        ASSERT_EQ(decoded[0].size(), frames);
        // A read from any frame gives those same frames and leaves the rest of the buffer alone.
        for (const qint64 start : {1, 4095, 4096, 4097, 31337, 97003, 100002}) {
            std::vector<float> left(5000, 7.0f), right(5000, 7.0f);
            const qint64 read = file->readFrames(start, 5000, left.data(), right.data());
            ASSERT_EQ(read, std::min<qint64>(5000, qint64(frames) - start)) << start;
            EXPECT_TRUE(std::equal(left.begin(), left.begin() + read, decoded[0].begin() + start));
            EXPECT_TRUE(
                std::equal(right.begin(), right.begin() + read, decoded[1].begin() + start));
            EXPECT_EQ(std::count(left.begin(), left.end(), 7.0f), 5000 - read) << "rest untouched";
        }
        float left = 0.0f, right = 0.0f;
        for (const qint64 start : {qint64(frames), qint64(frames) + 10, qint64(-1)})
            EXPECT_EQ(file->readFrames(start, 1, &left, &right), 0) << start;
        EXPECT_EQ(file->readFrames(0, 0, &left, &right), 0);
        const auto reference = test::decodeWithFfmpeg(path, 44100, c.channels);
        ASSERT_TRUE(reference);
        ASSERT_GE((*reference)[0].size(), frames);
        for (std::size_t side = 0; side < 2; ++side)
            EXPECT_LE(maxDifference(decoded[side], (*reference)[side % reference->size()], frames),
                      kLsb)
                << side;
        if (c.encoding.isEmpty()) { // within the file's own 16-bit quantisation
            EXPECT_LE(maxDifference(decoded.back(), song.back(), frames), 0.5f * kLsb + 1e-7f);
        }
    }
}

TEST(TeskExtendedAudioFile, FloatSamplesRoundToNearestAndClip) {
    // Enough samples that some are converted in groups and some one by one, in stereo and mono.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float sample, expected, negated; // what the sample and its negation become
    } samples[] = {{1.5f, 32767, -32768},
                   {-1.5f, -32768, 32767},
                   {100.4f * kLsb, 100, -100},
                   {100.6f * kLsb, 101, -101},
                   {-100.6f * kLsb, -101, 101},
                   {nan, 0, 0},
                   {1.0f, 32767, -32768},
                   {0.25f, 8192, -8192},
                   {100.5f * kLsb, 101, -101},
                   {inf, 32767, -32768},
                   {-0.0f, 0, 0},
                   {-0.5f * kLsb, -1, 1},
                   {0.49f * kLsb, 0, 0},
                   {-inf, -32768, 32767},
                   {-32768.5f * kLsb, -32768, 32767}};
    std::vector<float> left;
    for (const auto& s : samples)
        left.push_back(s.sample);
    std::vector<float> right(left.size());
    std::transform(left.begin(), left.end(), right.begin(), [](float x) { return -x; });
    for (const bool mono : {false, true}) {
        SCOPED_TRACE(mono ? "mono" : "stereo");
        QTemporaryDir folder;
        const QString path = folder.filePath("float.wav");
        ASSERT_TRUE(test::writeWav(path, mono ? Channels{left} : Channels{left, right}, 44100));
        const auto file = openDecoded(path);
        ASSERT_TRUE(file);
        const Channels decoded = readChannels(*file);
        ASSERT_EQ(decoded[0].size(), left.size());
        for (std::size_t i = 0; i < left.size(); ++i) {
            EXPECT_EQ(decoded[0][i] * 32768.0f, samples[i].expected) << "sample " << i;
            EXPECT_EQ(decoded[1][i] * 32768.0f, mono ? samples[i].expected : samples[i].negated)
                << "sample " << i;
        }
    }
}

TEST(TeskExtendedAudioFile, M4aWithAMillisecondEditListEndsAtItsStreamDuration) {
    QTemporaryDir folder;
    const std::size_t frames = 100003;
    const QString coarse = folder.filePath("coarse.m4a");
    ASSERT_TRUE(test::writeEncoded(coarse, testSong(frames), 44100, kAac));
    const auto coarseFile = openDecoded(coarse);
    ASSERT_TRUE(coarseFile);
    const qint64 streamDuration = test::probeAudioStream(coarse, "duration_ts").toLongLong();
    EXPECT_NEAR(double(streamDuration), double(frames), 45.0);
    EXPECT_EQ(coarseFile->frameCount(), streamDuration);
}

TEST(TeskExtendedAudioFile, ManyChannelsMixDownWithEveryChannelAndNoClipping) {
    QTemporaryDir folder;
    // 5.1 order: front left, front right, centre, LFE, back left, back right.
    const std::vector<double> tones{300.0, 500.0, 700.0, 100.0, 900.0, 1100.0};
    Channels channels;
    for (double frequency : tones)
        channels.push_back(test::sine(frequency, 0.95, 44100));
    const QString wav = folder.filePath("six.wav");
    const QString m4a = folder.filePath("six.m4a");
    ASSERT_TRUE(test::writeWav(wav, channels, 44100));
    ASSERT_TRUE(test::encodeWithFfmpeg(wav, m4a, kAac));

    for (const QString& path : {wav, m4a}) {
        SCOPED_TRACE(path.toStdString());
        const auto file = openDecoded(path);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->info().sourceChannels, 6);
        const Channels decoded = readChannels(*file);
        const auto level = [&](int side, double frequency) {
            return test::toneAmplitude(decoded[std::size_t(side)], frequency);
        };
        for (double frequency : tones)
            EXPECT_GT(std::max(level(0, frequency), level(1, frequency)), 0.1) << frequency;
        EXPECT_GT(level(0, 300.0), 10.0 * level(1, 300.0));
        EXPECT_GT(level(1, 500.0), 10.0 * level(0, 500.0));
        for (const std::vector<float>& side : decoded) {
            const auto [lowest, highest] = std::minmax_element(side.begin(), side.end());
            EXPECT_LT(std::max(-*lowest, *highest), 32767.0f * kLsb);
        }
    }
}

TEST(TeskExtendedAudioFile, OtherRatesConvertToExactLengthAndPitch) {
    QTemporaryDir folder;
    struct Source {
        int rate;
        std::size_t frames;
        const char* codec;
        std::size_t channels;
    };
    for (const Source& source :
         {Source{8000, 24011, "pcm_s16le", 1}, Source{96000, 100001, "pcm_s24le", 2}}) {
        SCOPED_TRACE(source.rate);
        // A click in silence, then a tone that lasts to the very end.
        const std::size_t click = source.frames / 10;
        const std::size_t toneStart = source.frames / 5;
        std::vector<float> signal(source.frames, 0.0f);
        signal[click] = 0.9f;
        const auto tone = test::sine(1000.0, 0.5, source.frames - toneStart, source.rate);
        std::copy(tone.begin(), tone.end(), signal.begin() + std::ptrdiff_t(toneStart));
        const QString path = folder.filePath(QString("rate%1.wav").arg(source.rate));
        ASSERT_TRUE(test::writeEncoded(path, Channels(source.channels, signal), source.rate,
                                       {"-c:a", source.codec}));

        const auto file = openDecoded(path);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->info().sourceSampleRate, double(source.rate));
        EXPECT_EQ(file->frameCount(), engineFrames(qint64(source.frames), source.rate));
        const std::vector<float> left = readChannels(*file)[0];
        const auto start = std::ptrdiff_t(engineFrames(qint64(toneStart), source.rate));
        const auto loudest = std::max_element(left.begin(), left.begin() + start,
                                              [](float a, float b) { return a * a < b * b; });
        EXPECT_NEAR(double(loudest - left.begin()),
                    double(engineFrames(qint64(click), source.rate)), 1.0);
        const std::span<const float> toneWindow(left.data() + start + 441, 22050);
        EXPECT_NEAR(test::toneAmplitude(toneWindow, 1000.0), 0.5, 0.01);
        EXPECT_LT(test::toneAmplitude(toneWindow, 1050.0), 0.05);
        // Nothing lost at the end: the resampler's last frames are there.
        EXPECT_GT(test::rms(std::span<const float>(left).last(40)), 0.25);
    }
}

TEST(TeskExtendedAudioFile, JoinedPartsAtDifferentRatesEachKeepTheirPitch) {
    QTemporaryDir folder;
    QByteArray joined;
    for (const char* rate : {"44100", "48000"}) {
        const QString part = folder.filePath(QString("part%1.mp3").arg(rate));
        ASSERT_TRUE(test::runFfmpeg({"-f", "lavfi", "-i",
                                     QString("sine=frequency=1000:duration=1:sample_rate=") + rate,
                                     "-c:a", "libmp3lame", "-write_xing", "0", part}));
        joined += test::readFile(part);
    }
    const QString path = folder.filePath("joined.mp3");
    ASSERT_TRUE(test::writeFile(path, joined));

    const auto song = openDecoded(path);
    ASSERT_TRUE(song);
    // Each part lasts a second of engine frames, give or take the encoder's delay and padding.
    EXPECT_NEAR(double(song->frameCount()), 2.0 * 44100, 3000.0);
    const std::vector<float> left = readChannels(*song)[0];
    for (const std::span<const float> part :
         {std::span(left).subspan(11025, 22050), std::span(left).last(22050)})
        EXPECT_NEAR(test::toneAmplitude(part, 1000.0), 1.0 / 8, 0.01);
}

TEST(TeskExtendedAudioFile, FramesAreReadableWhileDecodingGoesOnAndStoppingKeepsThem) {
    // Ten minutes of a cheap source: 8 kHz mono, converted to 26 460 000 engine frames.
    constexpr qint64 kLongSongFrames = 26460000;
    QTemporaryDir folder;
    const QString path = folder.filePath("long.wav");
    ASSERT_TRUE(test::writeWav(path, {test::sine(441.0, 0.5, 8000 * 600, 8000.0)}, 8000,
                               test::WavSampleFormat::Int16));
    auto file = TeskExtendedAudioFile::openForPlayback(path, nullptr);
    ASSERT_TRUE(file);
    std::vector<std::pair<qint64, std::vector<float>>> snapshots;
    qint64 previous = 0;
    while (!file->isDecodingFinished()) {
        EXPECT_EQ(file->frameCount(), kLongSongFrames) << "a WAV states its length";
        const qint64 decoded = file->decodedFrameCount();
        EXPECT_GE(decoded, previous);
        previous = decoded;
        if (decoded < 2000 || snapshots.size() >= 50)
            continue;
        // A read across the decoded frontier stops at it, never beyond.
        std::vector<float> left(100000), right(100000);
        const qint64 read = file->readFrames(decoded - 1000, 100000, left.data(), right.data());
        EXPECT_GE(read, 1000);
        EXPECT_LE(decoded - 1000 + read, file->decodedFrameCount());
        left.resize(std::size_t(read));
        snapshots.emplace_back(decoded - 1000, std::move(left));
        // Woken by the decoder once it gets there (or when it ends).
        const bool reached = file->waitForDecodedFrames(decoded + 44100, std::chrono::seconds(5));
        EXPECT_TRUE(reached || file->isDecodingFinished());
        EXPECT_TRUE(!reached || file->decodedFrameCount() >= decoded + 44100);
    }
    EXPECT_TRUE(file->waitForDecodedFrames(kLongSongFrames, std::chrono::seconds(5)));
    // Past the end the wait answers at once that those frames will never come.
    EXPECT_FALSE(file->waitForDecodedFrames(kLongSongFrames + 1, std::chrono::hours(1)));
    EXPECT_GT(snapshots.size(), 0u) << "ten minutes decode in more than an instant";
    EXPECT_EQ(file->decodedFrameCount(), kLongSongFrames);
    EXPECT_FALSE(file->decodingError());
    for (const auto& [start, snapshot] : snapshots) {
        std::vector<float> left(snapshot.size()), right(snapshot.size());
        file->readFrames(start, qint64(left.size()), left.data(), right.data());
        EXPECT_EQ(left, snapshot) << start;
    }

    file = TeskExtendedAudioFile::openForPlayback(path, nullptr);
    ASSERT_TRUE(file);
    file->waitForDecodedFrames(44100, std::chrono::seconds(5));
    file->stopDecoding();
    EXPECT_TRUE(file->isDecodingFinished());
    const qint64 decoded = file->decodedFrameCount();
    EXPECT_GE(decoded, 44100);
    EXPECT_LT(decoded, kLongSongFrames);
    EXPECT_EQ(file->frameCount(), kLongSongFrames) << "stopped early, the estimate stays";
    EXPECT_FALSE(file->decodingError());
    std::vector<float> left(std::size_t(decoded), 0.0f), right(left.size(), 0.0f);
    EXPECT_EQ(file->readFrames(0, decoded, left.data(), right.data()), decoded);
    EXPECT_NEAR(test::toneAmplitude(std::span(left).first(44100), 441.0), 0.5, 0.01);

    // Closing songs that are still decoding (the destructor stops them) neither hangs nor leaks.
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(TeskExtendedAudioFile::openForPlayback(path, nullptr));
}

TEST(TeskExtendedAudioFile, FilesWithoutSoundFailToOpenWithAClearError) {
    QTemporaryDir folder;
    const auto writeFile = [&](const QString& name, const QByteArray& contents) {
        EXPECT_TRUE(test::writeFile(folder.filePath(name), contents));
        return folder.filePath(name);
    };
    const QString video = folder.filePath("video.mp4");
    ASSERT_TRUE(test::runFfmpeg(
        {"-f", "lavfi", "-i", "testsrc=size=32x32:rate=5", "-t", "0.4", "-c:v", "mpeg4", video}));
    const QString silentTrack = folder.filePath("nothing.wav");
    ASSERT_TRUE(test::writeWav(silentTrack, {{}, {}}, 44100));
    QByteArray noise;
    for (float sample : test::noise(127.0, 3000, 9))
        noise.append(char(sample));
    // An M4A keeps the index of its sound at the end: a download stopped halfway has none.
    const QString cutM4a = folder.filePath("cut.m4a");
    ASSERT_TRUE(test::writeEncoded(cutM4a, testSong(kSongFrames), 44100, kAac));
    ASSERT_TRUE(QFile(cutM4a).resize(QFileInfo(cutM4a).size() / 2));
    // A header that states a rate no recording uses (1 Hz, a gigahertz) is damaged; the rates
    // recordings do use open, to their ends.
    const auto toneAt = [&](int rate) {
        const QString path = folder.filePath(QString("tone%1.wav").arg(rate));
        EXPECT_TRUE(test::writeWav(path, {test::sine(440.0, 0.5, 4096, 44100)}, rate));
        return path;
    };
    for (const int rate : {1'000, 6'144'000})
        EXPECT_TRUE(TeskExtendedAudioFile::openForPlayback(toneAt(rate), nullptr)) << rate;

    const QString pipe = folder.filePath("pipe.mp3");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    const std::vector<std::pair<QString, SongFileErrorCode>> cases{
        {folder.filePath("missing.mp3"), SongFileErrorCode::NotFound},
        {folder.path(), SongFileErrorCode::NotReadable},
        {QStringLiteral("/dev/zero"), SongFileErrorCode::NotReadable},
        {pipe, SongFileErrorCode::NotReadable},
        {writeFile("empty.mp3", {}), SongFileErrorCode::Empty},
        {writeFile("chords.mp3", QByteArray("Am F C G, not a song.\n").repeated(40)),
         SongFileErrorCode::NotAudio},
        {writeFile("noise.wav", noise), SongFileErrorCode::NotAudio},
        {writeFile("lyrics.srt", "1\n00:00:01,000 --> 00:00:02,000\nHello\n\n2\n"
                                 "00:00:03,000 --> 00:00:04,000\nGoodbye\n"),
         SongFileErrorCode::NoAudioStream},
        {video, SongFileErrorCode::NoAudioStream},
        {silentTrack, SongFileErrorCode::NoSound},
        {cutM4a, SongFileErrorCode::Unopenable},
        {toneAt(1), SongFileErrorCode::Unopenable},
        {toneAt(1'000'000'000), SongFileErrorCode::Unopenable},
    };
    for (const auto& [path, code] : cases) {
        SCOPED_TRACE(path.toStdString());
        std::optional<TeskError> error;
        EXPECT_FALSE(TeskExtendedAudioFile::openForPlayback(path, &error));
        ASSERT_TRUE(test::isError(error, SongFileErrorDomain, code, QFileInfo(path).fileName()));
        EXPECT_FALSE(error->localizedRecoverySuggestion().isEmpty());
        EXPECT_FALSE(TeskExtendedAudioFile::openForPlayback(path, nullptr));
    }
}

TEST(TeskExtendedAudioFile, TruncatedFilesPlayWhatDecodedAndSayWhy) {
    QTemporaryDir folder;
    const std::size_t frames = 3 * 44100;
    const Channels song = testSong(frames);
    const QString wav = folder.filePath("cut.wav");
    const QString mp3 = folder.filePath("cut.mp3");
    ASSERT_TRUE(test::writeWav(wav, song, 44100, test::WavSampleFormat::Int16));
    ASSERT_TRUE(test::writeEncoded(mp3, song, 44100, kMp3));
    // Cut where an interrupted copy stops: on a block boundary, between two frames.
    const qint64 kept = 60000;
    ASSERT_TRUE(QFile(wav).resize(44 + 4 * kept));
    ASSERT_TRUE(QFile(mp3).resize(QFileInfo(mp3).size() / 2));

    for (const QString& path : {wav, mp3}) {
        SCOPED_TRACE(path.toStdString());
        const auto file = openDecoded(path);
        ASSERT_TRUE(file);
        EXPECT_TRUE(test::isError(file->decodingError(), SongFileErrorDomain,
                                  SongFileErrorCode::Damaged, QFileInfo(path).fileName()));
        const Channels decoded = readChannels(*file);
        if (path == wav) {
            EXPECT_EQ(file->frameCount(), kept);
            EXPECT_LE(maxDifference(decoded[0], song[0], std::size_t(kept)), 0.5f * kLsb + 1e-7f);
        } else {
            EXPECT_NEAR(double(file->frameCount()), frames / 2.0, frames * 0.05);
            // In place: FFmpeg's own decoding of the same cut file, but for its last frames.
            const auto reference = test::decodeWithFfmpeg(path);
            ASSERT_TRUE(reference);
            const std::size_t compared = std::min(decoded[0].size(), (*reference)[0].size());
            ASSERT_GT(compared, 10000u);
            EXPECT_LE(maxDifference(decoded[0], (*reference)[0], compared - 5000), kLsb);
        }
    }
}

/// How many of this process's open files are nameless files directly in `folder`.
int unnamedFilesIn(const QString& folder) {
    const QRegularExpression unnamed(
        QString("^%1/[^/]+ \\(deleted\\)$").arg(QRegularExpression::escape(folder)));
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        char target[4096];
        const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
        const ssize_t length = ::readlink(link.constData(), target, sizeof target);
        if (length > 0 &&
            unnamed.match(QFile::decodeName(QByteArray(target, int(length)))).hasMatch())
            ++count;
    }
    return count;
}

TEST(TeskExtendedAudioFile, CacheIsAnUnnamedFileInTheUserCacheFolder) {
    QTemporaryDir folder;
    const QString song = folder.filePath("song.wav");
    ASSERT_TRUE(test::writeWav(song, testSong(10000), 44100));
    const test::ScopedEnvironment cacheHome("XDG_CACHE_HOME",
                                            QFile::encodeName(folder.filePath("cache")));
    const QString cacheFolder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    ASSERT_TRUE(cacheFolder.startsWith(folder.path()));
    {
        const auto file = openDecoded(song);
        ASSERT_TRUE(file);
        EXPECT_EQ(unnamedFilesIn(cacheFolder), 1);
        EXPECT_TRUE(
            QDir(cacheFolder)
                .isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System));
    }
    EXPECT_EQ(unnamedFilesIn(cacheFolder), 0) << "closed with the song";

    // A cache folder that can't exist (under a plain file) falls back to the temporary folder.
    qputenv("XDG_CACHE_HOME", QFile::encodeName(song));
    {
        const auto file = openDecoded(song);
        ASSERT_TRUE(file);
        EXPECT_EQ(unnamedFilesIn(QDir::tempPath()), 1);
        EXPECT_EQ(file->frameCount(), 10000);
    }
}

} // namespace
} // namespace tesk
