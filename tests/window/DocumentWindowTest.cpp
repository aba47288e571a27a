#include "document/TeskDocumentController.h"
#include "window/TeskDocumentWindowController.h"
#include "window/TeskDropView.h"
#include "window/TeskWindowLayer.h"

#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"
#include "widgets/KLTexturedSlider.h"
#include "widgets/NamedImage.h"

#include "effects/TeskEQSettingsView.h"
#include "support/AudioFiles.h"
#include "support/ManualSoundDevice.h"
#include "support/Signals.h"
#include "support/SongFiles.h"
#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include <functional>
#include <unistd.h>

using namespace tesk;
using namespace tesk::test;

namespace {
constexpr int kRate = 44100;

/// The application's documents and windows, with the dialogs answered by the test.
class Practice {
public:
    Practice() {
        WindowServices services;
        services.askExportFile = [this](QWidget*, const QString& title, const QString& proposed,
                                        auto chosen) {
            exportTitle = title;
            proposedExportName = proposed;
            chosen(exportAnswer, exportFormat);
        };
        services.askSaveChanges = [this](QWidget* window, const QString& name) {
            ++saveQuestions;
            saveAskedAbout.append(name);
            askedInFront.append(QTest::qWaitForWindowActive(window, 1000));
            if (whileAsking)
                std::exchange(whileAsking, nullptr)();
            return saveAnswer;
        };
        services.askReviewChanges = [this](int changed) {
            reviewQuestions.append(changed);
            return reviewAnswer;
        };
        services.askStopExport = [this](QWidget*, const QString& name) {
            stopExportQuestions.append(name);
            return stopExportAnswer;
        };
        services.askDocumentFile = [this](QWidget*, const QString& proposed) {
            documentProposals.append(proposed);
            return std::exchange(documentAnswer, QString()); // asked again, it is cancelled
        };
        services.askReplaceFile = [this](QWidget*, const QString& path) {
            replaceQuestions.append(path);
            if (!documentAnswerOnRefusal.isEmpty())
                documentAnswer = std::exchange(documentAnswerOnRefusal, QString());
            return false;
        };
        layer = std::make_unique<TeskWindowLayer>(services);
        documents = std::make_unique<TeskDocumentController>(layer.get());
        layer->services().documents = documents.get();
        // As the application wires it: a dropped track opens as a document.
        QObject::connect(documents.get(), &TeskDocumentController::TeskFileDraggedNotification,
                         documents.get(),
                         [this](const QUrl& url) { documents->handleDraggedFile(url); });
    }
    ~Practice() {
        layer.reset();
        documents.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    TeskDocument* open(const QString& path) {
        TeskError error;
        TeskDocument* document =
            documents->openDocumentWithContentsOfURL(QUrl::fromLocalFile(path), true, &error);
        EXPECT_NE(document, nullptr) << error.description().toStdString();
        return document;
    }
    TeskDocumentWindowController* window(TeskDocument* document) const {
        return layer->windowFor(document);
    }

    std::unique_ptr<TeskWindowLayer> layer;
    std::unique_ptr<TeskDocumentController> documents;
    QString exportAnswer;
    int exportFormat = 0;
    QStringList replaceQuestions; // each answered No
    QString exportTitle;
    QString proposedExportName;
    int saveAnswer = QMessageBox::Discard;
    int saveQuestions = 0;
    QStringList saveAskedAbout; // the names the questions gave
    QList<bool> askedInFront;   // whether each window asked about was the active one
    QuitReview reviewAnswer = QuitReview::ReviewEach;
    QList<int> reviewQuestions; // how many changed practices each said
    bool stopExportAnswer = false;
    QStringList stopExportQuestions;   // the exports asked about
    std::function<void()> whileAsking; // run once, inside the next question

    QString documentAnswer;
    QString documentAnswerOnRefusal; // the name given next, once a replace is refused
    QStringList documentProposals;   // the names the save dialogs started with
};

void press(QWidget* window, int key, const QString& text = {},
           Qt::KeyboardModifiers modifiers = Qt::NoModifier, bool held = false) {
    QKeyEvent event(QEvent::KeyPress, key, modifiers, text, held);
    QCoreApplication::sendEvent(window, &event);
}

/// Four seconds, 440 Hz on the left and 660 Hz on the right, as "take.wav" in `dir`.
QString writeTake(const QTemporaryDir& dir) {
    const QString path = dir.filePath("take.wav");
    const auto length = std::size_t(4 * kRate);
    EXPECT_TRUE(
        writeWav(path, {sine(440.0, 0.5, length, kRate), sine(660.0, 0.5, length, kRate)}, kRate));
    return path;
}

/// The first child of `window` of type T that `is` picks, or null.
template <typename T> T* childWhere(QObject* window, const std::function<bool(T*)>& is) {
    for (T* child : window->findChildren<T*>())
        if (is(child))
            return child;
    return nullptr;
}

QList<quint32> frames(std::initializer_list<quint32> list) {
    return QList<quint32>(list);
}
} // namespace

/// A take open in its window, for the tests of one window.
class TakeWindow : public testing::Test {
protected:
    void SetUp() override {
        song = app.open(writeTake(dir));
        ASSERT_NE(song, nullptr);
        window = app.window(song);
        ASSERT_NE(window, nullptr);
    }

    QTemporaryDir dir;
    Practice app;
    TeskDocument* song = nullptr;
    TeskDocumentWindowController* window = nullptr;
};

TEST(DocumentWindow, APracticeSessionFromOpeningToReopening) {
    QTemporaryDir dir;
    const QString songPath = writeTake(dir);
    Practice app;
    TeskDocument* document = app.open(songPath);
    ASSERT_NE(document, nullptr);
    TeskDocumentWindowController* window = app.window(document);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowTitle(), document->displayName() + "[*]");
    EXPECT_GE(window->maximumWidth(), 8192);

    // Space plays: the timers run, the menu says Pause, and the heard position advances.
    press(window, Qt::Key_Space, " ");
    ASSERT_TRUE(document->isFilePlaying());
    EXPECT_TRUE(window->displayTimersActive());
    EXPECT_EQ(window->action(WindowCommand::PlayPause)->text(), "&Pause\tSpace");
    const qint64 start = document->currentFrame();
    EXPECT_TRUE(QTest::qWaitFor([&] { return document->currentFrame() > start + 4410; }, 5000));
    // Minimised or hidden it draws nothing, and shown again it draws once more.
    for (const auto& [put, back] : {std::pair{&QWidget::showMinimized, &QWidget::showNormal},
                                    std::pair{&QWidget::hide, &QWidget::show}}) {
        (window->*put)();
        EXPECT_FALSE(window->displayTimersActive());
        (window->*back)();
        EXPECT_TRUE(window->displayTimersActive());
    }
    press(window, Qt::Key_Space, " ", Qt::NoModifier, true); // held: plays on
    EXPECT_TRUE(document->isFilePlaying());
    press(window, Qt::Key_Space, " ");
    EXPECT_FALSE(document->isFilePlaying());
    EXPECT_FALSE(window->displayTimersActive());
    EXPECT_EQ(window->action(WindowCommand::PlayPause)->text(), "&Play\tSpace");

    // Markers drop at the play head, Shift allowed; Ctrl+M does nothing.
    document->setCurrentFrame(22050);
    press(window, Qt::Key_M, "M", Qt::ShiftModifier);
    document->setCurrentFrame(44100);
    press(window, Qt::Key_C, "c");
    press(window, Qt::Key_M, "\r", Qt::ControlModifier);
    document->setCurrentFrame(66150);
    press(window, Qt::Key_V, "v");
    press(window, Qt::Key_B, "b");
    // A key held down drops its marker once, and does not take it away again.
    press(window, Qt::Key_B, "b", Qt::NoModifier, true);
    // Nor when the system sends the repeats as a release and a press at one instant, unmarked;
    // a press a moment after the release is the hand's, and takes the marker away.
    const auto releaseAndPress = [&](quint64 released, quint64 pressed) {
        for (const auto& [type, time] :
             {std::pair{QEvent::KeyRelease, released}, std::pair{QEvent::KeyPress, pressed}}) {
            QKeyEvent event(type, Qt::Key_B, Qt::NoModifier, "b");
            event.setTimestamp(time);
            QCoreApplication::sendEvent(window, &event);
        }
    };
    for (const quint64 time : {5000, 5033, 5066})
        releaseAndPress(time, time);
    EXPECT_EQ(document->bridgeMarkers(), frames({66150}));
    releaseAndPress(6000, 6150);
    EXPECT_TRUE(document->bridgeMarkers().isEmpty());
    press(window, Qt::Key_B, "b");
    EXPECT_EQ(document->genericMarkers(), frames({22050}));
    EXPECT_EQ(document->chorusMarkers(), frames({44100}));
    EXPECT_EQ(document->verseMarkers(), frames({66150}));
    EXPECT_EQ(document->bridgeMarkers(), frames({66150}));

    // Played to its end, Space plays it again from the start.
    document->setCurrentFrame(document->player()->totalFrames());
    press(window, Qt::Key_Space, " ");
    EXPECT_TRUE(document->isFilePlaying());
    EXPECT_LT(document->currentFrame(), kRate);
    press(window, Qt::Key_Space, " ");

