// Reading a song's tags and cover: text in any of the tag encodings arrives intact, pictures
// arrive byte for byte with the right type, and files that aren't songs give nothing.
#include "audio/SongMetadataReader.h"

#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

namespace tesk {
namespace {

const QString kTitle = QStringLiteral("Ünïcødé — 日本語");
const QString kArtist = QStringLiteral("Björk Guðmundsdóttir");
const QString kAlbum = QStringLiteral("Ágætis byrjun ♪");
const QStringList kTagArguments{"-metadata",         "title=" + kTitle, "-metadata",
                                "artist=" + kArtist, "-metadata",       "album=" + kAlbum};

/// The tags above, with `cover` of type `mimeType`.
SongMetadata tagged(const QByteArray& cover = {}, const QString& mimeType = {}) {
    return {kTitle, kArtist, kAlbum, cover, mimeType};
}

test::Channels twoSecondsOfTone() {
    return {test::sine(440.0, 0.5, 88200), test::sine(660.0, 0.5, 88200)};
}

/// Encodes two seconds of tone into `output` with `options`, the tags above and the picture
/// `cover` (made here, in the format its extension names) attached in ID3 version 2.3; returns
/// the picture's bytes.
QByteArray tagWithCover(const QString& output, const QString& cover, const QStringList& options) {
    const QString source = output + ".source.wav";
    EXPECT_TRUE(test::writeWav(source, twoSecondsOfTone(), 44100));
    const QByteArray picture = test::writePicture(cover);
    QString log;
    const QStringList arguments =
        QStringList{"-i", source, "-i", cover} +
        test::splitArguments(
            "-map 0 -map 1 -c:v copy -disposition:v attached_pic -id3v2_version 3");
    EXPECT_TRUE(test::runFfmpeg(arguments + options + kTagArguments + QStringList{output}, &log))
        << log.toStdString();
    return picture;
}

TEST(SongMetadataReader, ReadsUtf16Id3TagsAndTheCoverOfAnMp3) {
    QTemporaryDir folder;
    const QString mp3 = folder.filePath("song.mp3");
    const QByteArray picture =
        tagWithCover(mp3, folder.filePath("cover.jpg"),
                     {"-c:a", "libmp3lame", "-metadata:s:v", "comment=Cover (front)"});
    ASSERT_FALSE(picture.isEmpty());

    // The title frame really is UTF-16 (text encoding byte 1 after the ten-byte frame header),
    // so the reader is tested on the encoding it must convert.
    const QByteArray bytes = test::readFile(mp3);
    const qsizetype titleFrame = bytes.indexOf("TIT2");
    ASSERT_GE(titleFrame, 0);
    EXPECT_EQ(bytes.at(titleFrame + 10), 1);
    EXPECT_EQ(readSongMetadata(mp3), tagged(picture, "image/jpeg"));
}

TEST(SongMetadataReader, FindsTagsKeptOnTheSoundStream) {
    // Ogg Vorbis keeps its comments on the stream, not on the container.
    QTemporaryDir folder;
    const QString ogg = folder.filePath("song.ogg");
    ASSERT_TRUE(test::writeEncoded(ogg, twoSecondsOfTone(), 44100,
                                   QStringList{"-c:a", "libvorbis"} + kTagArguments));
    EXPECT_EQ(readSongMetadata(ogg), tagged());
}

TEST(SongMetadataReader, ReadsTheTagsOfAiffWithItsCoverAndOfWav) {
    // AIFF keeps its tags, and the cover, in an ID3 chunk.
    QTemporaryDir folder;
    const QString aiff = folder.filePath("song.aiff");
    const QByteArray picture =
        tagWithCover(aiff, folder.filePath("cover.png"), {"-write_id3v2", "1"});
    ASSERT_FALSE(picture.isEmpty());
    EXPECT_EQ(readSongMetadata(aiff), tagged(picture, "image/png"));

    // WAV keeps them in its INFO list, as UTF-8, and has no place for a cover.
    const QString wav = folder.filePath("tagged.wav");
    ASSERT_TRUE(test::writeEncoded(wav, twoSecondsOfTone(), 44100, kTagArguments));
    EXPECT_EQ(readSongMetadata(wav), tagged());
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
    std::mt19937 generator(7);
    QByteArray bytes(64 * 1024, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = char(generator() & 0xff);
    ASSERT_TRUE(test::writeFile(garbage, bytes));
    const QString empty = folder.filePath("empty.m4a");
    ASSERT_TRUE(test::writeFile(empty, {}));
    const QString picture = folder.filePath("picture.png");
    ASSERT_FALSE(test::writePicture(picture).isEmpty());

    EXPECT_FALSE(readSongMetadata(garbage));
    EXPECT_FALSE(readSongMetadata(empty));
    EXPECT_FALSE(readSongMetadata(picture)) << "a picture has no sound";
    EXPECT_FALSE(readSongMetadata(folder.filePath("missing.mp3")));
    EXPECT_FALSE(readSongMetadata(folder.path())) << "a folder";
}

} // namespace
} // namespace tesk
