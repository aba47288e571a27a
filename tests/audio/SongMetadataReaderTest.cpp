// Reading a song's tags and cover: text in any of the tag encodings arrives intact, pictures
// arrive byte for byte with the right type, and files that aren't songs give nothing.
#include "audio/SongMetadataReader.h"

#include "support/AudioFiles.h"
#include "support/SongFiles.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

namespace tesk {
namespace {

TEST(SongMetadataReader, ReadsTheTagsAndCoverWhereEachFormatKeepsThem) {
    struct Case {
        const char* name;
        const char* cover; // null: none
        const char* mimeType;
        QStringList options;
        const char* backCover = nullptr; // a picture before the cover, marked as the back
    };
    const Case cases[] = {
        // ID3 version 2.3, whose text is UTF-16; among several pictures, the one marked as the
        // front cover, wherever it stands.
        {"pictures.mp3",
         "front.jpg",
         "image/jpeg",
         {"-c:a", "libmp3lame", "-metadata:s:v:0", "comment=Cover (back)", "-metadata:s:v:1",
          "comment=Cover (front)"},
         "back.png"},
        // Ogg Vorbis keeps its comments on the stream, not on the container.
        {"song.ogg", nullptr, "", {"-c:a", "libvorbis"}},
        // WAV keeps them in its INFO list, as UTF-8, and has no place for a cover.
        {"song.wav", nullptr, "", {}},
    };
    QTemporaryDir folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = folder.filePath(c.name);
        const QString source = test::writeTone(path + ".source.wav", 2.0);
        QByteArray picture;
        QStringList arguments{"-i", source};
        if (c.backCover) {
            ASSERT_FALSE(test::writePicture(folder.filePath(c.backCover)).isEmpty());
            arguments += QStringList{"-i", folder.filePath(c.backCover)};
        }
        if (c.cover) {
            picture = test::writePicture(folder.filePath(c.cover));
            ASSERT_FALSE(picture.isEmpty());
            arguments += QStringList{"-i", folder.filePath(c.cover), "-map", "0", "-map", "1"} +
                         (c.backCover ? QStringList{"-map", "2"} : QStringList{}) +
                         test::splitArguments("-c:v copy -disposition:v attached_pic "
                                              "-id3v2_version 3");
        }
        QString log;
        ASSERT_TRUE(test::runFfmpeg(
            arguments + c.options + test::tagArguments(test::threeScriptTags()) + QStringList{path},
            &log))
            << log.toStdString();
        EXPECT_EQ(readSongMetadata(path), test::threeScriptTags(picture, c.mimeType));
    }
    // The title frame really is UTF-16 (text encoding byte 1 after the ten-byte frame header),
    // so the reader is tested on the encoding it must convert.
    const QByteArray mp3 = test::readFile(folder.filePath("pictures.mp3"));
    const qsizetype titleFrame = mp3.indexOf("TIT2");
    ASSERT_GE(titleFrame, 0);
    EXPECT_EQ(mp3.at(titleFrame + 10), 1);
}

TEST(SongMetadataReader, TextInWindowsEncodingOfOlderWavWritersIsReadAsSuch) {
    // Written as "Noir Cafe" by "Bjork" on "Don't Stop", then given Windows' single bytes for é,
    // ö and ’ in their places, as older Windows software writes them: the lengths stay the
    // same. A title that ends in é is one of them.
    QTemporaryDir folder;
    const QString source = test::writeTone(folder.filePath("source.wav"), 1.0);
    const QString path = folder.filePath("latin.wav");
    QString log;
    ASSERT_TRUE(test::runFfmpeg({"-i", source, "-metadata", "title=Noir Cafe", "-metadata",
                                 "artist=Bjork", "-metadata", "album=Don't Stop", path},
                                &log))
        << log.toStdString();
    QByteArray bytes = test::readFile(path);
    bytes.replace("Noir Cafe", "Noir Caf\xe9")
        .replace("Bjork", "Bj\xf6rk")
        .replace("Don't Stop", "Don\x92t Stop");
    ASSERT_TRUE(test::writeFile(path, bytes));
    const std::optional<SongMetadata> metadata = readSongMetadata(path);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(metadata->title, QString::fromUtf8("Noir Café"));
    EXPECT_EQ(metadata->artist, QString::fromUtf8("Björk"));
    EXPECT_EQ(metadata->album, QString::fromUtf8("Don’t Stop"));
}

TEST(SongMetadataReader, SongWithoutTagsGivesEmptyValuesAndFilesThatAreNotSongsNothing) {
    QTemporaryDir folder;
    const QString wav = test::writeTone(folder.filePath("plain.wav"), 2.0);
    const std::optional<SongMetadata> metadata = readSongMetadata(wav);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(*metadata, SongMetadata{});
    // A tag of blanks alone is none (the window then names the file); line breaks read as spaces.
    const QString blank = folder.filePath("blank.mp3");
    ASSERT_TRUE(test::runFfmpeg(
        {"-i", wav, "-metadata", "title=   ", "-metadata", "artist=Line one\r\nLine two", blank}));
    const std::optional<SongMetadata> blankTags = readSongMetadata(blank);
    ASSERT_TRUE(blankTags);
    EXPECT_EQ(blankTags->title, QString());
    EXPECT_EQ(blankTags->artist, "Line one Line two");

    const QString garbage = folder.filePath("garbage.mp3");
    std::mt19937 generator(7);
    QByteArray bytes(64 * 1024, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = char(generator() & 0xff);
    ASSERT_TRUE(test::writeFile(garbage, bytes));
    const QString picture = folder.filePath("picture.png");
    ASSERT_FALSE(test::writePicture(picture).isEmpty());

    EXPECT_FALSE(readSongMetadata(garbage));
    EXPECT_FALSE(readSongMetadata(picture)) << "a picture has no sound";
    EXPECT_FALSE(readSongMetadata(folder.filePath("missing.mp3")));
    EXPECT_FALSE(readSongMetadata(folder.path())) << "a folder";
}

} // namespace
} // namespace tesk