    // "l" plays the loop from within it; pressed again it stops.
    EXPECT_FALSE(window->action(WindowCommand::Loop)->isEnabled());
    document->setLoopRange({kRate, kRate});
    window->validateMenuItems();
    EXPECT_TRUE(window->action(WindowCommand::Loop)->isEnabled());
    document->setCurrentFrame(0);
    press(window, Qt::Key_L, "l");
    ASSERT_TRUE(document->isLooping());
    QTest::qWait(300);
    EXPECT_GE(document->currentFrame(), kRate);
    EXPECT_LT(document->currentFrame(), 2 * kRate);
    press(window, Qt::Key_L, "l");
    EXPECT_FALSE(document->isFilePlaying());
    // Pressed while the song plays plain, "l" goes on into the loop without a stop: the sound's
    // restart would leave a gap.
    struct StartCountingDevice : test::ManualSoundDevice {
        StartCountingDevice(AudioRenderer& renderer, int& starts)
            : ManualSoundDevice(renderer)
            , starts(starts) {}
        void start() override {
            ++starts;
            ManualSoundDevice::start();
        }
        int& starts;
    };
    int starts = 0;
    document->player()->outputAudioUnit()->setSoundDeviceFactory([&](AudioRenderer& renderer) {
        return std::make_unique<StartCountingDevice>(renderer, starts);
    });
    press(window, Qt::Key_Space, " ");
    press(window, Qt::Key_L, "l");
    EXPECT_TRUE(document->isFilePlaying());
    EXPECT_TRUE(document->isLooping());
    EXPECT_EQ(starts, 1);
    press(window, Qt::Key_L, "l");
    EXPECT_FALSE(document->isFilePlaying());
    document->player()->outputAudioUnit()->useSilentDevice();
    // Escape while the loop plays clears it: playback goes on, and the view loops no more.
    press(window, Qt::Key_L, "l");
    auto* waveform = window->findChild<WaveformView*>();
    ASSERT_NE(waveform, nullptr);
    EXPECT_TRUE(waveform->isLooping());
    press(window, Qt::Key_Escape);
    EXPECT_TRUE(document->isFilePlaying());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !waveform->isLooping(); }, 1000));
    press(window, Qt::Key_Space, " ");
    document->setLoopRange({kRate, kRate});

    // Held still on the ruler while paused, the song sounds; let go, the play head stays where
    // it was let go, not where the sound had got to.
    const WaveformGeometry& geometry = waveform->geometryValues();
    const QPoint onRuler(int(geometry.pointFromSample(kRate) - geometry.visibleStartPoint()),
                         int(waveform->rulerRect().center().y()));
    QTest::mousePress(waveform, Qt::LeftButton, {}, onRuler);
    const qint64 held = document->currentFrame();
    ASSERT_TRUE(QTest::qWaitFor([&] { return document->currentFrame() > held + 4410; }, 5000));
    QTest::mouseRelease(waveform, Qt::LeftButton, {}, onRuler);
    EXPECT_FALSE(document->isFilePlaying());
    EXPECT_EQ(document->currentFrame(), held);
    EXPECT_EQ(waveform->currentFrame(), held);

    // Down slows to the next mark; Shift+Down does nothing; the pitch items step the pitch.
    press(window, Qt::Key_Down, {}, Qt::ShiftModifier);
    EXPECT_DOUBLE_EQ(document->playbackSpeed(), 1.0);
    press(window, Qt::Key_Down);
    EXPECT_DOUBLE_EQ(document->playbackSpeed(), 0.75);
    press(window, Qt::Key_Down, {}, Qt::NoModifier, true); // held, it steps on
    EXPECT_DOUBLE_EQ(document->playbackSpeed(), 0.5);
    press(window, Qt::Key_Up);
    window->action(WindowCommand::DecreasePitch)->trigger();
    EXPECT_DOUBLE_EQ(document->pitchAdjustment(), -0.5);
    // Escape clears the loop; Home goes to the beginning.
    document->setCurrentFrame(30000);
    press(window, Qt::Key_Home);
    EXPECT_EQ(document->currentFrame(), 0);
    press(window, Qt::Key_Escape);
    EXPECT_EQ(document->loopRange().length, 0u);
    // The Edit menu calls the loop by its name: the whole song looped, and the loop cleared.
    const struct {
        WindowCommand command;
        const char* title;
        LoopRange loop;
    } loopItems[] = {{WindowCommand::SelectAll, "Loop the &Whole Song", {0, 4 * kRate}},
                     {WindowCommand::ClearSelection, "&Clear Loop", {}}};
    for (const auto& item : loopItems) {
        SCOPED_TRACE(item.title);
        EXPECT_TRUE(window->action(item.command)->text().startsWith(item.title));
        window->action(item.command)->trigger();
        EXPECT_EQ(document->loopRange(), item.loop);
    }
    document->setLoopRange({kRate, kRate});

    // Zoom moves on its grid and Zoom In is disabled at the top.
    document->setZoomLevel(0.93);
    window->action(WindowCommand::ZoomIn)->trigger();
    EXPECT_DOUBLE_EQ(document->zoomLevel(), 1.0);
    window->validateMenuItems();
    EXPECT_FALSE(window->action(WindowCommand::ZoomIn)->isEnabled());
    // Zoomed in, a click in the scroller's slot beside the knob moves the view half a view.
    auto* scroller = window->findChild<TeskScroller*>();
    ASSERT_NE(scroller, nullptr);
    for (const int side : {1, -1}) {
        SCOPED_TRACE(side);
        const QRect knob = scroller->knobRect().toRect();
        const QPoint beside(side > 0 ? knob.right() + 10 : knob.left() - 10, knob.center().y());
        const qint64 paged = side > 0 ? waveform->geometryValues().pageRightStartFrame()
                                      : waveform->geometryValues().pageLeftStartFrame();
        ASSERT_NE(paged, waveform->geometryValues().startFrame);
        QTest::mousePress(scroller, Qt::LeftButton, {}, beside);
        EXPECT_EQ(waveform->geometryValues().startFrame, paged);
        QTest::mouseRelease(scroller, Qt::LeftButton, {}, beside);
    }
    // The wheel over the zoom slider zooms on the same grid, a notch a step.
    auto* zoomSlider = childWhere<KLTexturedSlider>(
        window, [](KLTexturedSlider* slider) { return slider->accessibleName() == "Zoom"; });
    ASSERT_NE(zoomSlider, nullptr);
    QWheelEvent zoomOut(QPointF(10, 10), QPointF(10, 10), {}, QPoint(0, -240), Qt::NoButton,
                        Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(zoomSlider, &zoomOut);
    EXPECT_DOUBLE_EQ(document->zoomLevel(), 0.9);

    // One and a half wheel units move the play head 661 frames back.
    document->setCurrentFrame(10000);
    QWheelEvent wheel(QPointF(10, 10), QPointF(10, 10), {}, QPoint(0, 180), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(window, &wheel);
    EXPECT_EQ(document->currentFrame(), 10000 - 661);

    // Exporting the loop: the format picks the extension, progress shows, the file holds the
    // loop.
    app.exportAnswer = dir.filePath("loop.aif");
    app.exportFormat = 0;
    window->perform(WindowCommand::ExportLoop);
    EXPECT_EQ(app.proposedExportName, dir.filePath("take")) << "beside the song";
    EXPECT_EQ(app.exportTitle, "Export Loop");
    ASSERT_TRUE(QTest::qWaitFor([&] { return document->isExporting(); }, 2000));
    EXPECT_NE(window->exportProgressDialog(), nullptr);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !document->isExporting(); }, 30000));
    QCoreApplication::processEvents();
    const QString exported = dir.filePath("loop.m4a");
    const auto decoded = decodeWithFfmpeg(exported);
    ASSERT_TRUE(decoded.has_value());
    // The loop at the speed set above: a second of song takes 4/3 s.
    EXPECT_NEAR(double((*decoded)[0].size()), kRate / 0.75, 0.05 * kRate);

    // Whether the format's extension leads to that file or it is chosen as it is, the window
    // asks before replacing it (the dialog asks nothing), and the answer No leaves it alone.
    const QByteArray loop = readFile(exported);
    for (const QString& answer : {app.exportAnswer, exported}) {
        app.exportAnswer = answer;
        window->perform(WindowCommand::ExportLoop);
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(app.replaceQuestions, (QStringList{exported, exported}));
    EXPECT_FALSE(document->isExporting());
    EXPECT_EQ(readFile(exported), loop);
    // Open as a song in another window, it is not written over, nor asked about: the window
    // says where it is open instead. Nor is the place of another window's song that has gone
    // missing: written there, it would become that window's song. That window itself does not
    // write over its own song either, nor proposes it.
    const QString gone = dir.filePath("gone.m4a");
    ASSERT_TRUE(QFile::copy(exported, gone));
    TeskDocument* missing = app.open(gone);
    ASSERT_NE(missing, nullptr);
    TeskError error;
    ASSERT_TRUE(missing->saveToURL(QUrl::fromLocalFile(dir.filePath("gone.tesk")), &error));
    app.documents->closeDocument(missing);
    ASSERT_TRUE(QFile::remove(gone));
    // Names that lead there too: a link to the missing song's place, and another name of the
    // song's own file (as a disk that ignores case gives it).
    const QString linkToGone = dir.filePath("link.m4a");
    ASSERT_TRUE(QFile::link(gone, linkToGone));
    const QString sameFile = dir.filePath("same.m4a");
    ASSERT_EQ(
        ::link(QFile::encodeName(exported).constData(), QFile::encodeName(sameFile).constData()),
        0);
    const struct {
        QString open;
        QString target;
        bool fromItsOwnWindow;
        const char* said;
    } refusals[] = {
        {exported, exported, false, "” is open in another window"},
        {dir.filePath("gone.tesk"), gone, false, "” is open in another window"},
        {dir.filePath("gone.tesk"), linkToGone, false, "” is open in another window"},
        {exported, exported, true, "” is the song you are practising"},
        {exported, sameFile, true, "” is the song you are practising"},
    };
    for (const auto& refusal : refusals) {
        SCOPED_TRACE(refusal.said);
        TeskDocument* other = app.open(refusal.open);
        ASSERT_NE(other, nullptr);
        TeskDocumentWindowController* exporting =
            refusal.fromItsOwnWindow ? app.window(other) : window;
        const QByteArray before = readFile(refusal.target);
        app.exportAnswer = refusal.target;
        exporting->perform(WindowCommand::ExportSong);
        QCoreApplication::processEvents();
        EXPECT_FALSE(document->isExporting());
        EXPECT_FALSE(other->isExporting());
        EXPECT_EQ(app.replaceQuestions.size(), 2);
        EXPECT_EQ(readFile(refusal.target), before);
        QMessageBox* message = exporting->findChild<QMessageBox*>();
        ASSERT_NE(message, nullptr);
        EXPECT_TRUE(message->text().contains(QFileInfo(refusal.target).fileName() + refusal.said));
        delete message;
        // Nor does it propose its own song's name.
        if (refusal.fromItsOwnWindow) {
            EXPECT_EQ(app.proposedExportName, dir.filePath("loop (Export)"));
        }
        app.documents->closeDocument(other);
        window->activateWindow();
    }
    // A song named by an export of a song ("take.wav.m4a") proposes the name that is written,
    // not itself ("take.wav", shown as "take.wav.m4a").
    const QString twice = dir.filePath("take.wav.m4a");
    ASSERT_TRUE(QFile::copy(exported, twice));
    TeskDocument* exportedAgain = app.open(twice);
    ASSERT_NE(exportedAgain, nullptr);
    app.exportAnswer = dir.filePath("take.m4a");
    app.window(exportedAgain)->perform(WindowCommand::ExportSong);
    EXPECT_EQ(app.proposedExportName, dir.filePath("take"));
    QCoreApplication::processEvents();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !exportedAgain->isExporting(); }, 30000));
    app.documents->closeDocument(exportedAgain);
    window->activateWindow();

    // A cancelled export leaves nothing behind.
    app.exportAnswer = dir.filePath("cancelled.aif");
    app.exportFormat = 1;
    window->perform(WindowCommand::ExportSong);
    EXPECT_EQ(app.exportTitle, "Export Song");
    QCoreApplication::processEvents(); // the export starts once the dialog has gone
    ASSERT_NE(window->exportProgressDialog(), nullptr);
    ASSERT_TRUE(document->isExporting());
    ASSERT_NE(window->exportProgressDialog()->windowHandle(), nullptr);
    QTest::keyClick(window->exportProgressDialog()->windowHandle(), Qt::Key_Escape);
    EXPECT_TRUE(window->exportProgressDialog()->wasCanceled());
    // Progress already on its way does not bring the dialog back.
    window->updateFileExportWithProgress(0.5);
    EXPECT_FALSE(window->exportProgressDialog()->isVisible());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !document->isExporting(); }, 30000));
    QCoreApplication::processEvents();
    EXPECT_FALSE(QFile::exists(dir.filePath("cancelled.aif")));

    // Save, close, reopen: everything the musician set comes back.
    document->setPlaybackSpeed(0.75);
    document->setPitchAdjustment(-2.0);
    document->setEffectsVisible(true);
    document->effectsSettings()->setPanningEnabled(true);
    document->effectsSettings()->setPanAmount(0.37);
    document->effectsSettings()->vocalReductionEffectSettings()->setLowFrequency(333.3);
    const QRect frame(120, 90, 1100, window->height());
    window->setGeometry(frame);
    app.documentAnswer = dir.filePath("take.tesk");
    app.saveAnswer = QMessageBox::Save;
    EXPECT_TRUE(window->close());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_TRUE(QFile::exists(dir.filePath("take.tesk")));

    TeskDocument* reopened = app.open(dir.filePath("take.tesk"));
    ASSERT_NE(reopened, nullptr);
    EXPECT_EQ(reopened->genericMarkers(), frames({22050}));
    EXPECT_EQ(reopened->chorusMarkers(), frames({44100}));
    EXPECT_EQ(reopened->loopRange().location, quint32(kRate));
    EXPECT_EQ(reopened->loopRange().length, quint32(kRate));
    EXPECT_DOUBLE_EQ(reopened->playbackSpeed(), 0.75);
    EXPECT_DOUBLE_EQ(reopened->pitchAdjustment(), -2.0);
    EXPECT_TRUE(reopened->effectsVisible());
    EXPECT_EQ(reopened->effectsSettings()->panAmount(), 0.37);
    EXPECT_EQ(app.window(reopened)->width(), frame.width());
    // Its views showing what it holds is no change to save.
    EXPECT_FALSE(reopened->isDocumentEdited());
    // A copy saved at the same place opens beside it, not over it.
    ASSERT_TRUE(QFile::copy(dir.filePath("take.tesk"), dir.filePath("take copy.tesk")));
    TeskDocument* copy = app.open(dir.filePath("take copy.tesk"));
    ASSERT_NE(copy, nullptr);
    const QPoint apart = app.window(copy)->pos() - app.window(reopened)->pos();
    EXPECT_GE(std::max(std::abs(apart.x()), std::abs(apart.y())), 24)
        << apart.x() << "," << apart.y();
    // Nor does a song whose cascade comes round to where a practice stands.
    app.documents->setNextDocumentWindowPoint(app.window(reopened)->pos());
    const QString other = dir.filePath("other.wav");
    ASSERT_TRUE(writeWav(other, {sine(220.0, 0.5, kRate, kRate)}, kRate));
    TeskDocument* song = app.open(other);
    ASSERT_NE(song, nullptr);
    for (TeskDocument* other : {reopened, copy}) {
        const QPoint away = app.window(song)->pos() - app.window(other)->pos();
        EXPECT_GE(std::max(std::abs(away.x()), std::abs(away.y())), 24)
            << away.x() << "," << away.y();
    }
}

