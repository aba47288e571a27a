#include "audio/TeskExtendedAudioFilePlayer.h"
#include "audio/TeskOutputAudioUnit.h"
#include "document/TeskDocumentController.h"
#include "observation/KeyValueObserving.h"
#include "waveform/WaveformView.h"
#include "window/TeskDocumentWindowController.h"
#include "window/TeskDropView.h"
#include "window/TeskWindowLayer.h"

#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <QAction>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace tesk;
using namespace tesk::test;

namespace {
constexpr int kRate = 44100;

/// Documents and windows with the dialogs answered by the test.
class Opening {
public:
    Opening() {
        WindowServices services;
        services.askSongFile = [this](QWidget*, const QString& folder) {
            locateStartedIn = folder;
            return locateAnswer;
        };
        services.askSaveChanges = [](QWidget*, const QString&) {
            return int(QMessageBox::Discard);
        };
        layer = std::make_unique<TeskWindowLayer>(services);
        documents = std::make_unique<TeskDocumentController>(layer.get());
        layer->services().documents = documents.get();
    }
    ~Opening() {
        layer.reset();
        documents.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    TeskDocumentWindowController* window(TeskDocument* document) const {
        return layer->windowFor(document);
    }
    QStringList songPaths() const {
        QStringList paths;
        for (TeskDocument* document : documents->documents())
            paths.append(document->audioFileURL().toLocalFile());
        return paths;
    }

    std::unique_ptr<TeskWindowLayer> layer;
    std::unique_ptr<TeskDocumentController> documents;
    QString locateAnswer;
    QString locateStartedIn;
};

QString writeSong(const QString& path, double seconds = 1.0) {
    const auto length = std::size_t(seconds * kRate);
    EXPECT_TRUE(
        writeWav(path, {sine(440.0, 0.5, length, kRate), sine(550.0, 0.5, length, kRate)}, kRate));
    return QFileInfo(path).canonicalFilePath();
}

std::unique_ptr<QMimeData> uriList(const QStringList& paths) {
    auto data = std::make_unique<QMimeData>();
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls.append(QUrl::fromLocalFile(path));
    data->setUrls(urls);
    return data;
}

/// Drags `data` over `target` and drops it when `drop`; whether the drag was taken.
bool dragOver(QWidget* target, const QMimeData& data, bool drop) {
    const QPointF middle = QRectF(target->rect()).center();
    QDragEnterEvent enter(middle.toPoint(), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton,
                          Qt::NoModifier);
    QCoreApplication::sendEvent(target, &enter);
    const bool taken = enter.isAccepted() && enter.dropAction() == Qt::CopyAction;
    if (taken && drop) {
        QDropEvent dropEvent(middle, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton,
                             Qt::NoModifier);
        QCoreApplication::sendEvent(target, &dropEvent);
    } else {
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(target, &leave);
    }
    return taken;
}

QMessageBox* messageOn(QWidget* window) {
    QMessageBox* found = nullptr;
    const bool shown = QTest::qWaitFor(
        [&] {
            found = window->findChild<QMessageBox*>();
            return found != nullptr;
        },
        2000);
    return shown ? found : nullptr;
}
} // namespace

TEST(Opening, DropsOpenEverySongOfAUriListAndNothingElse) {
    QTemporaryDir dir;
    const QString first = writeSong(dir.filePath("first.wav"));
    const QString second = writeSong(dir.filePath("second.wav"));
    const QString text = dir.filePath("notes.txt");
    ASSERT_TRUE(writeFile(text, "practice the bridge slowly\n"));

    Opening app;
    app.documents->newDocument();
    TeskDocument* empty = app.documents->documents().first();
    auto* dropView = app.window(empty)->findChild<TeskDropView*>();
    ASSERT_NE(dropView, nullptr);

    struct Drag {
        const char* what;
        QStringList paths;
        bool taken;
    };
    const Drag drags[] = {
        {"a text file alone", {text}, false},
        {"only the last track is a song", {text, text, second}, true},
    };
    for (const Drag& drag : drags) {
        SCOPED_TRACE(drag.what);
        EXPECT_EQ(dragOver(dropView, *uriList(drag.paths), false), drag.taken);
        EXPECT_FALSE(dropView->isActive()); // lit only while hovering
    }

    // A drop of three tracks opens the two songs; the first replaces the empty window.
    ASSERT_TRUE(dragOver(dropView, *uriList({first, text, second}), true));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(app.songPaths(), (QStringList{first, second}));

    // A song's window takes any drag of files, but only songs open.
    TeskDocument* song = app.documents->documents().first();
    QWidget* content = app.window(song)->centralWidget();
    ASSERT_TRUE(dragOver(content, *uriList({text}), true));
    EXPECT_EQ(app.documents->documents().size(), 2);
    const QString third = writeSong(dir.filePath("third.wav"));
    ASSERT_TRUE(dragOver(content, *uriList({third}), true));
    EXPECT_EQ(app.songPaths(), (QStringList{first, second, third}));
}

TEST(Opening, AMissingSongKeepsItsMarkersAndIsFoundAgainWithLocate) {
    QTemporaryDir dir;
    const QString song = writeSong(dir.filePath("etude.wav"));
    const QString practice = dir.filePath("etude.tesk");
    {
        Opening app;
        TeskError error;
        TeskDocument* document =
            app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(song), true, &error);
        ASSERT_NE(document, nullptr);
        document->setGenericMarkers({1000, 2000});
        document->setLoopRange({4410, 8820});
        ASSERT_TRUE(document->saveToURL(QUrl::fromLocalFile(practice), &error));
    }
    // The song is gone; a new copy of it (another file) waits in another folder. The copy is
    // made first, so that it cannot take over the deleted song's inode and be found as it.
    ASSERT_TRUE(QDir(dir.path()).mkdir("moved"));
    const QString copy = writeSong(dir.filePath("moved/etude.wav"));
    ASSERT_TRUE(QFile::remove(song));

