#include "app/TerminationSignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace tesk {
namespace {

int gSignalSockets[2] = {-1, -1};

void requestTermination(int) {
    const int savedErrno = errno; // the interrupted code may be about to read it
    const char byte = 1;
    // Nothing to do if it fails: a byte already waiting says the same.
    [[maybe_unused]] const ssize_t written = ::write(gSignalSockets[0], &byte, 1);
    errno = savedErrno;
}

} // namespace

TerminationSignals::TerminationSignals(QObject* parent)
    : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, gSignalSockets) != 0)
        return; // the signals keep their default: Tesk ends without asking
    mNotifier = new QSocketNotifier(gSignalSockets[1], QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (::read(gSignalSockets[1], bytes, sizeof bytes) > 0) {
        }
        emit terminationRequested();
    });
    struct sigaction action = {};
    action.sa_handler = requestTermination;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        // A signal ignored by whoever started Tesk (nohup) stays ignored.
        struct sigaction current = {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN)
            continue;
        ::sigaction(signal, &action, nullptr);
        mHandled.push_back(signal);
    }
}

TerminationSignals::~TerminationSignals() {
    if (!mNotifier)
        return;
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signal : mHandled)
        ::sigaction(signal, &action, nullptr);
    delete mNotifier;
    mNotifier = nullptr;
    for (int& socket : gSignalSockets) {
        ::close(socket);
        socket = -1;
    }
}

} // namespace tesk
