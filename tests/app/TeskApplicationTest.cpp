#include "app/FeedbackMessage.h"
#include "app/SingleInstance.h"
#include "app/TeskAppController.h"
#include "document/TeskDocument.h"
#include "document/TeskDocumentController.h"
#include "waveform/WaveformView.h"
#include "window/TeskDocumentWindowController.h"
#include "window/TeskWindowLayer.h"

#include "support/AudioFiles.h"
#include "support/Environment.h"
#include "support/Signals.h"
#include "support/SongFiles.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QLockFile>
#include <QMessageBox>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <csignal>

using namespace tesk;

namespace {
/// A saved practice of a one-second song, both in `folder`: opening it changes nothing, so
/// quitting has nothing to ask.
QString writePractice(const QTemporaryDir& folder) {
    const QString song = folder.filePath("scale.wav");
    EXPECT_TRUE(test::writeWav(song, {test::sine(440.0, 0.4, 44100, 44100)}, 44100));
    const QString practice = folder.filePath("scale.tesk");
    TeskDocument document;
    document.setAudioFileURL(QUrl::fromLocalFile(song));
    TeskError error;
    EXPECT_TRUE(document.saveToURL(QUrl::fromLocalFile(practice), &error));
    return practice;
}

/// A Tesk that opens `file` and ends with a bridge marker dropped in it, unsaved.
void endWithAMarkerUnsaved(const QString& file) {
    {
        TeskAppController ended;
        ended.openFiles({file});
        ASSERT_EQ(ended.documentController()->documents().size(), 1);
        ended.documentController()->documents().first()->dropBridgeMarker();
        ended.documentController()->recoveryCopies().writeDueCopies();
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// Takes the mailto URLs Tesk asks the desktop to open, as a mail program would.
class MailProgram : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void compose(const QUrl& url) { opened.append(url); }
};

QMessageBox* messageBoxShown() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
            return box;
    return nullptr;
}
} // namespace

TEST(TeskAppController, EveryStartAddsOneToTheRunCount) {
    QSettings().remove(TeskAppController::RunCountKey);
    EXPECT_EQ(TeskAppController::countLaunch(), 1);
    EXPECT_EQ(TeskAppController::countLaunch(), 2);
    EXPECT_EQ(QSettings().value(TeskAppController::RunCountKey).toInt(), 2);
}

TEST(TeskAppController, QuittingClosesTheLastSongWithoutOpeningAnEmptyWindow) {
    QTemporaryDir folder;
    const QString practice = writePractice(folder);
    TeskAppController app;
    app.openFiles({practice});
    ASSERT_EQ(app.documentController()->documents().size(), 1);
    app.quit();
    EXPECT_TRUE(app.documentController()->documents().isEmpty());
}

