#pragma once

#include <QLockFile>
#include <QObject>
#include <QStringList>
#include <memory>

class QLocalServer;

namespace tesk {

/// One running Tesk per user and graphical session. The first Tesk to take the lock listens
/// on a local socket; a later one hands its files over through that socket and exits, and
/// the first opens them and comes forward. Main thread.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    /// `key` names the socket and the lock; by default the application id, the user and the
    /// session (tests pass their own).
    explicit SingleInstance(QString key = defaultKey(), QObject* parent = nullptr);
    ~SingleInstance() override;

    /// Tries to become the running Tesk: true when this process now listens (a stale socket
    /// of a Tesk that died is removed first), false when another Tesk runs.
    bool claim();
    /// Hands `paths` (made absolute) to the running Tesk and waits, at most `timeoutMs`, for
    /// its acknowledgement. False when no Tesk answered.
    bool handOver(const QStringList& paths, int timeoutMs = 5000);

    static QString defaultKey();
    QString serverName() const { return mKey; }

signals:
    /// Another Tesk was started with these files (possibly none: it wants the window).
    void filesReceived(const QStringList& paths);

private:
    void readConnection();

    QString mKey;
    std::unique_ptr<QLockFile> mLock;
    std::unique_ptr<QLocalServer> mServer;
};

} // namespace tesk