    Opening app;
    TeskError error;
    TeskDocument* document =
        app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(practice), true, &error);
    ASSERT_NE(document, nullptr);
    ASSERT_TRUE(document->songError().has_value());
    TeskDocumentWindowController* window = app.window(document);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->noticeText().contains("Locate"); }, 2000));
    EXPECT_EQ(document->genericMarkers(), (QList<quint32>{1000, 2000}));
    EXPECT_FALSE(window->action(WindowCommand::PlayPause)->isEnabled());

    // Cancelling the question changes nothing.
    app.locateAnswer.clear();
    window->locateSong();
    EXPECT_EQ(app.locateStartedIn, QFileInfo(song).path());
    EXPECT_TRUE(document->songError().has_value());
    EXPECT_FALSE(document->isDocumentEdited());

    // A file that does not play is refused: the document keeps the song it had, unchanged. The
    // message names it whole, however long its name, and fits the screen.
    const QString broken = QString("broken").repeated(30) + ".mp3";
    app.locateAnswer = dir.filePath(broken);
    ASSERT_TRUE(writeFile(app.locateAnswer, QByteArray("ID3\x03\x00\x00\x00\x00\x00\x00", 10) +
                                                QByteArray(4096, '\x5a')));
    window->locateSong();
    QMessageBox* message = messageOn(window);
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(message->text().remove(QChar(0x200B)).contains(broken))
        << message->text().toStdString();
    EXPECT_LE(message->sizeHint().width(), message->screen()->availableGeometry().width());
    message->close();
    EXPECT_EQ(document->audioFileAlias()->fileName(), "etude.wav");
    EXPECT_FALSE(document->isDocumentEdited());
    EXPECT_FALSE(window->action(WindowCommand::PlayPause)->isEnabled());

    app.locateAnswer = copy;
    window->locateSong();
    EXPECT_FALSE(document->songError().has_value());
    EXPECT_EQ(document->audioFileURL().toLocalFile(), copy);
    EXPECT_TRUE(window->noticeText().isEmpty());
    EXPECT_TRUE(document->isDocumentEdited()); // the new reference is worth saving
    EXPECT_EQ(document->genericMarkers(), (QList<quint32>{1000, 2000}));
    EXPECT_EQ(document->loopRange().length, 8820u);
    EXPECT_TRUE(window->action(WindowCommand::PlayPause)->isEnabled());
    EXPECT_TRUE(window->action(WindowCommand::ExportLoop)->isEnabled());

    // A practice that names no song says so, and its song is looked for beside it.
    ASSERT_TRUE(QDir(dir.path()).mkdir("practices"));
    const QString songless = dir.filePath("practices/songless.tesk");
    ASSERT_TRUE(writeFile(songless, R"({"genericMarkers": [1000]})"));
    TeskDocument* unnamed =
        app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(songless), true, &error);
    ASSERT_NE(unnamed, nullptr);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return app.window(unnamed)->noticeText().contains("names no song"); }, 2000));
    app.locateAnswer = copy;
    app.window(unnamed)->locateSong();
    EXPECT_EQ(app.locateStartedIn, QFileInfo(songless).path());
    EXPECT_EQ(unnamed->audioFileURL().toLocalFile(), copy);
    EXPECT_EQ(unnamed->genericMarkers(), QList<quint32>{1000});
}