TEST(TeskAppController, PracticeLeftUnsavedIsOfferedBackAtTheStart) {
    using Answer = TeskAppController::RecoveryAnswer;
    QTemporaryDir folder;
    const QString song = folder.filePath("scale.wav");
    ASSERT_TRUE(test::writeWav(song, {test::sine(440.0, 0.4, 44100, 44100)}, 44100));
    const auto endWithAMarker = [&] { endWithAMarkerUnsaved(song); };
    // A start's offer, answered `answer`: the names it gave.
    const auto offer = [](TeskAppController& app, Answer answer) {
        QStringList asked;
        app.offerUnsavedPractice([&](const QStringList& names) {
            asked = names;
            return answer;
        });
        return asked;
    };
    const QString copies = TeskAppController().documentController()->recoveryCopies().folder();
    const struct {
        Answer answer;
        int reopened;
        qsizetype copiesAfter;
    } answers[] = {{Answer::Reopen, 1, 1}, {Answer::Later, 0, 1}, {Answer::Discard, 0, 0}};
    for (const auto& a : answers) {
        SCOPED_TRACE(int(a.answer));
        ASSERT_TRUE(QDir(copies).removeRecursively());
        endWithAMarker();
        {
            TeskAppController next;
            EXPECT_EQ(offer(next, a.answer), QStringList{"scale"});
            const QList<TeskDocument*> documents = next.documentController()->documents();
            ASSERT_EQ(documents.size(), a.reopened);
            EXPECT_EQ(QDir(copies).entryList({"*.tesk"}, QDir::Files).size(), a.copiesAfter);
            if (a.reopened) {
                EXPECT_EQ(documents.first()->bridgeMarkers(), QList<quint32>{0});
                continue; // its copy is its own until it is saved or closed
            }
        }
        // Put off, it is offered again at the next start; thrown away, it is not.
        TeskAppController third;
        EXPECT_EQ(offer(third, Answer::Later).isEmpty(), a.answer == Answer::Discard);
    }

    // Two Tesks that ended with the same song unsaved, seconds apart: the offer tells the copies
    // apart by their time, in locales whose short time stops at the minute too.
    ASSERT_TRUE(QDir(copies).removeRecursively());
    endWithAMarker();
    endWithAMarker();
    const QFileInfoList written = QDir(copies).entryInfoList({"*.tesk"}, QDir::Files);
    ASSERT_EQ(written.size(), 2);
    const QDateTime minute(QDate(2026, 3, 14), QTime(9, 26));
    for (qsizetype i = 0; i < written.size(); ++i) {
        QFile copy(written[i].filePath());
        ASSERT_TRUE(copy.open(QIODevice::ReadWrite));
        ASSERT_TRUE(copy.setFileTime(minute.addSecs(20 * i), QFileDevice::FileModificationTime));
    }
    // The seconds are written as the locale writes the minutes.
    const struct {
        QLocale locale;
        const char* times[2];
    } locales[] = {{QLocale::c(), {"09:26:00", "09:26:20"}},
                   {QLocale(QLocale::German, QLocale::Germany), {"09:26:00", "09:26:20"}},
                   {QLocale(QLocale::English, QLocale::UnitedStates), {"9:26:00", "9:26:20"}},
                   {QLocale(QLocale::Finnish, QLocale::Finland), {"9.26.00", "9.26.20"}}};
    for (const auto& [locale, times] : locales) {
        SCOPED_TRACE(locale.name().toStdString());
        QLocale::setDefault(locale);
        TeskAppController next;
        const QStringList asked = offer(next, Answer::Later);
        QLocale::setDefault(QLocale::system());
        ASSERT_EQ(asked.size(), 2);
        EXPECT_TRUE(asked[0].startsWith("scale (") && asked[1].startsWith("scale ("));
        EXPECT_NE(asked[0], asked[1]);
        EXPECT_EQ(asked.filter(times[0]).size(), 1) << asked.join(" / ").toStdString();
        EXPECT_EQ(asked.filter(times[1]).size(), 1) << asked.join(" / ").toStdString();
    }
}

TEST(TeskAppController, PracticeReopenedApartFromItsFileSaysWhyOnItsWindow) {
    QTemporaryDir folder;
    const QString practice = writePractice(folder);
    const QString copies = TeskAppController().documentController()->recoveryCopies().folder();
    ASSERT_TRUE(QDir(copies).removeRecursively());
    endWithAMarkerUnsaved(practice);
    // Saved again since, by another Tesk: the copy's changes come back as a new practice.
    QFile file(practice);
    ASSERT_TRUE(file.open(QIODevice::Append));
    ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(60),
                                 QFileDevice::FileModificationTime));
    file.close();
    TeskAppController next;
    next.offerUnsavedPractice(
        [](const QStringList&) { return TeskAppController::RecoveryAnswer::Reopen; });
    const QList<TeskDocument*> documents = next.documentController()->documents();
    ASSERT_EQ(documents.size(), 1);
    EXPECT_TRUE(documents.first()->fileURL().isEmpty());
    EXPECT_EQ(documents.first()->bridgeMarkers(), QList<quint32>{0});
    const QList<QMessageBox*> told =
        next.windowLayer()->windowFor(documents.first())->findChildren<QMessageBox*>();
    ASSERT_EQ(told.size(), 1);
    EXPECT_EQ(told.first()->text(),
              "“scale.tesk” was saved again after these changes to it were made.");
    EXPECT_TRUE(told.first()->informativeText().contains("Save it under a name of its own"));
}

