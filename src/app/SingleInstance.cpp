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

QString lockPath(const QString& key) {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return QDir(folder).filePath(key + QStringLiteral(".lock"));
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
    mLock = std::make_unique<QLockFile>(lockPath(mKey));
    mLock->setStaleLockTime(0); // a lock is stale only when its process is gone
    if (!mLock->tryLock(100)) {
        mLock.reset();
        return false;
    }
    // We hold the lock, so a socket left behind belongs to a Tesk that crashed.
    QLocalServer::removeServer(mKey);
    mServer = std::make_unique<QLocalServer>();
    mServer->setSocketOptions(QLocalServer::UserAccessOption);
    if (!mServer->listen(mKey)) {
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
    socket.connectToServer(mKey);
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