TEST(DocumentWindow, ASongHandedOverWhileQuittingAsksIsAskedAboutToo) {
    QTemporaryDir dir;
    const QString songPath = writeTake(dir);
    ASSERT_TRUE(QFile::copy(songPath, dir.filePath("third.wav")));
    Practice app;
    TeskDocument* first = app.open(songPath);
    ASSERT_NE(first, nullptr);
    // While the question about it is up, a second Tesk hands over a song: it is asked about
    // too, not left open behind a quit that thinks it is done.
    app.whileAsking = [&] { app.open(dir.filePath("third.wav")); };
    EXPECT_TRUE(app.layer->closeAll());
    EXPECT_EQ(app.saveQuestions, 2);
    EXPECT_TRUE(app.documents->documents().isEmpty());

    // Two changed songs and the empty window in front: the question about them all stays up
    // (and is answered) while a song handed over takes the empty window's place.
    for (const char* name : {"a.wav", "b.wav"})
        ASSERT_TRUE(QFile::copy(songPath, dir.filePath(name)));
    ASSERT_NE(app.open(dir.filePath("a.wav")), nullptr);
    ASSERT_NE(app.open(dir.filePath("b.wav")), nullptr);
    TeskDocument* empty = app.documents->openUntitledDocumentAndDisplay();
    ASSERT_NE(empty, nullptr);
    app.layer->services().askReviewChanges = nullptr; // the question Tesk itself asks
    bool answered = false;
    QTimer::singleShot(0, [&] {
        auto* question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (question == nullptr)
            return;
        app.documents->openFiles({dir.filePath("third.wav")});
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        answered = question != nullptr;
        if (question)
            question->button(QMessageBox::Cancel)->click();
    });
    EXPECT_FALSE(app.layer->closeAll());
    EXPECT_TRUE(answered);
    EXPECT_EQ(app.documents->documents().size(), 3) << "a, b and third, in the empty one's place";
}

