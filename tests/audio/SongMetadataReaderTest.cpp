// Reading a song's tags and cover: text in any of the tag encodings arrives intact, pictures
// arrive byte for byte with the right type, and files that aren't songs give nothing.
#include "audio/SongMetadataReader.h"

#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

namespace tesk {
namespace {

const QString kTitle = QStringLiteral("Ünïcødé — 日本語");
const QString kArtist = QStringLiteral("Björk Guðmundsdóttir");
const QString kAlbum = QStringLiteral("Ágætis byrjun ♪");

test::Channels twoSecondsOfTone() {
    return {test::sine(440.0, 0.5, 88200), test::sine(660.0, 0.5, 88200)};
}

QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A small picture made by ffmpeg; its format follows the extension of `path`.
QByteArray makePicture(const QString& path) {
    EXPECT_TRUE(test::runFfmpeg(
        {"-f", "lavfi", "-i", "testsrc=size=96x64:duration=1", "-frames:v", "1", path}));
    return readBytes(path);
}

TEST(SongMetadataReader, ReadsUtf16Id3TagsAndTheCoverOfAnMp3) {
    QTemporaryDir folder;
    const QString source = folder.filePath("song.wav");
    const QString cover = folder.filePath("cover.jpg");
    const QString mp3 = folder.filePath("song.mp3");
    ASSERT_TRUE(test::writeWav(source, twoSecondsOfTone(), 44100));
    const QByteArray picture = makePicture(cover);
    ASSERT_FALSE(picture.isEmpty());
    QString log;
    ASSERT_TRUE(test::runFfmpeg({"-i",
                                 source,
                                 "-i",
                                 cover,
                                 "-map",
                                 "0",
                                 "-map",
                                 "1",
                                 "-c:a",
                                 "libmp3lame",
                                 "-c:v",
                                 "copy",
                                 "-disposition:v",
                                 "attached_pic",
                                 "-metadata:s:v",
                                 "comment=Cover (front)",
                                 "-id3v2_version",
                                 "3",
                                 "-metadata",
                                 "title=" + kTitle,
                                 "-metadata",
                                 "artist=" + kArtist,
                                 "-metadata",
                                 "album=" + kAlbum,
                                 mp3},
                                &log))
        << log.toStdString();

    // The title frame really is UTF-16 (text encoding byte 1 after the ten-byte frame header),
    // so the reader is tested on the encoding it must convert.
    const QByteArray bytes = readBytes(mp3);
    const qsizetype titleFrame = bytes.indexOf("TIT2");
    ASSERT_GE(titleFrame, 0);
    EXPECT_EQ(bytes.at(titleFrame + 10), 1);

    const std::optional<SongMetadata> metadata = readSongMetadata(mp3);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(metadata->title, kTitle);
    EXPECT_EQ(metadata->artist, kArtist);
    EXPECT_EQ(metadata->album, kAlbum);
    EXPECT_EQ(metadata->coverImage, picture);
    EXPECT_EQ(metadata->coverMimeType, "image/jpeg");
}

TEST(SongMetadataReader, FindsTagsKeptOnTheSoundStream) {
    // Ogg Vorbis keeps its comments on the stream, not on the container.
    QTemporaryDir folder;
    const QString ogg = folder.filePath("song.ogg");
    ASSERT_TRUE(
        test::writeEncoded(ogg, twoSecondsOfTone(), 44100,
                           {"-c:a", "libvorbis", "-metadata", "title=" + kTitle, "-metadata",
                            "artist=" + kArtist, "-metadata", "album=" + kAlbum}));
    const std::optional<SongMetadata> metadata = readSongMetadata(ogg);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(metadata->title, kTitle);
    EXPECT_EQ(metadata->artist, kArtist);
    EXPECT_EQ(metadata->album, kAlbum);
    EXPECT_TRUE(metadata->coverImage.isEmpty());
}

TEST(SongMetadataReader, ReadsTheTagsOfAiffWithItsCoverAndOfWav) {
    QTemporaryDir folder;
    const QString source = folder.filePath("song.wav");
    const QString cover = folder.filePath("cover.png");
    ASSERT_TRUE(test::writeWav(source, twoSecondsOfTone(), 44100));
    const QByteArray picture = makePicture(cover);
    ASSERT_FALSE(picture.isEmpty());
    const QStringList tags{"-metadata",         "title=" + kTitle, "-metadata",
                           "artist=" + kArtist, "-metadata",       "album=" + kAlbum};

    // AIFF keeps its tags, and the cover, in an ID3 chunk.
    const QString aiff = folder.filePath("song.aiff");
    QString log;
    ASSERT_TRUE(test::runFfmpeg(QStringList{"-i", source, "-i", cover, "-map", "0", "-map", "1",
                                            "-c:v", "copy", "-disposition:v", "attached_pic",
                                            "-write_id3v2", "1", "-id3v2_version", "3"} +
                                    tags + QStringList{aiff},
                                &log))
        << log.toStdString();
    const std::optional<SongMetadata> aiffTags = readSongMetadata(aiff);
    ASSERT_TRUE(aiffTags);
    EXPECT_EQ(aiffTags->title, kTitle);
    EXPECT_EQ(aiffTags->artist, kArtist);
    EXPECT_EQ(aiffTags->album, kAlbum);
    EXPECT_EQ(aiffTags->coverImage, picture);
    EXPECT_EQ(aiffTags->coverMimeType, "image/png");

    // WAV keeps them in its INFO list, as UTF-8, and has no place for a cover.
    const QString wav = folder.filePath("tagged.wav");
    ASSERT_TRUE(test::runFfmpeg(QStringList{"-i", source} + tags + QStringList{wav}, &log))
        << log.toStdString();
    const std::optional<SongMetadata> wavTags = readSongMetadata(wav);
    ASSERT_TRUE(wavTags);
    EXPECT_EQ(wavTags->title, kTitle);
    EXPECT_EQ(wavTags->artist, kArtist);
    EXPECT_EQ(wavTags->album, kAlbum);
    EXPECT_TRUE(wavTags->coverImage.isEmpty());
}

TEST(SongMetadataReader, SongWithoutTagsGivesEmptyValues) {
    QTemporaryDir folder;
    const QString wav = folder.filePath("plain.wav");
    ASSERT_TRUE(test::writeWav(wav, twoSecondsOfTone(), 44100));
    const std::optional<SongMetadata> metadata = readSongMetadata(wav);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(*metadata, SongMetadata{});
}

TEST(SongMetadataReader, FilesThatAreNotSongsGiveNothing) {
    QTemporaryDir folder;
    const QString garbage = folder.filePath("garbage.mp3");
    {
        std::mt19937 generator(7);
        QByteArray bytes(64 * 1024, Qt::Uninitialized);
        for (char& byte : bytes)
            byte = char(generator() & 0xff);
        QFile file(garbage);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    const QString empty = folder.filePath("empty.m4a");
    ASSERT_TRUE(QFile(empty).open(QIODevice::WriteOnly));
    const QString picture = folder.filePath("picture.png");
    ASSERT_FALSE(makePicture(picture).isEmpty());

    EXPECT_FALSE(readSongMetadata(garbage));
    EXPECT_FALSE(readSongMetadata(empty));
    EXPECT_FALSE(readSongMetadata(picture)) << "a picture has no sound";
    EXPECT_FALSE(readSongMetadata(folder.filePath("missing.mp3")));
    EXPECT_FALSE(readSongMetadata(folder.path())) << "a folder";
}

} // namespace
} // namespace tesk