TEST(TeskAppController, PracticeThatCannotBeCopiedIsToldOnItsWindowOnce) {
    QTemporaryDir folder;
    QStringList songs;
    for (const QString name : {"scale.wav", "etude.wav"}) {
        songs.append(folder.filePath(name));
        ASSERT_TRUE(test::writeWav(songs.last(), {test::sine(440.0, 0.4, 44100, 44100)}, 44100));
    }
    TeskAppController app;
    RecoveryCopies& recovery = app.documentController()->recoveryCopies();
    ASSERT_TRUE(QDir(recovery.folder()).removeRecursively());
    app.openFiles(songs);
    const QList<TeskDocument*> documents = app.documentController()->documents();
    ASSERT_EQ(documents.size(), 2);
    const auto warningsOn = [&](TeskDocument* document) {
        qsizetype count = 0;
        for (const QMessageBox* box :
             app.windowLayer()->windowFor(document)->findChildren<QMessageBox*>())
            count += box->text().contains("cannot keep a copy");
        return count;
    };
    // A file where the folder would go: no copy can be made, for root either.
    const auto blockFolder = [&](bool blocked) {
        QDir(recovery.folder()).removeRecursively();
        QFile::remove(recovery.folder());
        if (blocked) {
            ASSERT_TRUE(test::writeFile(recovery.folder(), "not a folder"));
        }
    };
    // Each window is told once while its copies fail, and again after one was written.
    const struct {
        int changed; // which document
        bool blocked;
        qsizetype warningsAfter[2];
    } changes[] = {{0, true, {1, 0}},  {0, true, {1, 0}}, {1, true, {1, 1}},
                   {0, false, {1, 1}}, {0, true, {2, 1}}, {1, true, {2, 1}}};
    for (const auto& change : changes) {
        blockFolder(change.blocked);
        TeskDocument* document = documents[change.changed];
        document->dropBridgeMarker();
        document->setCurrentFrame(document->currentFrame() + 4410); // the next marker elsewhere
        recovery.writeDueCopies();
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(warningsOn(documents[i]), change.warningsAfter[i])
                << "document " << change.changed << " changed, blocked " << change.blocked
                << "; warnings on " << i;
    }
    blockFolder(false);
}

TEST(TeskAppController, ARequestToEndKeepsTheUnsavedPracticeAndAsksNothing) {
    QTemporaryDir folder;
    const QString song = folder.filePath("scale.wav");
    ASSERT_TRUE(test::writeWav(song, {test::sine(440.0, 0.4, 44100, 44100)}, 44100));
    const QString copies = TeskAppController().documentController()->recoveryCopies().folder();
    ASSERT_TRUE(QDir(copies).removeRecursively());
    {
        TeskAppController app;
        QSignalSpy ended(&app, &TeskAppController::readyToEnd);
        app.openFiles({song});
        ASSERT_EQ(app.documentController()->documents().size(), 1);
        app.documentController()->documents().first()->dropBridgeMarker();
        // The request comes while the window asks whether to save: the question is answered
        // as its Cancel would be (answered with no button, it once discarded the practice).
        // The marker is kept at once, not two seconds later, and the end comes once no
        // question is up.
        TeskDocumentWindowController* window =
            app.windowLayer()->windowFor(app.documentController()->documents().first());
        ASSERT_NE(window, nullptr);
        QTimer::singleShot(100, &app, [&] {
            ASSERT_NE(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()), nullptr);
            app.endKeepingUnsavedPractice();
        });
        EXPECT_FALSE(window->close());
        EXPECT_EQ(QDir(copies).entryList({"*.tesk"}, QDir::Files).size(), 1);
        EXPECT_TRUE(QTest::qWaitFor([&] { return ended.count() == 1; }, 5000));
        EXPECT_EQ(app.documentController()->documents().size(), 1) << "closed, it took its copy";
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TeskAppController next;
    QStringList offered;
    next.offerUnsavedPractice([&](const QStringList& names) {
        offered = names;
        return TeskAppController::RecoveryAnswer::Later;
    });
    EXPECT_EQ(offered, QStringList{"scale"});
}