TEST(DocumentWindow, AnExportStopsOnlyWhenAskedToAndItsWindowGoesWithIt) {
    QTemporaryDir dir;
    Practice app;
    bool quitDone = true;
    app.layer->services().quit = [&] { quitDone = app.layer->closeAll(); };
    // A minute at half speed to M4A: seconds of work, long enough to be running throughout.
    TeskDocument* document = app.open(writeTone(dir.filePath("long.wav"), 60.0));
    ASSERT_NE(document, nullptr);
    TeskDocumentWindowController* window = app.window(document);
    document->setPlaybackSpeed(0.5);
    app.exportAnswer = dir.filePath("long.m4a");
    window->perform(WindowCommand::ExportSong);
    QCoreApplication::processEvents();
    ASSERT_TRUE(document->isExporting());
    const QPointer<QProgressDialog> progress = window->exportProgressDialog();
    ASSERT_NE(progress, nullptr);
    ASSERT_NE(progress->windowHandle(), nullptr);

    // Space (the key that plays) and Return (held from the save dialog), typed where the
    // dialog's keys go, stop nothing.
    for (const int key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter})
        QTest::keyClick(progress->windowHandle(), Qt::Key(key));
    EXPECT_FALSE(progress->wasCanceled());

    // Quitting asks first, by the Quit key too, which the dialog holds as it holds the
    // window's; kept, the window and its export go on.
    QTest::keyClick(progress->windowHandle(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_FALSE(quitDone);
    EXPECT_EQ(app.stopExportQuestions, QStringList{"long.m4a"});
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(document->isExporting());
    EXPECT_TRUE(progress->isVisible());

    // With other changed practices, all to be thrown away: the export is asked about first,
    // and kept running, nothing at all is thrown away.
    QList<TeskDocument*> others;
    for (const char* name : {"a.wav", "b.wav"}) {
        others.append(app.open(writeTone(dir.filePath(name), 1.0)));
        ASSERT_NE(others.last(), nullptr);
        others.last()->dropGenericMarker();
    }
    app.reviewAnswer = QuitReview::DiscardAll;
    EXPECT_FALSE(app.layer->closeAll());
    EXPECT_EQ(app.reviewQuestions, QList<int>{3});
    EXPECT_EQ(app.stopExportQuestions, (QStringList{"long.m4a", "long.m4a"}));
    for (TeskDocument* other : others)
        EXPECT_NE(app.window(other), nullptr);
    EXPECT_TRUE(document->isExporting());

    // Stopped, the export ends with its window and its progress, leaving no file behind.
    app.stopExportAnswer = true;
    EXPECT_TRUE(app.layer->closeAll());
    EXPECT_TRUE(app.saveAskedAbout.isEmpty()) << "all thrown away, as answered";
    EXPECT_FALSE(progress && progress->isVisible());
    EXPECT_TRUE(app.documents->documents().isEmpty());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
              (QStringList{"a.wav", "b.wav", "long.wav"}));
}

TEST(DocumentWindow, APracticeOpenedWithItsEffectsShowingGivesTheKeysToTheWindow) {
    QTemporaryDir dir;
    const QString songPath = writeTake(dir);
    Practice app;
    TeskDocument* song = app.open(songPath);
    ASSERT_NE(song, nullptr);
    song->setEffectsVisible(true);
    TeskError error;
    ASSERT_TRUE(song->saveToURL(QUrl::fromLocalFile(dir.filePath("take.tesk")), &error));
    app.documents->closeDocument(song);

    TeskDocument* practice = app.open(dir.filePath("take.tesk"));
    ASSERT_NE(practice, nullptr);
    TeskDocumentWindowController* window = app.window(practice);
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    const bool equalizerOn = practice->effectsSettings()->isEqualizerEnabled();
    ASSERT_NE(QApplication::focusWidget(), nullptr);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(practice->isFilePlaying());
    EXPECT_EQ(practice->effectsSettings()->isEqualizerEnabled(), equalizerOn);
    practice->stopFilePlaying();

    // Tab goes down the window: the waveform, the bar's zoom and volume, then the effects.
    auto* waveform = window->findChild<WaveformView*>();
    ASSERT_NE(waveform, nullptr);
    waveform->setFocus(Qt::TabFocusReason);
    QStringList stops;
    for (int tab = 0; tab < 4; ++tab) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        stops.append(QApplication::focusWidget()->accessibleName().isEmpty()
                         ? QApplication::focusWidget()->property("text").toString()
                         : QApplication::focusWidget()->accessibleName());
    }
    EXPECT_EQ(stops, (QStringList{"Zoom", "Volume", "Equalizer", "Equalizer preset"}));
    // And round again to the waveform; a screen reader meets the song before the effects too.
    for (int tab = 0; tab < 40 && QApplication::focusWidget() != waveform; ++tab)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), waveform);
    QAccessibleInterface* parts =
        QAccessible::queryAccessibleInterface(window->findChild<QSplitter*>());
    ASSERT_GE(parts->childCount(), 2);
    EXPECT_TRUE(static_cast<QWidget*>(parts->child(0)->object())->isAncestorOf(waveform));

    // Reached with Tab, a switch keeps Space for itself and leaves the arrows to the window:
    // they change the speed and the focus stays.
    for (QCheckBox* box : window->findChildren<QCheckBox*>()) {
        SCOPED_TRACE(box->text().toStdString());
        box->setFocus(Qt::TabFocusReason);
        const double speed = practice->playbackSpeed();
        QTest::keyClick(box, Qt::Key_Down);
        EXPECT_LT(practice->playbackSpeed(), speed);
        QTest::keyClick(box, Qt::Key_Up);
        EXPECT_EQ(practice->playbackSpeed(), speed);
        EXPECT_EQ(QApplication::focusWidget(), box);
        const bool checked = box->isChecked();
        QTest::keyClick(box, Qt::Key_Space);
        EXPECT_NE(box->isChecked(), checked);
        QTest::keyClick(box, Qt::Key_Space);
    }
    EXPECT_FALSE(practice->isFilePlaying());

    // The preset menus tell a screen reader what they are for, by a label as Linux expects.
    for (QComboBox* menu : window->findChildren<QComboBox*>()) {
        QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(menu);
        const auto labels = accessible->relations(QAccessible::Label);
        ASSERT_EQ(labels.size(), 1);
        EXPECT_TRUE(labels.first().first->text(QAccessible::Name).endsWith(" preset"));
    }
}

TEST_F(TakeWindow, EscapeOutOfAMenuOpenedWithTheMouseGivesTheKeysBackAtOnce) {
    // A menu clicked open and closed with Escape: the keys go back to the waveform, and the next
    // letter drops its marker; left with the menu bar, "c" would open the Controls menu again.
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    auto* waveform = window->findChild<WaveformView*>();
    QMenuBar* bar = window->menuBar();
    QAction* controls =
        childWhere<QAction>(bar, [](QAction* action) { return action->text() == "&Controls"; });
    ASSERT_NE(controls, nullptr);
    waveform->setFocus();
    QTest::mouseClick(bar, Qt::LeftButton, {}, bar->actionGeometry(controls).center());
    ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activePopupWidget() != nullptr; }));
    QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->focusWidget() == waveform; }, 1000));
    QTest::keyClick(waveform, Qt::Key_C);
    EXPECT_EQ(song->chorusMarkers().size(), 1);
}

TEST_F(TakeWindow, F10OpensTheFileMenuFromAnyViewAndEscapeGivesTheKeysBack) {
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    auto* waveform = window->findChild<WaveformView*>();
    QWidget* zoom = window->findChild<KLTexturedSlider*>();
    for (QWidget* view : {static_cast<QWidget*>(waveform), zoom}) {
        SCOPED_TRACE(view->metaObject()->className());
        view->setFocus(Qt::TabFocusReason);
        QTest::keyClick(view, Qt::Key_F10);
        ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activePopupWidget() != nullptr; }));
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_NE(menu, nullptr);
        EXPECT_EQ(menu->menuAction(), window->menuBar()->actions().constFirst());
        QTest::keyClick(menu, Qt::Key_Escape);
        QTest::keyClick(window->menuBar(), Qt::Key_Escape);
        EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
    }
    // Back with the waveform, the keys are the window's again.
    waveform->setFocus();
    QTest::keyClick(waveform, Qt::Key_M);
    EXPECT_EQ(song->genericMarkers().size(), 1);
}

TEST_F(TakeWindow, MenusOpenedByTheirAltKeysOneFromAnotherGiveTheKeysBackAfterEscape) {
    // Alt+F, Escape, Alt+E, Escape, Escape: the menu bar is done, but kept the keys, and "v"
    // opened the View menu instead of dropping a verse marker, until the window was closed.
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    auto* waveform = window->findChild<WaveformView*>();
    waveform->setFocus();
    const auto focused = [] { return QApplication::focusWidget(); };
    for (const Qt::Key title : {Qt::Key_F, Qt::Key_E}) {
        QTest::keyClick(focused(), title, Qt::AltModifier);
        ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activePopupWidget() != nullptr; }));
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
        ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activePopupWidget() == nullptr; }));
    }
    ASSERT_EQ(focused(), window->menuBar());
    QTest::keyClick(focused(), Qt::Key_Escape);
    // (The test platform may hand activation to another window meanwhile.)
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->focusWidget() == waveform; }, 1000));
    QTest::keyClick(waveform, Qt::Key_V);
    EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
    EXPECT_EQ(song->verseMarkers().size(), 1);
}

