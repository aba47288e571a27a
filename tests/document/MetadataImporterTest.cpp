// Importing a song's metadata: tags in any encoding and the cover reach the delegate on the
// main thread, the cover fills the artwork, and late results after the delegate was cleared
// or the importer destroyed go nowhere.
#include "document/MetadataImporter.h"

#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <QCoreApplication>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QThreadPool>
#include <gtest/gtest.h>

#include <cstdlib>

namespace tesk {
namespace {

const QString kTitle = QStringLiteral("日本語 Ünïcødé");
const QString kArtist = QStringLiteral("Björk Guðmundsdóttir");
const QString kAlbum = QStringLiteral("Ágætis byrjun ♪");

class RecordingDelegate : public MetadataImporterDelegate {
public:
    void metadataImporterDidFinishImporting(MetadataImporter* importer) override {
        ++calls;
        onMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
        finishedImporter = importer;
        if (deleteImporter)
            delete importer;
    }

    int calls = 0;
    bool onMainThread = false;
    bool deleteImporter = false;
    MetadataImporter* finishedImporter = nullptr;
};

bool writeTone(const QString& path) {
    return test::writeWav(path, {test::sine(440.0, 0.5, 44100), test::sine(660.0, 0.5, 44100)},
                          44100);
}

/// An MP3 with ID3v2.3 tags, whose non-Latin text ffmpeg stores as UTF-16, and `cover`
/// attached as its front picture when given.
QString writeTaggedMp3(const QTemporaryDir& folder, const QString& cover = {}) {
    const QString source = folder.filePath("tone.wav");
    const QString mp3 = folder.filePath("song.mp3");
    EXPECT_TRUE(writeTone(source));
    QStringList arguments{"-i", source};
    if (!cover.isEmpty())
        arguments << "-i" << cover << "-map"
                  << "0"
                  << "-map"
                  << "1"
                  << "-c:v"
                  << "copy"
                  << "-disposition:v"
                  << "attached_pic";
    arguments << "-c:a"
              << "libmp3lame"
              << "-id3v2_version"
              << "3"
              << "-metadata"
              << "title=" + kTitle << "-metadata"
              << "artist=" + kArtist << "-metadata"
              << "album=" + kAlbum << mp3;
    QString log;
    EXPECT_TRUE(test::runFfmpeg(arguments, &log)) << log.toStdString();
    return mp3;
}

bool waitUntilFinished(const MetadataImporter& importer) {
    return QTest::qWaitFor([&] { return importer.isFinished(); }, 20000);
}

bool isNear(QColor actual, QColor expected) {
    return std::abs(actual.red() - expected.red()) <= 12 &&
           std::abs(actual.green() - expected.green()) <= 12 &&
           std::abs(actual.blue() - expected.blue()) <= 12 && actual.alpha() == 255;
}

TEST(MetadataImporter, BringsUtf16TagsToTheDelegateOnTheMainThread) {
    QTemporaryDir folder;
    const QString mp3 = writeTaggedMp3(folder);
    RecordingDelegate delegate;
    MetadataImporter importer(QUrl::fromLocalFile(mp3), &delegate);
    // The delegate hears from the event loop, never from inside the constructor.
    EXPECT_EQ(delegate.calls, 0);

    ASSERT_TRUE(waitUntilFinished(importer));
    EXPECT_EQ(delegate.calls, 1);
    EXPECT_TRUE(delegate.onMainThread);
    EXPECT_EQ(delegate.finishedImporter, &importer);
    EXPECT_EQ(importer.title(), kTitle);
    EXPECT_EQ(importer.artist(), kArtist);
    EXPECT_EQ(importer.album(), kAlbum);
    EXPECT_TRUE(importer.albumArt().isNull());
    EXPECT_EQ(importer.fileURL(), QUrl::fromLocalFile(mp3));
}

TEST(MetadataImporter, FilesWithoutTagsOrThatCannotBeReadFinishEmpty) {
    QTemporaryDir folder;
    const QString wav = folder.filePath("plain.wav");
    ASSERT_TRUE(writeTone(wav));
    const QString missing = folder.filePath("missing.mp3");

    for (const QString& path : {wav, missing}) {
        SCOPED_TRACE(path.toStdString());
        RecordingDelegate delegate;
        MetadataImporter importer(QUrl::fromLocalFile(path), &delegate);
        ASSERT_TRUE(waitUntilFinished(importer));
        EXPECT_EQ(delegate.calls, 1);
        EXPECT_TRUE(importer.title().isEmpty());
        EXPECT_TRUE(importer.artist().isEmpty());
        EXPECT_TRUE(importer.album().isEmpty());
        EXPECT_TRUE(importer.albumArt().isNull());
    }
}

TEST(MetadataImporter, WideCoverFillsTheArtworkCroppedToItsCentre) {
    // 600 × 400: red, with 100-pixel blue bands on both sides. Filling the square artwork
    // keeps the central 400 × 400, all red; stretching would show the blue at the sides and
    // fitting would leave the top and bottom empty.
    QTemporaryDir folder;
    QImage cover(600, 400, QImage::Format_RGB32);
    cover.fill(Qt::red);
    for (int y = 0; y < cover.height(); ++y) {
        for (int x = 0; x < 100; ++x) {
            cover.setPixelColor(x, y, Qt::blue);
            cover.setPixelColor(cover.width() - 1 - x, y, Qt::blue);
        }
    }
    const QString coverPath = folder.filePath("cover.png");
    ASSERT_TRUE(cover.save(coverPath));
    const QString mp3 = writeTaggedMp3(folder, coverPath);

    RecordingDelegate delegate;
    MetadataImporter importer(QUrl::fromLocalFile(mp3), &delegate);
    ASSERT_TRUE(waitUntilFinished(importer));
    const QImage art = importer.albumArt();
    ASSERT_FALSE(art.isNull());
    EXPECT_EQ(art.size(), MetadataImporter::albumArtworkSize());
    EXPECT_EQ(art.size(), QSize(512, 512));
    for (const QPoint point : {QPoint(256, 256), QPoint(2, 256), QPoint(509, 256), QPoint(256, 2),
                               QPoint(256, 509), QPoint(2, 2), QPoint(509, 509)}) {
        EXPECT_TRUE(isNear(art.pixelColor(point), Qt::red))
            << point.x() << "," << point.y() << " is "
            << art.pixelColor(point).name().toStdString();
    }
    EXPECT_EQ(importer.title(), kTitle);
}

TEST(MetadataImporter, TallJpegCoverInAnM4aFillsTheArtwork) {
    QTemporaryDir folder;
    const QString source = folder.filePath("tone.wav");
    const QString cover = folder.filePath("cover.jpg");
    const QString m4a = folder.filePath("song.m4a");
    ASSERT_TRUE(writeTone(source));
    ASSERT_TRUE(
        test::runFfmpeg({"-f", "lavfi", "-i", "color=c=red:s=400x600", "-frames:v", "1", cover}));
    QString log;
    ASSERT_TRUE(test::runFfmpeg({"-i", source, "-i", cover, "-map", "0", "-map", "1", "-c:a", "aac",
                                 "-c:v", "copy", "-disposition:v", "attached_pic", "-metadata",
                                 "title=" + kTitle, m4a},
                                &log))
        << log.toStdString();

    RecordingDelegate delegate;
    MetadataImporter importer(QUrl::fromLocalFile(m4a), &delegate);
    ASSERT_TRUE(waitUntilFinished(importer));
    const QImage art = importer.albumArt();
    ASSERT_EQ(art.size(), QSize(512, 512));
    EXPECT_TRUE(isNear(art.pixelColor(256, 256), Qt::red));
    EXPECT_TRUE(isNear(art.pixelColor(256, 2), Qt::red));
    EXPECT_TRUE(isNear(art.pixelColor(2, 256), Qt::red));
    EXPECT_EQ(importer.title(), kTitle);
}

TEST(MetadataImporter, LateResultsGoNowhereOnceTheDelegateIsClearedOrTheImporterIsGone) {
    QTemporaryDir folder;
    const QString mp3 = writeTaggedMp3(folder);

    // Cleared: the importer still finishes, but the former delegate hears nothing.
    RecordingDelegate cleared;
    MetadataImporter importer(QUrl::fromLocalFile(mp3), &cleared);
    importer.setDelegate(nullptr);
    ASSERT_TRUE(waitUntilFinished(importer));
    EXPECT_EQ(cleared.calls, 0);
    EXPECT_EQ(importer.title(), kTitle);

    // Destroyed while its worker runs, and destroyed with its result already queued: either
    // way the result is dropped without touching the importer.
    RecordingDelegate orphaned;
    for (int i = 0; i < 8; ++i)
        delete new MetadataImporter(QUrl::fromLocalFile(mp3), &orphaned);
    auto* queued = new MetadataImporter(QUrl::fromLocalFile(mp3), &orphaned);
    QThreadPool::globalInstance()->waitForDone();
    delete queued;
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    EXPECT_EQ(orphaned.calls, 0);

    // Destroyed by its own delegate on hearing the result, as a closing document may do.
    RecordingDelegate deleting;
    deleting.deleteImporter = true;
    new MetadataImporter(QUrl::fromLocalFile(mp3), &deleting);
    ASSERT_TRUE(QTest::qWaitFor([&] { return deleting.calls > 0; }, 20000));
    EXPECT_EQ(deleting.calls, 1);
}

} // namespace
} // namespace tesk
