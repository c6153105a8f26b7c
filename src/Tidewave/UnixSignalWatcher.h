#pragma once

#include <QObject>

#include <atomic>
#include <initializer_list>
#include <vector>

#include <signal.h>

class QSocketNotifier;

// Turns process signals into a Qt signal on the thread that made the watcher.
// The handler only writes the signal number into a pipe (async-signal-safe);
// a socket notifier on the pipe's other end reports it from the event loop.
// One watcher at a time; it restores the previous handlers when destroyed.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalWatcher(QObject *parent = nullptr);
    ~UnixSignalWatcher() override;

    // Installs the handler for each signal; false when the pipe or a handler
    // cannot be set up (the signals then keep their previous disposition).
    bool watch(std::initializer_list<int> signalNumbers);

signals:
    void signalReceived(int signalNumber);

private:
    static void handleSignal(int signalNumber);
    void drainPipe();

    struct Previous
    {
        int signalNumber;
        struct sigaction action;
    };

    static std::atomic<int> s_writeFd;
    int m_readFd = -1;
    int m_writeFd = -1;
    QSocketNotifier *m_notifier = nullptr;
    std::vector<Previous> m_previous;
};