TEST_F(TakeWindow, AStepOfSpeedOrPitchShowsTheControlItMoves) {
    // Under the speed control a pitch changed from the menu would show nowhere, and the other
    // way round: each step turns the switch to its control.
    auto* speed = window->findChild<HUDSpeedControlView*>();
    auto* pitch = window->findChild<HUDPitchControlView*>();
    auto* toggle = window->findChild<HUDSwitchControlView*>();
    ASSERT_TRUE(speed && pitch && toggle);
    ASSERT_TRUE(speed->isVisible());
    const struct {
        WindowCommand command;
        QWidget* shown;
    } steps[] = {{WindowCommand::IncreasePitch, pitch},
                 {WindowCommand::DecreaseSpeed, speed},
                 {WindowCommand::ResetPitch, pitch},
                 {WindowCommand::IncreaseSpeed, speed},
                 {WindowCommand::DecreasePitchFinely, pitch}};
    for (const auto& step : steps) {
        SCOPED_TRACE(int(step.command));
        window->perform(step.command);
        EXPECT_TRUE(step.shown->isVisible());
        EXPECT_NE(speed->isVisible(), pitch->isVisible());
        EXPECT_EQ(toggle->switchState(), step.shown == pitch ? 1 : 0);
    }
    EXPECT_DOUBLE_EQ(song->pitchAdjustment(), -0.01);
    EXPECT_EQ(song->playbackSpeed(), 1.0);
}

TEST(DocumentWindow, APracticeWhoseSongReferenceIsDamagedStillAsksToSaveItsMarkers) {
    QTemporaryDir dir;
    ASSERT_TRUE(writeFile(dir.filePath("old.tesk"),
                          R"({"audioFileAlias": "bm90IGEgcmVmZXJlbmNl", "genericMarkers": [1]})"));
    Practice app;
    TeskDocument* document = app.open(dir.filePath("old.tesk"));
    ASSERT_NE(document, nullptr);
    document->setGenericMarkers({1, 2});
    // Cancelled, or the question closed without an answer: the practice stays.
    for (const int answer : {int(QMessageBox::Cancel), int(QMessageBox::NoButton)}) {
        app.saveAnswer = answer;
        EXPECT_FALSE(app.window(document)->close()) << answer;
    }
    EXPECT_EQ(app.saveQuestions, 2);
    // Without its song the title is the bare "Tesk": the question names the practice's file.
    EXPECT_EQ(app.saveAskedAbout, (QStringList{"old", "old"}));
}

TEST(DocumentWindow, ASongNeverSavedIsAskedAboutAsAPracticeToKeepASavedOneForItsChanges) {
    QTemporaryDir dir;
    Practice app;
    app.layer->services().askSaveChanges = nullptr; // the question Tesk itself asks
    TeskDocument* document = app.open(writeTake(dir));
    ASSERT_NE(document, nullptr);
    const auto askedWhenClosing = [&] {
        QString asked;
        QTimer::singleShot(0, [&] {
            if (auto* question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                asked = question->text() + ' ' + question->informativeText();
                question->button(QMessageBox::Cancel)->click();
            }
        });
        EXPECT_FALSE(app.window(document)->close());
        return asked;
    };
    const QString practice = askedWhenClosing();
    EXPECT_TRUE(practice.contains("save a practice for")) << practice.toStdString();
    EXPECT_FALSE(practice.contains("changes")) << practice.toStdString();
    TeskError error;
    ASSERT_TRUE(document->saveToURL(QUrl::fromLocalFile(dir.filePath("take.tesk")), &error));
    document->dropGenericMarker();
    const QString changes = askedWhenClosing();
    EXPECT_TRUE(changes.contains("the changes you made to “take”")) << changes.toStdString();
    // Each answer has a letter of its own: Alt+D throws the changes away and the window closes.
    QTimer::singleShot(0, [] {
        QWidget* question = QApplication::activeModalWidget();
        if (question == nullptr)
            return;
        question->activateWindow();
        if (QTest::qWaitForWindowActive(question))
            QTest::keyClick(question, Qt::Key_D, Qt::AltModifier);
        // The button answers once it has shown itself pressed.
        const bool answered =
            QTest::qWaitFor([&] { return QApplication::activeModalWidget() != question; }, 1000);
        if (auto* unanswered = answered ? nullptr : qobject_cast<QMessageBox*>(question))
            unanswered->button(QMessageBox::Cancel)->click();
    });
    EXPECT_TRUE(app.window(document)->close());
}

TEST(DocumentWindow, QuittingAsksAboutEachChangedWindowWithItInFront) {
    // Several changed practices: one question first, whether to ask about each, throw every
    // change away or not quit. A single changed one is asked about at once.
    const struct {
        const char* name;
        int changed;
        QuitReview review;
        QList<int> reviewQuestions;
        QStringList saveAskedAbout;
        bool quits;
    } cases[] = {
        {"asked about each", 3, QuitReview::ReviewEach, {3}, {"b", "c", "a"}, true},
        {"all thrown away", 3, QuitReview::DiscardAll, {3}, {}, true},
        {"not quitting", 3, QuitReview::Cancel, {3}, {}, false},
        {"one changed", 1, QuitReview::DiscardAll, {}, {"b"}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir dir;
        Practice app;
        QList<TeskDocument*> documents;
        for (const char* name : {"a", "b", "c"}) {
            const QString song = dir.filePath(QString::fromLatin1(name) + ".wav");
            ASSERT_TRUE(writeWav(song, {sine(440.0, 0.5, kRate, kRate)}, kRate));
            documents.append(app.open(song));
            ASSERT_NE(documents.last(), nullptr);
            documents.last()->dropGenericMarker();
        }
        // The ones left unchanged are saved first.
        for (int unchanged = 0; unchanged < 3 - c.changed; ++unchanged) {
            TeskDocument* document = documents[unchanged == 0 ? 0 : 2];
            TeskError error;
            ASSERT_TRUE(document->saveToURL(
                QUrl::fromLocalFile(dir.filePath(document->displayName() + ".tesk")), &error));
        }
        app.window(documents[1])->showWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(app.window(documents[1])));
        app.saveAnswer = QMessageBox::Discard;
        app.reviewAnswer = c.review;
        EXPECT_EQ(app.layer->closeAll(), c.quits);
        EXPECT_EQ(app.reviewQuestions, c.reviewQuestions);
        // The one in front first, then the newest.
        EXPECT_EQ(app.saveAskedAbout, c.saveAskedAbout);
        EXPECT_EQ(app.askedInFront, QList<bool>(c.saveAskedAbout.size(), true));
        for (TeskDocument* document : documents)
            EXPECT_EQ(app.window(document) != nullptr, !c.quits);
    }
}

TEST(DocumentWindow, TheOpenDialogStartsWhereSongsWereLastOpenedFrom) {
    QTemporaryDir dir;
    const QString folder = dir.filePath("album");
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString song = folder + "/take.wav";
    ASSERT_TRUE(writeWav(song, {sine(440.0, 0.5, kRate, kRate)}, kRate));
    QSettings().remove("TeskOpenFolder");
    Practice app;
    // Answers the dialog once it is up, picking `pick` (nothing: Cancel); says where it began.
    const auto runDialog = [&](const QString& pick, QString* began) {
        QTimer::singleShot(0, [&] {
            auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            if (dialog == nullptr) { // whatever is up instead goes, and the test fails
                if (QWidget* other = QApplication::activeModalWidget())
                    other->close();
                *began = QStringLiteral("(no open dialog)");
                return;
            }
            *began = dialog->directory().absolutePath();
            if (pick.isEmpty()) {
                dialog->reject();
                return;
            }
            dialog->selectFile(pick);
            QTest::keyClick(dialog, Qt::Key_Return);
        });
        return app.layer->runOpenPanel();
    };
    // At first, the music folder, or home where there is none.
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    const QString first = QFileInfo(music).isDir() ? music : QDir::homePath();
    QString began;
    EXPECT_EQ(runDialog(song, &began), QStringList{song});
    EXPECT_EQ(QFileInfo(began), QFileInfo(first));
    // Next time, and in the next session, it begins in that folder; cancelled, it forgets
    // nothing; once the folder has gone, it begins in the music folder or at home.
    EXPECT_TRUE(runDialog({}, &began).isEmpty());
    EXPECT_EQ(began, folder);
    EXPECT_TRUE(runDialog({}, &began).isEmpty());
    EXPECT_EQ(began, folder);
    ASSERT_TRUE(QDir(folder).removeRecursively());
    EXPECT_TRUE(runDialog({}, &began).isEmpty());
    EXPECT_EQ(QFileInfo(began), QFileInfo(first));
}

