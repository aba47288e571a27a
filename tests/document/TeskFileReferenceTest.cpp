#include "document/TeskFileReference.h"

#include "support/AudioFiles.h"
#include "support/Environment.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <random>

using namespace tesk;
using tesk::test::writeFile;

namespace {

/// A scratch tree per test. Song names carry the tree's own name so nothing outside it (the
/// music folder of whoever runs the tests) can answer a search by name.
class FileReferenceTest : public testing::Test {
protected:
    QString root() const { return QFileInfo(mDir.path()).canonicalFilePath(); }
    QString path(const QString& relative) const { return root() + QLatin1Char('/') + relative; }
    QString unique(const QString& name) const {
        return QFileInfo(root()).fileName() + QLatin1Char('-') + name;
    }

    QString makeFile(const QString& relative, const QByteArray& contents = "RIFF....WAVE") {
        const QString file = path(relative);
        EXPECT_TRUE(QDir().mkpath(QFileInfo(file).absolutePath()) && writeFile(file, contents));
        return file;
    }
    /// A copy is a new inode, as after a move to another disk.
    void move(const QString& from, const QString& to, bool asCopy = false) {
        ASSERT_TRUE(QDir().mkpath(QFileInfo(to).absolutePath()));
        ASSERT_TRUE(asCopy ? QFile::copy(from, to) && QFile::remove(from)
                           : QFile::rename(from, to));
    }