TEST(TeskAppController, ARequestToEndKeepsALoopBeingDrawnAndAsksWhenNoCopyCanBeKept) {
    QTemporaryDir folder;
    const QString song = folder.filePath("scale.wav");
    ASSERT_TRUE(test::writeWav(song, {test::sine(440.0, 0.4, 44100 * 4, 44100)}, 44100));
    const QString copies = TeskAppController().documentController()->recoveryCopies().folder();
    for (const bool blocked : {false, true}) {
        SCOPED_TRACE(blocked ? "no copy can be written" : "copies written");
        ASSERT_TRUE(QDir(copies).removeRecursively());
        QFile::remove(copies);
        if (blocked) {
            ASSERT_TRUE(test::writeFile(copies, "not a folder")); // for root too
        }
        TeskAppController app;
        QSignalSpy ended(&app, &TeskAppController::readyToEnd);
        app.openFiles({song});
        ASSERT_EQ(app.documentController()->documents().size(), 1);
        TeskDocument* document = app.documentController()->documents().first();
        auto* waveform = app.windowLayer()->windowFor(document)->findChild<WaveformView*>();
        ASSERT_NE(waveform, nullptr);
        ASSERT_TRUE(QTest::qWaitFor([&] { return waveform->frameCount() > 0; }, 5000));
        // A loop being drawn when the request comes is the practice's.
        const QRectF band = waveform->waveformRect();
        QTest::mousePress(waveform, Qt::LeftButton, {}, QPoint(100, int(band.center().y())));
        QTest::mouseMove(waveform, QPoint(300, int(band.center().y())));
        // Where no copy can keep it, the end asks as Quit does (here: Cancel, and Tesk stays),
        // once the window's warning has been read.
        QStringList asked;
        QTimer answering;
        QObject::connect(&answering, &QTimer::timeout, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return;
            asked.append(box->text());
            box->button(box->text().contains("Do you want to save") ? QMessageBox::Cancel
                                                                    : QMessageBox::Ok)
                ->click();
        });
        answering.start(50);
        app.endKeepingUnsavedPractice();
        EXPECT_GT(document->loopRange().length, 0u);
        if (!blocked) {
            EXPECT_EQ(QDir(copies).entryList({"*.tesk"}, QDir::Files).size(), 1);
            EXPECT_TRUE(QTest::qWaitFor([&] { return ended.count() == 1; }, 5000));
            EXPECT_TRUE(asked.isEmpty()) << asked.join(" / ").toStdString();
            continue;
        }
        EXPECT_TRUE(QTest::qWaitFor([&] { return asked.size() == 2; }, 5000));
        ASSERT_EQ(asked.size(), 2);
        EXPECT_TRUE(asked[0].contains("cannot keep a copy"));
        EXPECT_TRUE(asked[1].contains("Do you want to save"));
        EXPECT_EQ(ended.count(), 0);
        EXPECT_EQ(app.documentController()->documents().size(), 1);
        answering.stop();
        QFile::remove(copies);
    }
}

TEST(TeskAppController, FeedbackGoesToTheMailProgramOrWithoutOneNamesTheAddress) {
    TeskAppController app;
    MailProgram mail;
    QDesktopServices::setUrlHandler("mailto", &mail, "compose");
    app.sendFeedback();
    QDesktopServices::unsetUrlHandler("mailto");
    ASSERT_EQ(mail.opened.size(), 1);
    EXPECT_EQ(mail.opened[0].path(), FeedbackMessage::SupportAddress);
    EXPECT_EQ(messageBoxShown(), nullptr);

    // This test's desktop has no mail program (nothing opens documents offscreen).
    app.sendFeedback();
    QMessageBox* box = messageBoxShown();
    ASSERT_NE(box, nullptr) << "the command did nothing to be seen";
    EXPECT_TRUE(box->informativeText().contains(FeedbackMessage::SupportAddress));
    box->accept();
}