TEST(DocumentWindow, AnEmptyWindowTakesDropsOfSongsOnlyAndOffersNoSongCommands) {
    QTemporaryDir dir;
    const QString song = dir.filePath("dropped.wav");
    const auto length = std::size_t(kRate / 2);
    ASSERT_TRUE(
        writeWav(song, {sine(440.0, 0.5, length, kRate), sine(440.0, 0.5, length, kRate)}, kRate));
    const QString text = dir.filePath("notes.txt");
    ASSERT_TRUE(writeFile(text, "not a song"));

    Practice app;
    app.documents->newDocument();
    ASSERT_EQ(app.documents->documents().size(), 1);
    TeskDocumentWindowController* window = app.window(app.documents->documents().first());
    ASSERT_NE(window, nullptr);
    for (WindowCommand command : {WindowCommand::PlayPause, WindowCommand::ExportSong,
                                  WindowCommand::Save, WindowCommand::ZoomIn})
        EXPECT_FALSE(window->action(command)->isEnabled()) << int(command);
    EXPECT_EQ(window->minimumSize(), window->maximumSize()); // fixed in size
    // A menu bar left holding the keys, which it does after some Escapes, gives them back
    // rather than open the menu a letter names, though nothing here takes that letter.
    window->menuBar()->setFocus();
    QTest::keyClick(window->menuBar(), Qt::Key_F);
    EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
    EXPECT_NE(window->focusWidget(), window->menuBar());

    auto* target = qobject_cast<TeskDropView*>(window->centralWidget());
    ASSERT_NE(target, nullptr);
    const auto dragOver = [&](const QList<QUrl>& urls) {
        QMimeData data;
        data.setUrls(urls);
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(target, &enter);
        const bool accepted = enter.isAccepted() && target->isActive();
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(target, &leave);
        return accepted;
    };
    // A text file does not light the target; a list whose last track is a song does.
    EXPECT_FALSE(dragOver({QUrl::fromLocalFile(text)}));
    EXPECT_TRUE(dragOver({QUrl::fromLocalFile(text), QUrl::fromLocalFile(song)}));
    EXPECT_FALSE(target->isActive());

    // Dropped, the song opens in its own window and the empty one goes.
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(text), QUrl::fromLocalFile(song)});
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, {});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, {});
    QCoreApplication::sendEvent(target, &enter);
    QCoreApplication::sendEvent(target, &drop);
    EXPECT_TRUE(drop.isAccepted());
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_EQ(app.documents->documents().size(), 1);
    TeskDocument* opened = app.documents->documents().first();
    EXPECT_EQ(opened->audioFileURL(), QUrl::fromLocalFile(song));
    ASSERT_NE(app.window(opened), nullptr);
    EXPECT_TRUE(app.window(opened)->action(WindowCommand::PlayPause)->isEnabled());
}

TEST(DocumentWindow, MenuItemsAnswerToLettersOfTheirOwn) {
    // A shared letter only selects the first of its items: the others cannot be reached by it.
    QTemporaryDir dir;
    const QString song = dir.filePath("song.wav");
    ASSERT_TRUE(
        writeWav(song, {sine(440.0, 0.5, kRate, kRate), sine(440.0, 0.5, kRate, kRate)}, kRate));
    Practice app;
    TeskDocument* document = app.open(song);
    ASSERT_NE(document, nullptr);
    TeskDocumentWindowController* window = app.window(document);
    const auto letter = [](const QString& text) {
        const QString title = text.section(QLatin1Char('\t'), 0, 0);
        const qsizetype at = QString(title).replace("&&", "__").indexOf(QLatin1Char('&'));
        return at < 0 || at + 1 >= title.size() ? QChar() : title.at(at + 1).toLower();
    };
    const auto expectDistinct = [&](const QList<QAction*>& items, const QString& where) {
        std::map<QChar, QString> taken;
        for (QAction* item : items) {
            const QChar key = letter(item->text());
            if (key.isNull())
                continue;
            const auto [at, added] = taken.emplace(key, item->text());
            EXPECT_TRUE(added) << where.toStdString() << ": " << item->text().toStdString()
                               << " and " << at->second.toStdString();
        }
    };
    for (const bool playing : {false, true}) {
        if (playing)
            document->startFilePlaying();
        expectDistinct(window->menuBar()->actions(), "the menu bar");
        for (QAction* title : window->menuBar()->actions()) {
            emit title->menu()->aboutToShow();
            expectDistinct(title->menu()->actions(), title->text());
        }
    }
    document->stopFilePlaying();

    // And a letter typed in an open menu does what its item says.
    const auto menuNamed = [&](const QString& title) {
        QMenu* found = nullptr;
        for (QAction* item : window->menuBar()->actions())
            found = item->text() == title ? item->menu() : found;
        return found;
    };
    const struct {
        const char* menu;
        char letter;
        std::function<bool()> done;
    } typed[] = {
        {"&Controls", 'k', [&] { return document->bridgeMarkers() == frames({22050}); }},
        {"&Controls", 'o', [&] { return document->pitchAdjustment() == 12.0; }},
        {"&View", 'e', [&] { return document->effectsVisible(); }},
    };
    document->setCurrentFrame(22050);
    for (const auto& t : typed) {
        SCOPED_TRACE(t.letter);
        QMenu* menu = menuNamed(t.menu);
        ASSERT_NE(menu, nullptr);
        menu->popup(window->mapToGlobal(QPoint(0, 0)));
        QTest::keyClick(menu, t.letter);
        EXPECT_TRUE(t.done());
        menu->hide();
    }
}

