#pragma once

#include <QObject>

#include <vector>

class QSocketNotifier;

namespace tesk {

/// Turns SIGTERM, SIGINT and SIGHUP (a session ending, Ctrl-C in the terminal Tesk was started
/// from, the terminal closing) into a signal on the main thread, so that Tesk ends keeping its
/// unsaved practice, instead of dying with it or waiting for an answer. The handler only
/// writes a byte to a socket pair, which is safe in a signal handler. A signal that whoever
/// started Tesk ignored (nohup) stays ignored. One per process.
class TerminationSignals : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

signals:
    /// Main thread.
    void terminationRequested();

private:
    QSocketNotifier* mNotifier = nullptr;
    std::vector<int> mHandled; // the signals given to the handler
};

} // namespace tesk