TEST(TeskAppController, AFileHandedOverComesForwardOverTheWindowThatWasActive) {
    QTemporaryDir folder;
    const QString first = folder.filePath("first.wav");
    const QString second = folder.filePath("second.wav");
    for (const QString& song : {first, second})
        ASSERT_TRUE(test::writeWav(song, {test::sine(440.0, 0.4, 44100, 4410)}, 44100));
    TeskAppController app;
    app.openFiles({first});
    QWidget* firstWindow = app.windowLayer()->windowFor(app.documentController()->documents()[0]);
    ASSERT_TRUE(QTest::qWaitForWindowActive(firstWindow));

    // A later `tesk` names the second song, then the first again.
    const struct {
        QStringList paths;
        int front; // the document whose window must end up active
    } handOvers[] = {{{second}, 1}, {{first}, 0}};
    for (const auto& handOver : handOvers) {
        SCOPED_TRACE(handOver.paths.first().toStdString());
        app.openFiles(handOver.paths);
        QWidget* front =
            app.windowLayer()->windowFor(app.documentController()->documents()[handOver.front]);
        EXPECT_TRUE(QTest::qWaitFor([&] { return QApplication::activeWindow() == front; }, 2000));
    }
}

TEST(SingleInstance, ALaterTeskHandsItsFilesToTheRunningOneAndExits) {
    // This test is the running Tesk; a real second `tesk` process hands it two files.
    QTemporaryDir runtime;
    const test::ScopedEnvironment runtimeFolder("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    const test::ScopedEnvironment session(
        "XDG_SESSION_ID", QByteArray("hand-over-") + QByteArray::number(qApp->applicationPid()));
    SingleInstance running;
    ASSERT_TRUE(running.claim());
    SingleInstance other;
    EXPECT_FALSE(other.claim()); // one running Tesk per user and session
    QSignalSpy received(&running, &SingleInstance::filesReceived);

    QProcess second;
    second.setWorkingDirectory(runtime.path());
    ASSERT_TRUE(test::writeFile(runtime.filePath("notes.txt"), "practise the bridge\n"));
    ASSERT_TRUE(test::writeFile(runtime.filePath("empty.mp3"), ""));
    test::writeTone(runtime.filePath("song.flac"), 0.5);
    // After "--" a name that looks like an option is a file.
    second.start(QStringLiteral(TESK_PATH), {"song.mp3", "/tmp/practice.tesk", "notes.txt",
                                             "empty.mp3", "song.flac", "--", "-v"});
    ASSERT_TRUE(received.wait(10000));
    ASSERT_TRUE(second.waitForFinished(10000));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(received.first().first().toStringList(),
              QStringList({runtime.filePath("song.mp3"), "/tmp/practice.tesk",
                           runtime.filePath("notes.txt"), runtime.filePath("empty.mp3"),
                           runtime.filePath("song.flac"), runtime.filePath("-v")}));
    // None of them opens: the terminal they were named on hears why.
    const QString said = QString::fromLocal8Bit(second.readAllStandardError());
    EXPECT_TRUE(said.contains("\"song.mp3\": there is no such file")) << said.toStdString();
    EXPECT_TRUE(said.contains("\"/tmp/practice.tesk\"")) << said.toStdString();
    EXPECT_TRUE(said.contains("\"notes.txt\": it is not a song")) << said.toStdString();
    EXPECT_TRUE(said.contains("\"empty.mp3\": it is empty")) << said.toStdString();
    EXPECT_TRUE(said.contains("\"song.flac\": it holds FLAC audio, which Tesk does not open"))
        << said.toStdString();
}