TEST(DocumentWindow, KeysAndClicksInTheMiddleOfThingsLoseNothing) {
    QTemporaryDir dir;
    const QString songPath = writeTake(dir);
    Practice app;
    TeskDocument* document = app.open(songPath);
    ASSERT_NE(document, nullptr);
    TeskDocumentWindowController* window = app.window(document);
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    auto* waveform = window->findChild<WaveformView*>();
    ASSERT_NE(waveform, nullptr);

    // The undo keys work whenever there is something to undo, whatever the Edit menu showed
    // when it was last opened; the title marks the unsaved change.
    QMenu* editMenu = nullptr;
    for (QAction* item : window->menuBar()->actions())
        editMenu = item->text() == "&Edit" ? item->menu() : editMenu;
    ASSERT_NE(editMenu, nullptr);
    emit editMenu->aboutToShow();
    document->setCurrentFrame(22050);
    press(window, Qt::Key_M, "m");
    EXPECT_TRUE(window->isWindowModified());
    ASSERT_GE(editMenu->actions().size(), 2);
    QTest::keySequence(window, editMenu->actions()[0]->shortcut());
    EXPECT_TRUE(document->genericMarkers().isEmpty());
    QTest::keySequence(window, editMenu->actions()[1]->shortcut());
    EXPECT_EQ(document->genericMarkers(), frames({22050}));

    // Saved, a plain click in the waveform changes nothing and so is no edit.
    app.documentAnswer = dir.filePath("take.tesk");
    window->perform(WindowCommand::Save);
    ASSERT_FALSE(document->isDocumentEdited());
    EXPECT_FALSE(window->isWindowModified());
    EXPECT_EQ(app.documents->recentDocumentURLs().value(0),
              QUrl::fromLocalFile(QFileInfo(dir.filePath("take.tesk")).canonicalFilePath()));
    // Saved as a name with a dot, which the dialog leaves without the extension: the window
    // asks about the file it would replace (the answer is No), and the dialog comes back at that
    // name for another one (here cancelled); saved as itself, it asks nothing.
    ASSERT_TRUE(writeFile(dir.filePath("Solo 1.5x.tesk"), "another practice"));
    app.documentAnswer = dir.filePath("Solo 1.5x");
    app.documentProposals.clear();
    window->perform(WindowCommand::SaveAs);
    EXPECT_EQ(app.replaceQuestions, QStringList{dir.filePath("Solo 1.5x.tesk")});
    EXPECT_EQ(app.documentProposals,
              (QStringList{dir.filePath("take.tesk"), dir.filePath("Solo 1.5x.tesk")}));
    EXPECT_EQ(readFile(dir.filePath("Solo 1.5x.tesk")), "another practice");
    app.documentAnswer = dir.filePath("take.tesk");
    window->perform(WindowCommand::SaveAs);
    EXPECT_EQ(app.replaceQuestions.size(), 1);
    {
        // Another song's window may not save over the practice open here: it says so instead.
        ASSERT_TRUE(QFile::copy(songPath, dir.filePath("other.wav")));
        TeskDocument* other = app.open(dir.filePath("other.wav"));
        ASSERT_NE(other, nullptr);
        const QByteArray kept = readFile(dir.filePath("take.tesk"));
        app.documentAnswer = dir.filePath("take.tesk");
        app.window(other)->perform(WindowCommand::SaveAs);
        EXPECT_TRUE(other->fileURL().isEmpty());
        EXPECT_EQ(readFile(dir.filePath("take.tesk")), kept);
        EXPECT_EQ(app.replaceQuestions.size(), 1);
        QMessageBox* message = app.window(other)->findChild<QMessageBox*>();
        ASSERT_NE(message, nullptr);
        EXPECT_TRUE(message->text().contains("take.tesk"));
        app.documents->closeDocument(other);
        window->activateWindow();
    }
    {
        // Written since by someone else (a copy synced from another computer): Save asks
        // before writing over it (the answer is No), and leaves it as it is.
        TeskDocument elsewhere;
        TeskError error;
        ASSERT_TRUE(elsewhere.readFromURL(QUrl::fromLocalFile(dir.filePath("take.tesk")),
                                          TeskDocumentType, &error));
        elsewhere.setBridgeMarkers({1, 2, 3});
        ASSERT_TRUE(elsewhere.saveToURL(elsewhere.fileURL(), &error));
        const QByteArray theirs = readFile(dir.filePath("take.tesk"));
        document->setCurrentFrame(33075);
        press(window, Qt::Key_V, "v");
        window->perform(WindowCommand::Save);
        EXPECT_EQ(app.replaceQuestions.size(), 2);
        EXPECT_EQ(readFile(dir.filePath("take.tesk")), theirs);
        ASSERT_TRUE(document->saveToURL(document->fileURL(), &error)); // as a Yes would
    }
    QTest::mouseClick(waveform, Qt::LeftButton, {}, waveform->waveformRect().center().toPoint());
    EXPECT_FALSE(document->isDocumentEdited());

    // Escape in the middle of a marker's drag puts the marker back and leaves the loop alone.
    document->setLoopRange({kRate, kRate});
    qint64 now = 0;
    waveform->setClock([&] { return now; });
    const WaveformGeometry& geometry = waveform->geometryValues();
    const QPoint flag(int(geometry.pointFromSample(22050) - geometry.visibleStartPoint()) + 1,
                      int(waveform->markerStripRect().center().y()));
    QTest::mousePress(waveform, Qt::LeftButton, {}, flag);
    now += 250; // held long enough to move it
    QTest::mouseMove(waveform, flag + QPoint(60, 0));
    QTest::keyClick(waveform, Qt::Key_Escape);
    QTest::mouseRelease(waveform, Qt::LeftButton, {}, flag + QPoint(60, 0));
    EXPECT_EQ(document->genericMarkers(), frames({22050}));
    EXPECT_EQ(document->loopRange(), (LoopRange{kRate, kRate}));

    // A dialog that opens in the middle of a loop drag takes the button's release: the drag
    // ends there, as one step to undo, and the loop no longer follows the pointer.
    const QPoint middle(int(geometry.pointFromSample(kRate * 5 / 4) - geometry.visibleStartPoint()),
                        int(waveform->waveformRect().top()) + 5); // clear of the loop's button
    QTest::mousePress(waveform, Qt::LeftButton, {}, middle);
    QTest::mouseMove(waveform, middle + QPoint(40, 0));
    QEvent deactivate(QEvent::WindowDeactivate);
    QCoreApplication::sendEvent(waveform, &deactivate);
    const LoopRange dragged = document->loopRange();
    EXPECT_NE(dragged, (LoopRange{kRate, kRate}));
    QTest::mouseMove(waveform, middle + QPoint(80, 0));
    EXPECT_EQ(waveform->loopRange(), dragged);
    document->undoManager()->undo();
    EXPECT_EQ(document->loopRange(), (LoopRange{kRate, kRate}));
    QTest::mouseRelease(waveform, Qt::LeftButton, {}, middle + QPoint(80, 0));

    // Paused, the play head and the time shown follow every move of the position, which
    // stays inside the song: a second back from half a second is the start.
    auto* time = window->findChild<HUDTimeDisplayView*>();
    ASSERT_NE(time, nullptr);
    document->setCurrentFrame(kRate / 2);
    press(window, Qt::Key_Left);
    EXPECT_EQ(document->currentFrame(), 0);
    EXPECT_EQ(waveform->currentFrame(), 0);
    EXPECT_EQ(time->currentFrame(), 0);
    QWheelEvent back(QPointF(10, 10), QPointF(10, 10), {}, QPoint(0, -120), Qt::NoButton,
                     Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(window, &back);
    EXPECT_EQ(waveform->currentFrame(), 441);
    EXPECT_EQ(time->currentFrame(), 441);

    // Escape that closes a menu leaves the keys with the menu bar, and it gets them: they
    // leave the loop and the position alone.
    QMenuBar* bar = window->menuBar();
    // Its title stays lit while the bar has the keys, and goes out when it gives them back.
    const QRect title = bar->actionGeometry(editMenu->menuAction());
    const auto titleEdge = [&] {
        const QImage picture = bar->grab().toImage();
        const qreal ratio = picture.devicePixelRatio();
        return picture.pixelColor(QPointF(title.left() + 2, title.center().y()).toPoint() * ratio);
    };
    const QColor unlit = titleEdge();
    for (const Qt::Key key : {Qt::Key_Escape, Qt::Key_Right}) {
        QTest::mouseClick(bar, Qt::LeftButton, {}, title.center());
        ASSERT_NE(QApplication::activePopupWidget(), nullptr);
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_Escape);
        EXPECT_EQ(titleEdge(), bar->palette().color(QPalette::Highlight));
        QTest::keyClick(bar, key);
    }
    QTest::keyClick(bar, Qt::Key_Escape);
    EXPECT_EQ(titleEdge(), unlit);
    EXPECT_EQ(document->loopRange(), (LoopRange{kRate, kRate}));
    EXPECT_EQ(document->currentFrame(), 441);

    // A preset picked with the mouse leaves the keys to the window: Space plays.
    document->setEffectsVisible(true);
    auto* preset = window->findChild<QComboBox*>();
    ASSERT_NE(preset, nullptr);
    QTest::mouseClick(preset, Qt::LeftButton);
    preset->hidePopup();
    ASSERT_NE(QApplication::focusWidget(), nullptr);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(document->isFilePlaying());
    document->stopFilePlaying();
    // Given the keys, it leaves the marker letters to the window rather than search its presets
    // with them ("m" would pick "Manual" and switch the effect on).
    preset->setFocus(Qt::TabFocusReason);
    const QVariantMap effectsBefore = document->effectsSettings()->dictionaryRepresentation();
    const QList<quint32> generic = document->genericMarkers();
    QTest::keyClick(preset, Qt::Key_M, Qt::NoModifier);
    EXPECT_NE(document->genericMarkers(), generic);
    EXPECT_EQ(document->effectsSettings()->dictionaryRepresentation(), effectsBefore);
    QTest::keyClick(preset, Qt::Key_Escape);
    // So does a switch clicked with the mouse; Tab takes the keys into the panel, where Space
    // works the switch it reaches.
    auto* equalizer =
        childWhere<QCheckBox>(window, [](QCheckBox* box) { return box->text() == "Equalizer"; });
    ASSERT_NE(equalizer, nullptr);
    QTest::mouseClick(equalizer, Qt::LeftButton);
    const bool equalizerOn = document->effectsSettings()->isEqualizerEnabled();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(document->isFilePlaying());
    document->stopFilePlaying();
    waveform->setFocus();
    for (int tab = 0; tab < 20 && QApplication::focusWidget() != equalizer; ++tab)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), equalizer);
    QTest::keyClick(equalizer, Qt::Key_Space);
    EXPECT_NE(document->effectsSettings()->isEqualizerEnabled(), equalizerOn);
    EXPECT_FALSE(document->isFilePlaying());
    // Escape takes the keys back to the window, and clears no loop on the way.
    const LoopRange loop = document->loopRange();
    QTest::keyClick(equalizer, Qt::Key_Escape);
    EXPECT_EQ(QApplication::focusWidget(), waveform);
    EXPECT_EQ(document->loopRange(), loop);
    // Hiding the panel takes the keys back too: a switch out of sight works no more.
    for (int tab = 0; tab < 20 && QApplication::focusWidget() != equalizer; ++tab)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), equalizer);
    document->setEffectsVisible(false);
    EXPECT_EQ(QApplication::focusWidget(), waveform);
    const bool equalizerHidden = document->effectsSettings()->isEqualizerEnabled();
    QTest::keyClick(equalizer, Qt::Key_Space);
    EXPECT_EQ(document->effectsSettings()->isEqualizerEnabled(), equalizerHidden);
    EXPECT_TRUE(document->isFilePlaying());
    document->stopFilePlaying();
    document->setEffectsVisible(true);
    // Tab reaches the equalizer, where the arrows work its bands and not the speed.
    QCoreApplication::processEvents();
    auto* bands = window->findChild<TeskEQSettingsView*>();
    ASSERT_NE(bands, nullptr);
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    waveform->setFocus();
    for (int tab = 0; tab < 20 && QApplication::focusWidget() != bands; ++tab)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), bands);
    const double speed = document->playbackSpeed();
    QTest::keyClick(bands, Qt::Key_Up);
    EXPECT_EQ(document->effectsSettings()->equalizerSettings()->bands().value(0), 1.0);
    EXPECT_EQ(document->playbackSpeed(), speed);
    QTest::keyClick(bands, Qt::Key_Escape);
    EXPECT_EQ(QApplication::focusWidget(), waveform);
    // So does it reach the volume, which the arrows turn down and up.
    auto* volume = childWhere<KLTexturedSlider>(
        window, [](KLTexturedSlider* slider) { return slider->accessibleName() == "Volume"; });
    ASSERT_NE(volume, nullptr);
    for (int tab = 0; tab < 20 && QApplication::focusWidget() != volume; ++tab)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), volume);
    // From half way, since a new document starts at the volume an earlier test left.
    document->setPlaybackVolume(0.5);
    QTest::keyClick(volume, Qt::Key_Left);
    EXPECT_NEAR(document->playbackVolume(), 0.5 - volume->step(), 1e-9);
    EXPECT_EQ(document->playbackSpeed(), speed);
    QTest::keyClick(volume, Qt::Key_Escape);
    EXPECT_EQ(QApplication::focusWidget(), waveform);
    // Save As has a key on any desktop.
    auto* saveAs =
        childWhere<QAction>(window, [](QAction* item) { return item->text() == "Save &As…"; });
    ASSERT_NE(saveAs, nullptr);
    EXPECT_TRUE(saveAs->shortcuts().contains(QKeySequence("Ctrl+Shift+S")));

    // The handle above the effects, dragged to the window's foot, leaves the panel showing.
    auto* split = window->findChild<QSplitter*>();
    ASSERT_NE(split, nullptr);
    QCoreApplication::processEvents(); // the panel takes its place
    QSplitterHandle* handle = split->handle(1);
    QTest::mousePress(handle, Qt::LeftButton, {}, handle->rect().center());
    QTest::mouseMove(handle, handle->rect().center() + QPoint(0, 2000));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, handle->rect().center() + QPoint(0, 2000));
    EXPECT_GT(split->widget(1)->height(), 0);

    // A song that has gone while it plays can still be paused, and its effects hidden; it
    // does not take the markers with it: closing asks to save.
    document->setCurrentFrame(44100);
    press(window, Qt::Key_C, "c");
    press(window, Qt::Key_Space, " ");
    ASSERT_TRUE(document->isFilePlaying());
    ASSERT_TRUE(QFile::remove(songPath));
    press(window, Qt::Key_Space, " ");
    EXPECT_FALSE(document->isFilePlaying());
    // Paused, it plays no more, by key or by button, and the window says why.
    press(window, Qt::Key_Space, " ");
    EXPECT_FALSE(document->isFilePlaying());
    EXPECT_TRUE(window->noticeText().contains("could not be found"))
        << window->noticeText().toStdString();
    EXPECT_TRUE(window->noticeText().contains("Locate"));
    auto* play = childWhere<QToolButton>(
        window, [](QToolButton* button) { return button->accessibleName() == "Play"; });
    ASSERT_NE(play, nullptr);
    play->click();
    EXPECT_FALSE(document->isFilePlaying());
    window->validateMenuItems();
    auto* hideEffects =
        childWhere<QAction>(window, [](QAction* item) { return item->text() == "Hide &Effects"; });
    ASSERT_NE(hideEffects, nullptr);
    EXPECT_TRUE(hideEffects->isEnabled());
    app.saveAnswer = QMessageBox::Save;
    EXPECT_TRUE(window->close());
    EXPECT_EQ(app.saveQuestions, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TeskDocument* reopened = app.open(dir.filePath("take.tesk"));
    ASSERT_NE(reopened, nullptr);
    EXPECT_EQ(reopened->chorusMarkers(), frames({44100}));
}

