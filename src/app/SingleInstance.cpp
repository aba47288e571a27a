#include "app/SingleInstance.h"

#include "app/ApplicationIdentity.h"

#include <QDataStream>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QtGlobal>

namespace tesk {

namespace {
// Both ends speak this version of the little protocol: a QStringList, then a one-byte reply.
constexpr qint32 kProtocol = 1;

/// The lock and the socket side by side, in the user's own runtime folder: a socket in the
/// shared temporary folder could be taken first by another user, or cleaned away.
QString runtimePath(const QString& key, const QString& suffix) {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return QDir(folder).filePath(key + suffix);
}
} // namespace

SingleInstance::SingleInstance(QString key, QObject* parent)
    : QObject(parent)
    , mKey(std::move(key)) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultKey() {
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = QString::number(qulonglong(QFileInfo(QDir::homePath()).ownerId()));
    // A second graphical session of the same user gets its own Tesk.
    QString session = qEnvironmentVariable("XDG_SESSION_ID");
    if (session.isEmpty())
        session = qEnvironmentVariable("WAYLAND_DISPLAY", qEnvironmentVariable("DISPLAY"));
    session.replace(QLatin1Char('/'), QLatin1Char('_')).replace(QLatin1Char(':'), QLatin1Char('_'));
    return QStringLiteral("%1-%2-%3").arg(ApplicationIdentity::id, user, session);
}

bool SingleInstance::claim() {
    mLock = std::make_unique<QLockFile>(runtimePath(mKey, QStringLiteral(".lock")));
    mLock->setStaleLockTime(0); // a lock is stale only when its process is gone
    if (!mLock->tryLock(100)) {
        const bool heldByAnother = mLock->error() == QLockFile::LockFailedError;
        mLock.reset();
        if (heldByAnother)
            return false;
        // No lock to be had at all: this Tesk runs on its own, without hand-over.
        qWarning("Tesk could not make its lock file, %s",
                 qPrintable(runtimePath(mKey, QStringLiteral(".lock"))));
        return true;
    }
    // We hold the lock, so a socket left behind belongs to a Tesk that crashed.
    const QString socket = runtimePath(mKey, QStringLiteral(".socket"));
    QLocalServer::removeServer(socket);
    mServer = std::make_unique<QLocalServer>();
    mServer->setSocketOptions(QLocalServer::UserAccessOption);
    if (!mServer->listen(socket)) {
        qWarning("Tesk could not listen for files from other starts: %s",
                 qPrintable(mServer->errorString()));
        return true; // still the running Tesk, only without hand-over
    }
    connect(mServer.get(), &QLocalServer::newConnection, this, &SingleInstance::readConnection);
    return true;
}

void SingleInstance::readConnection() {
    while (QLocalSocket* socket = mServer->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            QDataStream in(socket);
            in.startTransaction();
            qint32 protocol = 0;
            QStringList paths;
            in >> protocol >> paths;
            if (!in.commitTransaction())
                return; // wait for the rest
            socket->write(protocol == kProtocol ? "1" : "0");
            socket->flush();
            if (protocol == kProtocol)
                emit filesReceived(paths);
        });
    }
}

bool SingleInstance::handOver(const QStringList& paths, int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(runtimePath(mKey, QStringLiteral(".socket")));
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QStringList absolute;
    for (const QString& path : paths)
        absolute << QFileInfo(path).absoluteFilePath();
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << kProtocol << absolute;
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs) || !socket.waitForReadyRead(timeoutMs))
        return false;
    return socket.read(1) == "1";
}

} // namespace tesk
