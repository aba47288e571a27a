// Importing a song's metadata: tags in any encoding and the cover reach the delegate on the
// main thread, the cover fills the artwork, and late results after the delegate was cleared
// or the importer destroyed go nowhere.
#include "document/MetadataImporter.h"

#include "support/AudioFiles.h"
#include "support/SongFiles.h"
#include "support/ViewTesting.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QThreadPool>
#include <gtest/gtest.h>

namespace tesk {
namespace {

const SongMetadata kTags = test::threeScriptTags();

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

/// A song tagged with the three texts (in an MP3's ID3v2.3 tags ffmpeg stores non-Latin text as
/// UTF-16), with `cover` attached as its front picture when given; `name`'s extension chooses
/// the container and so the codec.
QString writeTaggedSong(const QTemporaryDir& folder, const QString& cover = {},
                        const QString& name = "song.mp3") {
    const QString source = folder.filePath("tone.wav");
    const QString song = folder.filePath(name);
    test::writeTone(source, 1.0);
    QStringList arguments{"-i", source};
    if (!cover.isEmpty())
        arguments << "-i" << cover
                  << test::splitArguments("-map 0 -map 1 -c:v copy -disposition:v attached_pic");
    arguments << test::splitArguments(name.endsWith(".mp3") ? "-c:a libmp3lame -id3v2_version 3"
                                                            : "-c:a aac")
              << test::tagArguments(kTags) << song;
    QString log;
    EXPECT_TRUE(test::runFfmpeg(arguments, &log)) << log.toStdString();
    return song;
}

bool waitUntilFinished(const MetadataImporter& importer) {
    return QTest::qWaitFor([&] { return importer.isFinished(); }, 20000);
}

TEST(MetadataImporter, BringsTagsOrTheirAbsenceToTheDelegateOnTheMainThread) {
    QTemporaryDir folder;
    // UTF-16 tags, a file without tags and one that cannot be read.
    const std::pair<QString, SongMetadata> songs[] = {
        {writeTaggedSong(folder), kTags},
        {test::writeTone(folder.filePath("plain.wav"), 1.0), {}},
        {folder.filePath("missing.mp3"), {}},
    };
    for (const auto& [path, tags] : songs) {
        SCOPED_TRACE(path.toStdString());
        RecordingDelegate delegate;
        MetadataImporter importer(QUrl::fromLocalFile(path), &delegate);
        // The delegate hears from the event loop, never from inside the constructor.
        EXPECT_EQ(delegate.calls, 0);
        ASSERT_TRUE(waitUntilFinished(importer));
        EXPECT_EQ(delegate.calls, 1);
        EXPECT_TRUE(delegate.onMainThread);
        EXPECT_EQ(delegate.finishedImporter, &importer);
        EXPECT_EQ(importer.title(), tags.title);
        EXPECT_EQ(importer.artist(), tags.artist);
        EXPECT_EQ(importer.album(), tags.album);
        EXPECT_TRUE(importer.albumArt().isNull());
    }
}

TEST(MetadataImporter, CoversFillTheArtworkCroppedToTheirCentre) {
    // Red, with 100-pixel blue bands at both ends of the long side. Filling the square artwork
    // keeps the central square, all red; stretching would show the blue and fitting would leave
    // the other sides empty. A wide PNG in an MP3 and a tall JPEG in an M4A.
    for (const bool wide : {true, false}) {
        SCOPED_TRACE(wide ? "wide" : "tall");
        QTemporaryDir folder;
        QImage cover(wide ? QSize(600, 400) : QSize(400, 600), QImage::Format_RGB32);
        cover.fill(Qt::blue);
        QPainter(&cover).fillRect(wide ? QRect(100, 0, 400, 400) : QRect(0, 100, 400, 400),
                                  Qt::red);
        const QString coverPath = folder.filePath(wide ? "cover.png" : "cover.jpg");
        ASSERT_TRUE(cover.save(coverPath));
        const QString song = writeTaggedSong(folder, coverPath, wide ? "song.mp3" : "song.m4a");

        RecordingDelegate delegate;
        MetadataImporter importer(QUrl::fromLocalFile(song), &delegate);
        ASSERT_TRUE(waitUntilFinished(importer));
        const QImage art = importer.albumArt();
        ASSERT_EQ(art.size(), QSize(512, 512));
        for (const QPoint point :
             {QPoint(256, 256), QPoint(2, 256), QPoint(509, 256), QPoint(256, 2), QPoint(256, 509),
              QPoint(2, 2), QPoint(509, 509)}) {
            EXPECT_TRUE(test::coloursClose(art.pixelColor(point), Qt::red, 12))
                << point.x() << "," << point.y() << " is "
                << art.pixelColor(point).name().toStdString();
        }
        EXPECT_EQ(importer.title(), kTags.title);
    }
}

TEST(MetadataImporter, AHugeCoverIsShrunkNotRefused) {
    // 6000 pixels a side takes more memory than Qt lets one picture have at full size.
    QTemporaryDir folder;
    const QString path = folder.filePath("scan.jpg");
    QString log;
    ASSERT_TRUE(test::runFfmpeg(
        {"-f", "lavfi", "-i", "color=c=red:s=6000x6000", "-frames:v", "1", path}, &log))
        << log.toStdString();
    const QImage art = MetadataImporter::albumArtworkFromCover(test::readFile(path));
    ASSERT_EQ(art.size(), QSize(512, 512));
    EXPECT_TRUE(test::coloursClose(art.pixelColor(256, 256), Qt::red, 12));
}

TEST(MetadataImporter, LateResultsGoNowhereOnceTheDelegateIsClearedOrTheImporterIsGone) {
    QTemporaryDir folder;
    const QString mp3 = writeTaggedSong(folder);

    // Cleared: the importer still finishes, but the former delegate hears nothing.
    RecordingDelegate cleared;
    MetadataImporter importer(QUrl::fromLocalFile(mp3), &cleared);
    importer.setDelegate(nullptr);
    ASSERT_TRUE(waitUntilFinished(importer));
    EXPECT_EQ(cleared.calls, 0);
    EXPECT_EQ(importer.title(), kTags.title);

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
