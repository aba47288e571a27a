#include "app/SingleInstance.h"
#include "app/TeskAppController.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tesk;

TEST(TeskAppController, EveryStartAddsOneToTheRunCount) {
    QSettings().remove(TeskAppController::RunCountKey);
    EXPECT_EQ(TeskAppController::countLaunch(), 1);
    EXPECT_EQ(TeskAppController::countLaunch(), 2);
    EXPECT_EQ(QSettings().value(TeskAppController::RunCountKey).toInt(), 2);
}

TEST(SingleInstance, ALaterTeskHandsItsFilesToTheRunningOneAndExits) {
    // This test is the running Tesk; a real second `tesk` process hands it two files.
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    qputenv("XDG_SESSION_ID",
            QByteArray("hand-over-") + QByteArray::number(qApp->applicationPid()));
    SingleInstance running;
    ASSERT_TRUE(running.claim());
    SingleInstance other;
    EXPECT_FALSE(other.claim()); // one running Tesk per user and session
    QSignalSpy received(&running, &SingleInstance::filesReceived);

    QProcess second;
    second.setWorkingDirectory(runtime.path());
    second.start(QStringLiteral(TESK_PATH), {"song.mp3", "/tmp/practice.tesk"});
    ASSERT_TRUE(received.wait(10000));
    ASSERT_TRUE(second.waitForFinished(10000));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(received.first().first().toStringList(),
              QStringList({runtime.filePath("song.mp3"), "/tmp/practice.tesk"}));
}

TEST(SingleInstance, TheLockAndSocketOfATeskThatDiedAreTakenOver) {
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
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
    QFile socketFile(QDir::temp().filePath(key));
    ASSERT_TRUE(socketFile.open(QIODevice::WriteOnly));
    socketFile.close();

    SingleInstance next(key);
    EXPECT_TRUE(next.claim());
    SingleInstance third(key);
    EXPECT_FALSE(third.claim());
    QLocalSocket client;
    client.connectToServer(key);
    EXPECT_TRUE(client.waitForConnected(2000)); // it listens where the dead one did
}
