#include "Tidewave/UnixSignalWatcher.h"

#include <QSocketNotifier>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads the pipe end without locking");

std::atomic<int> UnixSignalWatcher::s_writeFd{-1};

UnixSignalWatcher::UnixSignalWatcher(QObject *parent)
    : QObject(parent)
{
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    for (const Previous &previous : m_previous)
        ::sigaction(previous.signalNumber, &previous.action, nullptr);
    if (m_writeFd >= 0 && s_writeFd.load() == m_writeFd)
        s_writeFd.store(-1);
    delete m_notifier;
    if (m_readFd >= 0)
        ::close(m_readFd);
    if (m_writeFd >= 0)
        ::close(m_writeFd);
}

bool UnixSignalWatcher::watch(std::initializer_list<int> signalNumbers)
{
    if (m_readFd < 0) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
            return false;
        m_readFd = fds[0];
        m_writeFd = fds[1];
        m_notifier = new QSocketNotifier(m_readFd, QSocketNotifier::Read);
        connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::drainPipe);
        s_writeFd.store(m_writeFd);
    }
    for (int signalNumber : signalNumbers) {
        struct sigaction action = {};
        action.sa_handler = &UnixSignalWatcher::handleSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        Previous previous{signalNumber, {}};
        if (::sigaction(signalNumber, &action, &previous.action) != 0)
            return false;
        m_previous.push_back(previous);
    }
    return true;
}

void UnixSignalWatcher::handleSignal(int signalNumber)
{
    // Only async-signal-safe calls here: one write, errno kept.
    const int savedErrno = errno;
    const int fd = s_writeFd.load();
    if (fd >= 0) {
        const unsigned char byte = static_cast<unsigned char>(signalNumber);
        [[maybe_unused]] const ssize_t written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

void UnixSignalWatcher::drainPipe()
{
    unsigned char bytes[16];
    for (;;) {
        const ssize_t n = ::read(m_readFd, bytes, sizeof bytes);
        if (n <= 0)
            break;
        for (ssize_t i = 0; i < n; ++i)
            emit signalReceived(bytes[i]);
    }
}