TEST(Opening, APracticeWhoseSongNoLongerPlaysOffersNoSongCommands) {
    QTemporaryDir dir;
    const QString song = writeSong(dir.filePath("etude.wav"));
    const QString practice = dir.filePath("etude.tesk");
    {
        TeskDocument document;
        document.setAudioFileURL(QUrl::fromLocalFile(song));
        TeskError error;
        ASSERT_TRUE(document.saveToURL(QUrl::fromLocalFile(practice), &error));
    }
    // Still there, by its name, but overwritten with something that is no song.
    ASSERT_TRUE(writeFile(song, QByteArray(4096, '\x5a')));
    Opening app;
    TeskError error;
    TeskDocument* document =
        app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(practice), true, &error);
    ASSERT_NE(document, nullptr);
    ASSERT_FALSE(document->audioFileURL().isEmpty());
    EXPECT_EQ(document->player(), nullptr);
    TeskDocumentWindowController* window = app.window(document);
    window->validateMenuItems();
    EXPECT_FALSE(window->action(WindowCommand::PlayPause)->isEnabled());
    EXPECT_FALSE(window->action(WindowCommand::ExportSong)->isEnabled());
}

TEST(Opening, ASongThatCannotBeDecodedIsToldOnTheWindowAsAWindowModalMessage) {
    QTemporaryDir dir;
    // An MP3 by its first bytes, but nothing a decoder can play.
    const QString broken = dir.filePath("broken.mp3");
    QByteArray bytes("ID3\x03\x00\x00\x00\x00\x00\x00", 10);
    bytes.append(QByteArray(4096, '\x5a'));
    ASSERT_TRUE(writeFile(broken, bytes));

    Opening app;
    app.documents->newDocument();
    const auto replies = app.documents->openFiles({broken});
    ASSERT_EQ(replies.size(), 1);
    EXPECT_EQ(replies.first(), TeskDocumentController::OpenReply::Failure);
    ASSERT_EQ(app.documents->documents().size(), 1); // the empty window stays
    QMessageBox* message = messageOn(app.window(app.documents->documents().first()));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->text(), "Bad Audio File");
    EXPECT_FALSE(message->informativeText().isEmpty());
    EXPECT_TRUE(message->detailedText().contains("“broken.mp3”")) << "which file, and why";
    EXPECT_EQ(message->windowModality(), Qt::WindowModal);
    message->close();

    // With a song that plays after it, whose window takes the empty one's place: the message
    // is on the song's window, not gone with the window it would have been on.
    app.documents->openFiles({broken, writeSong(dir.filePath("good.wav"))});
    ASSERT_EQ(app.documents->documents().size(), 1);
    QMessageBox* told = messageOn(app.window(app.documents->documents().first()));
    ASSERT_NE(told, nullptr);
    EXPECT_TRUE(told->detailedText().contains("“broken.mp3”"));
}