    QTemporaryDir mDir;
};

TEST_F(FileReferenceTest, ResolvesAsMadeOrThroughALinkAndOnlyForExistingFiles) {
    const QString song = makeFile(unique("song.wav"));
    const auto reference = TeskFileReference::fromPath(song);
    ASSERT_TRUE(reference);
    EXPECT_EQ(reference->resolvedPath(), song);

    // A relative path is taken from the document's folder.
    const QString document = path("practice.tesk");
    const auto relative = TeskFileReference::fromPath(unique("song.wav"), document);
    ASSERT_TRUE(relative);
    EXPECT_EQ(relative->resolvedPath(), song);
    EXPECT_EQ(relative->relativePath(), unique("song.wav"));

    for (const QString& none : {path("missing.wav"), root(), QString()})
        EXPECT_FALSE(TeskFileReference::fromPath(none)) << none.toStdString();

    // Through a link it is the same file as by its real path, and not another.
    const QString other = makeFile(unique("other.wav"));
    const QString link = path("link.wav");
    ASSERT_TRUE(QFile::link(song, link));
    const auto viaLink = TeskFileReference::fromPath(link);
    const auto toOther = TeskFileReference::fromPath(other);
    ASSERT_TRUE(viaLink && toOther);
    EXPECT_EQ(viaLink->resolvedPath(), song);
    EXPECT_EQ(viaLink->absolutePath(), link);
    EXPECT_TRUE(viaLink->isEqual(*reference));
    EXPECT_EQ(viaLink->hash(), reference->hash());
    EXPECT_FALSE(reference->isEqual(*toOther));
}

TEST_F(FileReferenceTest, FindsTheFileRenamedInItsFolder) {
    const QString song = makeFile("album/" + unique("song.wav"));
    makeFile("album/" + unique("other.wav"));
    const auto reference = TeskFileReference::fromPath(song);
    ASSERT_TRUE(reference);

    const QString renamed = path("album/" + unique("renamed.wav"));
    move(song, renamed);
    EXPECT_EQ(reference->resolvedPath(), renamed);

    // A file saved in the song's place under its name is taken for it.
    const QString replacement = makeFile("album/" + unique("song.wav"));
    EXPECT_EQ(reference->resolvedPath(), replacement);
}

TEST_F(FileReferenceTest, FindsTheFileMovedToAnotherFolderOfTheSameFileSystem) {
    const QString song = makeFile("a/" + unique("song.wav"));
    makeFile("b/c/" + unique("decoy.wav"));
    const auto reference = TeskFileReference::fromPath(song);
    ASSERT_TRUE(reference);

    // Renamed too, so only its identity can find it; the old folder is gone.
    const QString moved = path("b/c/d/" + unique("moved.wav"));
    move(song, moved);
    ASSERT_TRUE(QDir(path("a")).removeRecursively());
    EXPECT_EQ(reference->resolvedPath(), moved);
}

TEST_F(FileReferenceTest, FindsTheFileBesideTheDocumentAndMovedWithIt) {
    const QString document = makeFile("project/practice.tesk", "{}");
    const QString song = makeFile("project/audio/" + unique("song.wav"));
    const auto reference = TeskFileReference::fromPath(song, document);
    ASSERT_TRUE(reference);
    EXPECT_EQ(reference->relativePath(), "audio/" + unique("song.wav"));

    // The document and its song moved together, as copies with new inodes: only the
    // relative path knows where the song went.
    const QString movedDocument = path("elsewhere/deep/moved/practice.tesk");
    const QString movedSong = path("elsewhere/deep/moved/audio/" + unique("song.wav"));
    move(document, movedDocument, true);
    move(song, movedSong, true);
    EXPECT_EQ(reference->resolvedPath(movedDocument), movedSong);
    EXPECT_EQ(reference->resolvedPath(), QString());

    // The song put beside the document, again as a new file.
    const QString beside = path("elsewhere/deep/moved/" + unique("song.wav"));
    move(movedSong, beside, true);
    EXPECT_EQ(reference->resolvedPath(movedDocument), beside);
}

TEST_F(FileReferenceTest, FindsTheFileInTheMusicFolder) {
    // Qt reads the music folder from the XDG user directories on every call.
    const QString music = path("Music");
    ASSERT_TRUE(QDir().mkpath(music));
    makeFile("config/user-dirs.dirs", "XDG_MUSIC_DIR=\"" + music.toUtf8() + "\"\n");
    const test::ScopedEnvironment config("XDG_CONFIG_HOME", path("config").toUtf8());
    ASSERT_EQ(QStandardPaths::writableLocation(QStandardPaths::MusicLocation), music);

    const QString song = makeFile("downloads/" + unique("song.wav"));
    const auto reference = TeskFileReference::fromPath(song);
    ASSERT_TRUE(reference);
    // Another recording of the same name there does not win over the song itself, moved near
    // where it was.
    const QString namesake = makeFile("Music/Other/" + unique("song.wav"), "another take");
    const QString nearby = path("lessons/2023/" + unique("song.wav"));
    move(song, nearby);
    EXPECT_EQ(reference->resolvedPath(), nearby);
    ASSERT_TRUE(QFile::remove(namesake));
    const QString filed = path("Music/Artist/" + unique("song.wav"));
    move(nearby, filed, true);
    EXPECT_EQ(reference->resolvedPath(), filed);
}

TEST_F(FileReferenceTest, ANewFileWhereTheSongIsLookedForByNameWouldBeFoundAsTheSong) {
    // Exporting there while the song is missing would give its practice another sound.
    const QString music = path("Music");
    ASSERT_TRUE(QDir().mkpath(music));
    makeFile("config/user-dirs.dirs", "XDG_MUSIC_DIR=\"" + music.toUtf8() + "\"\n");
    const test::ScopedEnvironment config("XDG_CONFIG_HOME", path("config").toUtf8());
    const QString name = unique("song.m4a");
    const QString document = makeFile("project/practice.tesk", "{}");
    const QString song = makeFile("project/audio/" + name);
    const auto reference = TeskFileReference::fromPath(song, document);
    ASSERT_TRUE(reference);
    ASSERT_TRUE(QFile::remove(song));
    ASSERT_TRUE(QFile::link(path("project"), path("link")));
    const QString moved = path("moved/practice.tesk"); // the practice, moved without its song
    const struct {
        QString at;
        QString documentPath;
        bool found;
    } places[] = {
        {song, {}, true},                                   // where it was
        {path("link/audio/" + name), {}, true},             // the same, through a link
        {path("project/" + name), document, true},          // beside the practice
        {path("moved/audio/" + name), moved, true},         // where the practice moved
        {path("moved/" + name), moved, true},               // beside it there
        {path("Music/" + name), {}, true},                  // in the music folder
        {path("Music/Artist/" + name), {}, true},           // or one of its folders
        {path("Music/Artist/Album/" + name), {}, false},    // but no deeper
        {path("project/audio/other.m4a"), document, false}, // another name
        {path("elsewhere/" + name), document, false},       // somewhere else
    };
    for (const auto& place : places) {
        EXPECT_EQ(reference->wouldFindAt(place.at, place.documentPath), place.found)
            << place.at.toStdString();
    }
}

TEST_F(FileReferenceTest, DeletedFileResolvesToNothingAndEqualsNothing) {
    const QString song = makeFile("a/" + unique("song.wav"));
    {
        QFile file(song); // written an hour ago
        ASSERT_TRUE(file.open(QIODevice::ReadWrite) &&
                    file.setFileTime(QDateTime::currentDateTime().addSecs(-3600),
                                     QFileDevice::FileModificationTime));
    }
    const auto reference = TeskFileReference::fromPath(song);
    const auto same = TeskFileReference::fromPath(song);
    ASSERT_TRUE(reference && same);
    EXPECT_EQ(*reference, *same);

    ASSERT_TRUE(QFile::remove(song));
    EXPECT_EQ(reference->resolvedPath(), QString());
    EXPECT_EQ(reference->resolvedPath(path("practice.tesk")), QString());
    EXPECT_FALSE(*reference == *same);

    // The file system hands the freed inode to the next new file, which is not the song, even
    // when it is the song's size.
    const QString newcomer = makeFile("a/" + unique("newcomer.wav"), "RIFF....WAVE");
    if (TeskFileReference::fromPath(newcomer)->inode() != reference->inode())
        GTEST_SKIP() << "this file system did not reuse the inode";
    EXPECT_EQ(reference->resolvedPath(), QString());
}

TEST_F(FileReferenceTest, BytesRoundTripAndDamagedBytesAreRefused) {
    const QString document = path("practice.tesk");
    const QString song = makeFile("songs/" + unique("sóng ♪.wav"));
    const auto reference = TeskFileReference::fromPath(song, document);
    ASSERT_TRUE(reference);
    const QByteArray bytes = reference->toBytes();

    const auto read = TeskFileReference::fromBytes(bytes);
    ASSERT_TRUE(read);
    // Any field read wrongly would be written back differently.
    EXPECT_EQ(read->toBytes(), bytes);
    // The read copy still follows the file.
    const QString renamed = path("songs/renamed.wav");
    move(song, renamed);
    EXPECT_EQ(read->resolvedPath(document), renamed);

    for (qsizetype length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(TeskFileReference::fromBytes(bytes.first(length))) << "length " << length;
    EXPECT_FALSE(TeskFileReference::fromBytes(bytes + QByteArray(1, '\0')));
    for (qsizetype bit = 0; bit < bytes.size() * 8; ++bit) {
        QByteArray flipped = bytes;
        flipped[bit / 8] = char(flipped[bit / 8] ^ (1 << (bit % 8)));
        EXPECT_FALSE(TeskFileReference::fromBytes(flipped)) << "bit " << bit;
    }

    std::mt19937 random(20261122);
    for (int round = 0; round < 2000; ++round) {
        QByteArray garbage(qsizetype(random() % 200), Qt::Uninitialized);
        for (char& byte : garbage)
            byte = char(random());
        // Half of them look like ours at first sight, so the reading goes past the header.
        if (round % 2 == 0)
            garbage = bytes.first(qsizetype(random() % bytes.size())) + garbage;
        EXPECT_FALSE(TeskFileReference::fromBytes(garbage)) << "round " << round;
    }
}

} // namespace