TEST(SingleInstance, TheLockAndSocketOfATeskThatDiedAreTakenOver) {
    QTemporaryDir runtime;
    const test::ScopedEnvironment runtimeFolder("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    const QString key = QStringLiteral("stale-test-%1").arg(qApp->applicationPid());
    // A Tesk that crashed left its lock (naming a process that is gone) and its socket file.
    QProcess gone;
    gone.start(QStringLiteral("true"));
    const qint64 deadProcess = gone.processId();
    ASSERT_TRUE(gone.waitForFinished());
    QFile lock(runtime.filePath(key + ".lock"));
    ASSERT_TRUE(lock.open(QIODevice::WriteOnly));
    lock.write(QByteArray::number(deadProcess) + "\ntesk\n" + QSysInfo::machineHostName().toUtf8() +
               "\n");
    lock.close();
    QFile socketFile(runtime.filePath(key + ".socket"));
    ASSERT_TRUE(socketFile.open(QIODevice::WriteOnly));
    socketFile.close();

    SingleInstance next(key);
    EXPECT_TRUE(next.claim());
    SingleInstance third(key);
    EXPECT_FALSE(third.claim());
    QLocalSocket client;
    // It listens where the dead one did: in the user's own runtime folder, beside its lock.
    client.connectToServer(runtime.filePath(key + ".socket"));
    EXPECT_TRUE(client.waitForConnected(2000));
}

namespace {
/// A session of its own for Tesks started by a test: runtime folder, settings, session id.
struct PrivateSession {
    PrivateSession() {
        environment.insert("XDG_RUNTIME_DIR", runtime.path());
        environment.insert("XDG_CONFIG_HOME", config.path());
        environment.insert("XDG_SESSION_ID", sessionId);
        // The key the Tesks of this session compute, computed here with the same variables.
        const QByteArray before = qgetenv("XDG_SESSION_ID");
        qputenv("XDG_SESSION_ID", sessionId.toUtf8());
        key = SingleInstance::defaultKey();
        qputenv("XDG_SESSION_ID", before);
        // This process reaches the session's Tesks through the session's runtime folder.
        runtimeBefore = qgetenv("XDG_RUNTIME_DIR");
        qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    }
    ~PrivateSession() { qputenv("XDG_RUNTIME_DIR", runtimeBefore); }
    void start(QProcess& tesk, const QStringList& arguments) const {
        tesk.setProcessEnvironment(environment);
        tesk.start(QStringLiteral(TESK_PATH), arguments);
    }
    QStringList recentDocuments() const {
        return QSettings(config.filePath("Tesk/Tesk.conf"), QSettings::IniFormat)
            .value("TeskRecentDocuments")
            .toStringList();
    }

    QTemporaryDir runtime;
    QTemporaryDir config;
    QByteArray runtimeBefore;
    QString sessionId = QStringLiteral("two-tesks-%1").arg(QCoreApplication::applicationPid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QString key;
};
} // namespace

TEST(SingleInstance, ASecondTeskHandsItsSongToTheFirstWhichOpensIt) {
    PrivateSession session;
    QTemporaryDir songs;
    const QString song = songs.filePath("scale.wav");
    const auto frames = std::size_t(44100);
    ASSERT_TRUE(test::writeWav(
        song, {test::sine(440.0, 0.4, frames, 44100), test::sine(660.0, 0.4, frames, 44100)},
        44100));

    QProcess first;
    session.start(first, {});
    SingleInstance probe(session.key);
    ASSERT_TRUE(QTest::qWaitFor([&] { return probe.handOver({}, 2000); }, 15000))
        << "the first Tesk never answered";
    EXPECT_TRUE(session.recentDocuments().isEmpty());

    QProcess second;
    session.start(second, {song});
    ASSERT_TRUE(second.waitForFinished(15000));
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(first.state(), QProcess::Running);
    // The first Tesk opened the song: it is now its most recent document.
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            const QStringList recent = session.recentDocuments();
            return !recent.isEmpty() && recent.first() == QFileInfo(song).canonicalFilePath();
        },
        15000));
    first.kill();
    first.waitForFinished(5000);
}