TEST(Opening, ASongCutShortIsToldOnceReadAndPlaysWhatCouldBeRead) {
    QTemporaryDir dir;
    const QString whole = writeSong(dir.filePath("whole.wav"));
    const QString cut = writeSong(dir.filePath("cut.wav"));
    ASSERT_TRUE(QFile(cut).resize(QFileInfo(cut).size() / 2)); // an interrupted download
    Opening app;
    for (const auto& [path, damaged] : {std::pair{whole, false}, {cut, true}}) {
        SCOPED_TRACE(path.toStdString());
        TeskError error;
        TeskDocument* document =
            app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(path), true, &error);
        ASSERT_NE(document, nullptr);
        TeskDocumentWindowController* window = app.window(document);
        const auto* view = window->findChild<WaveformView*>();
        ASSERT_NE(view, nullptr);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !view->waveform()->isScanning(); }, 5000));
        EXPECT_EQ(window->noticeText().contains("“cut.wav” is damaged or incomplete"), damaged)
            << window->noticeText().toStdString();
        EXPECT_TRUE(window->action(WindowCommand::PlayPause)->isEnabled());
        // Played where there is no sound: that is told too, beside the damage.
        document->player()->outputAudioUnit()->useSilentDevice();
        document->startFilePlaying();
        QCoreApplication::processEvents();
        EXPECT_TRUE(window->noticeText().contains("No sound"));
        EXPECT_EQ(window->noticeText().contains("damaged or incomplete"), damaged)
            << window->noticeText().toStdString();
        // The window grows for the notice, and the song's views keep their room.
        QCoreApplication::processEvents();
        EXPECT_EQ(window->height(), window->sizeHint().height());
        EXPECT_GE(view->height(), view->minimumHeight());
        document->stopFilePlaying();
    }
}

TEST(Opening, ClosingASongsWindowLeavesNothingOfItObservingTheDocument) {
    QTemporaryDir dir;
    const QString song = writeSong(dir.filePath("study.wav"));
    // What a document observes of itself, without any window.
    TeskDocument alone;
    TeskError error;
    ASSERT_TRUE(alone.readFromURL(QUrl::fromLocalFile(song), "audio/x-wav", &error));
    const int ownObservations = observationCount(&alone);

    Opening app;
    TeskDocument* document =
        app.documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(song), true, &error);
    ASSERT_NE(document, nullptr);
    TeskDocumentWindowController* window = app.window(document);
    EXPECT_GT(observationCount(document), ownObservations);
    EXPECT_TRUE(window->close());
    EXPECT_EQ(observationCount(document), ownObservations);
}

TEST(Opening, AHeldFileMenuKeyActsOnce) {
    QTemporaryDir dir;
    Opening app;
    TeskError error;
    for (const QString name : {"one.wav", "two.wav", "three.wav"})
        ASSERT_NE(app.documents->openDocumentWithContentsOfURL(
                      QUrl::fromLocalFile(writeSong(dir.filePath(name))), true, &error),
                  nullptr);
    // Close held down: the key repeats into each window that comes to the front.
    const QKeyCombination close = QKeySequence(QKeySequence::Close)[0];
    for (const bool held : {false, true, true}) {
        QWidget* front = app.window(app.documents->documents().last());
        front->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(front));
        // As the window system delivers it, so that it goes through the shortcuts.
        qt_handleKeyEvent(front->windowHandle(), QEvent::KeyPress, close.key(),
                          close.keyboardModifiers(), {}, held);
        QCoreApplication::processEvents();
        EXPECT_EQ(app.documents->documents().size(), 2);
    }
}

TEST(Opening, ZoomKeysWorkWithAndWithoutShift) {
    QTemporaryDir dir;
    Opening app;
    TeskError error;
    TeskDocument* document = app.documents->openDocumentWithContentsOfURL(
        QUrl::fromLocalFile(writeSong(dir.filePath("zoom.wav"), 30.0)), true, &error);
    ASSERT_NE(document, nullptr);
    QWidget* window = app.window(document);
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    document->setZoomLevel(0.5);
    // Ctrl+=, the key under "+", and Ctrl+- each step the zoom.
    const struct {
        int key;
        double zoom;
    } presses[] = {{Qt::Key_Equal, 0.55}, {Qt::Key_Plus, 0.6}, {Qt::Key_Minus, 0.55}};
    for (const auto& press : presses) {
        qt_handleKeyEvent(window->windowHandle(), QEvent::KeyPress, press.key, Qt::ControlModifier);
        qt_handleKeyEvent(window->windowHandle(), QEvent::KeyRelease, press.key,
                          Qt::ControlModifier);
        QCoreApplication::processEvents();
        EXPECT_DOUBLE_EQ(document->zoomLevel(), press.zoom) << press.key;
    }
}