TEST_F(TakeWindow, APracticeIsProposedUnderTheSongsNameUntilItHasOneOfItsOwn) {
    app.documentAnswer = dir.filePath("slow.tesk");
    window->perform(WindowCommand::Save);
    window->perform(WindowCommand::SaveAs);
    EXPECT_EQ(app.documentProposals,
              (QStringList{dir.filePath("take.tesk"), dir.filePath("slow.tesk")}));
}

TEST_F(TakeWindow, GrowsWithTheEffectsAndShrinksBackWithout) {
    const int without = window->height();
    std::vector<int> heights;
    for (int round = 0; round < 2; ++round) {
        for (const bool shown : {true, false}) {
            song->setEffectsVisible(shown);
            QCoreApplication::processEvents();
            heights.push_back(window->height());
        }
    }
    EXPECT_GT(heights[0], without);
    EXPECT_EQ(heights, (std::vector<int>{heights[0], without, heights[0], without}));

    // Only the width is the user's: a taller window would not come back so from its song.
    for (const bool shown : {true, false}) {
        song->setEffectsVisible(shown);
        QCoreApplication::processEvents();
        const int width = window->width() + 40;
        window->resize(width, window->height() + 150);
        QCoreApplication::processEvents();
        EXPECT_EQ(window->size(), QSize(width, shown ? heights[0] : without));
    }
}

TEST_F(TakeWindow, ARoundButtonHeldDownShowsItsPressedPicture) {
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    // A point of the face near its top, where the held picture is darker: 5 points down the
    // 32-point picture, which sits in the middle of its button.
    const QPointF face(16, 5);
    const auto pictureColour = [&](const QString& name) {
        const qreal ratio = window->devicePixelRatioF();
        const QImage picture = NamedImage::named(name).pixmap(QSizeF(32, 32), ratio).toImage();
        return test::pixelAt(picture, face.x(), face.y());
    };
    const struct {
        const char* button;
        const char* picture;
    } buttons[] = {{"Rewind", "Rewind"},
                   {"Play", "Play"},
                   {"Fast Forward", "FastForward"},
                   {"Drop Generic Marker", "SegmentedControlMark"}};
    for (const auto& [name, picture] : buttons) {
        SCOPED_TRACE(name);
        auto* button = childWhere<QToolButton>(
            window, [&](QToolButton* candidate) { return candidate->accessibleName() == name; });
        ASSERT_NE(button, nullptr);
        const QPoint centre = button->rect().center();
        QRect place(QPoint(), QSize(32, 32)); // the picture, centred in the button
        place.moveCenter(centre);
        const QPointF onFace = QPointF(place.topLeft()) + face;
        const auto shown = [&] {
            return test::pixelAt(test::grabImage(*button), onFace.x(), onFace.y());
        };
        const QColor normal = pictureColour(QString(picture) + "N");
        const QColor held = pictureColour(QString(picture) + "P");
        ASSERT_FALSE(test::coloursClose(normal, held, 20));
        EXPECT_TRUE(test::coloursClose(shown(), normal, 6)) << shown().name().toStdString();
        // Round and flat: no square panel around the picture, held or not.
        const auto corner = [&] { return test::pixelAt(test::grabImage(*button), 2, 2); };
        const QColor cornerReleased = corner();
        QTest::mousePress(button, Qt::LeftButton, {}, centre);
        EXPECT_TRUE(test::coloursClose(shown(), held, 6)) << shown().name().toStdString();
        EXPECT_EQ(corner(), cornerReleased);
        // Moved off before the release: no click, and the picture is the normal one again.
        QTest::mouseMove(button, centre + QPoint(100, 0));
        EXPECT_TRUE(test::coloursClose(shown(), normal, 6)) << shown().name().toStdString();
        QTest::mouseRelease(button, Qt::LeftButton, {}, centre + QPoint(100, 0));
    }
    EXPECT_FALSE(song->isFilePlaying());
    // Held down, Rewind and Fast Forward go on stepping, as their keys do.
    for (const auto& [name, from, to] :
         {std::tuple{"Fast Forward", 0, 3 * kRate}, std::tuple{"Rewind", 4 * kRate, kRate}}) {
        SCOPED_TRACE(name);
        auto* button = childWhere<QToolButton>(
            window, [&](QToolButton* candidate) { return candidate->accessibleName() == name; });
        ASSERT_NE(button, nullptr);
        song->setCurrentFrame(from);
        QTest::mousePress(button, Qt::LeftButton, {}, button->rect().center());
        EXPECT_TRUE(QTest::qWaitFor([&] { return std::abs(song->currentFrame() - to) < kRate; }));
        QTest::mouseRelease(button, Qt::LeftButton, {}, button->rect().center());
    }
}

TEST_F(TakeWindow, ARefusedReplaceAsksForAnotherNameAndSavesThere) {
    ASSERT_TRUE(writeFile(dir.filePath("other.tesk"), "another practice"));
    app.documentAnswer = dir.filePath("other.tesk");
    app.documentAnswerOnRefusal = dir.filePath("fresh");
    window->perform(WindowCommand::SaveAs);
    EXPECT_EQ(app.replaceQuestions, QStringList{dir.filePath("other.tesk")});
    EXPECT_EQ(readFile(dir.filePath("other.tesk")), "another practice");
    EXPECT_EQ(song->fileURL(), QUrl::fromLocalFile(dir.filePath("fresh.tesk")));
    EXPECT_FALSE(song->isDocumentEdited());
}

TEST_F(TakeWindow, TheBarsButtonsSlidersAndTheTimeTipWhatTheyAre) {
    song->setPlaybackVolume(1.0); // a new song starts at the last volume set, in any test before
    const auto tipOf = [&](const QString& name) {
        for (QWidget* widget : window->findChildren<QWidget*>())
            if (widget->accessibleName() == name)
                return widget->toolTip();
        return QStringLiteral("(none named %1)").arg(name);
    };
    const struct {
        const char* name;
        const char* tip;
    } tips[] = {{"Rewind", "Rewind (Left)"},
                {"Play", "Play (Space)"},
                {"Fast Forward", "Fast Forward (Right)"},
                {"Drop Generic Marker", "Drop Generic Marker (M)"},
                {"Zoom", "Zoom"},
                {"Volume", "Volume 100 %"}};
    for (const auto& tip : tips)
        EXPECT_EQ(tipOf(tip.name), tip.tip);
    song->setPlaybackVolume(0.42);
    EXPECT_EQ(tipOf("Volume"), "Volume 42 %");
    song->startFilePlaying();
    EXPECT_EQ(tipOf("Pause"), "Pause (Space)");
    song->stopFilePlaying();
    EXPECT_EQ(tipOf("Play"), "Play (Space)");
    // The time shows where the play head is, its tip how long the song is, once that is known.
    auto* time = window->findChild<HUDTimeDisplayView*>();
    ASSERT_NE(time, nullptr);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !time->toolTip().isEmpty(); }, 5000));
    EXPECT_EQ(time->toolTip(), "Song length 00:04.000");
}