TEST(SingleInstance, ATeskAskedToEndEndsAtOnce) {
    // A saved practice, so that quitting has nothing to ask; its song opens the sound device.
    PrivateSession session;
    QTemporaryDir songs;
    const QString practice = writePractice(songs);
    // The end of a session, Ctrl-C in its terminal, the terminal closed.
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(signal);
        QProcess tesk;
        session.start(tesk, {practice});
        ASSERT_TRUE(QTest::qWaitFor([&] { return !session.recentDocuments().isEmpty(); }, 15000))
            << "the practice never opened";
        ASSERT_GT(tesk.processId(), 0); // 0 would signal this test's whole process group
        ::kill(pid_t(tesk.processId()), signal);
        ASSERT_TRUE(tesk.waitForFinished(15000)) << "it did not end";
        EXPECT_EQ(tesk.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(tesk.exitCode(), 0);
        QSettings(session.config.filePath("Tesk/Tesk.conf"), QSettings::IniFormat).clear();
    }

    // Started with hang-ups ignored (nohup), it stays when its terminal closes.
    struct sigaction ignore = {}, previous = {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGHUP, &ignore, &previous);
    QProcess tesk;
    session.start(tesk, {practice});
    ::sigaction(SIGHUP, &previous, nullptr);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !session.recentDocuments().isEmpty(); }, 15000));
    ASSERT_GT(tesk.processId(), 0);
    ::kill(pid_t(tesk.processId()), SIGHUP);
    ASSERT_FALSE(tesk.waitForFinished(1500)) << "it ended on a hang-up it was told to ignore";
    ::kill(pid_t(tesk.processId()), SIGTERM);
    EXPECT_TRUE(tesk.waitForFinished(15000));
}

TEST(SingleInstance, ATeskThatCannotHandItsFilesOverExitsWithOne) {
    PrivateSession session;
    // A running Tesk (this test, alive) holds the lock but answers nobody. Given the window
    // system's own options too, the later one gets as far.
    QLockFile lock(session.runtime.filePath(session.key + ".lock"));
    ASSERT_TRUE(lock.tryLock(0));
    for (const QStringList& arguments :
         {QStringList{"song.mp3"},
          QStringList{"-platform", "offscreen", "-session", "s1", "song.mp3"}}) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        QProcess tesk;
        session.start(tesk, arguments);
        ASSERT_TRUE(tesk.waitForFinished(30000));
        EXPECT_EQ(tesk.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(tesk.exitCode(), 1);
        EXPECT_TRUE(tesk.readAllStandardError().contains("did not take the files"));
    }
}

TEST(TeskCommandLine, OptionsAreAnsweredWithoutADisplay) {
    // No display at all: help and version are answered, an unknown option is refused, and only
    // a window needs the window system.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");
    environment.insert("QT_QPA_PLATFORM", "xcb");
    const struct {
        QStringList arguments;
        int exitCode;
        const char* said; // on standard output or error
    } runs[] = {
        {{"--version"}, 0, "tesk"},
        {{"--help"}, 0, "FILE"},
        {{"-h"}, 0, "FILE"},
        {{"--bogus"}, 1, "Unknown option 'bogus'"},
        {{"song.mp3", "-x"}, 1, "Unknown option 'x'"},
        // The window system's own options are left to it.
        {{"-platform", "offscreen", "-reverse", "--version"}, 0, "tesk"},
        {{"-style", "fusion", "-zz"}, 1, "Unknown option 'zz'"},
    };
    for (const auto& run : runs) {
        SCOPED_TRACE(run.arguments.join(' ').toStdString());
        QProcess tesk;
        tesk.setProcessEnvironment(environment);
        tesk.start(QStringLiteral(TESK_PATH), run.arguments);
        ASSERT_TRUE(tesk.waitForFinished(30000));
        EXPECT_EQ(tesk.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(tesk.exitCode(), run.exitCode);
        const QString said = tesk.readAllStandardOutput() + tesk.readAllStandardError();
        EXPECT_TRUE(said.contains(run.said, Qt::CaseInsensitive)) << said.toStdString();
    }
}

#include "TeskApplicationTest.moc"
