#pragma once

#include "PerfHelper/PerfServerDelegate.h"
#include "records/PerfResult.h"
#include "records/iPerfServerResults.h"

#include <QElapsedTimer>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

class QProcess;
class QTimer;

// Runs the measurement tool in server mode on one TCP port, keeps it running,
// and turns its output into one iPerfServerResults per incoming test.
//
// Use from the main thread only:
//     auto server = std::make_unique<PerfServer>();
//     server->setDelegate(this);   // not owned; see PerfServerDelegate
//     server->setPort(5201);
//     server->run();               // returns at once
//     ...
//     server->stop();              // for good; start again with a new PerfServer
//
// The tool is relaunched whenever it exits for a reason other than stop(),
// at most a few times per second, so a tool that fails at once (port in use,
// reported through serverError) does not spin the CPU until the owner stops it.
// Shell, launcher and iperf3 run in a process group of their own; stop() and
// the destructor end the whole group.
class PerfServer : public QObject
{
    Q_OBJECT

public:
    explicit PerfServer(QObject *parent = nullptr);
    // Ends the tool's whole process group (waits a bounded time for it).
    ~PerfServer() override;

    // Declared address; "" after construction, not used otherwise.
    QString server() const { return m_server; }
    void setServer(const QString &server) { m_server = server; }

    // TCP port the tool listens on; -1 after construction.
    qint64 port() const { return m_port; }
    void setPort(qint64 port) { m_port = port; }

    // Address of the client of the test in progress (from "Accepted connection").
    QString clientIP() const { return m_clientIP; }

    // Receiver of the callbacks; held without owning, may be null.
    PerfServerDelegate *delegate() const { return m_delegate; }
    void setDelegate(PerfServerDelegate *delegate);

    // Set once stop() has ended the tool.
    bool isStop() const { return m_isStop; }
    // While set, output is ignored; cleared by run(), set by stop().
    bool hasCancelled() const { return m_hasCancelled; }
    // The tool's option words as the last run() built them.
    QStringList iperfOptions() const { return m_iperfOptions; }
    // The record of the test in progress; null before the first connection.
    iPerfServerResultsPtr currentTest() const { return m_currentTest; }
    // The most recently parsed interval or final record.
    PerfResultPtr result() const { return m_result; }
    // Reset at each final block; kept for completeness, nothing reads it.
    PerfResultList finalResults() const { return m_finalResults; }

    // The shell command for the current option words:
    // "<tool path>" ./iperf3  -s -p <port>.
    QString shellCommand() const;
    // Pid of the running shell, which leads the tool's process group; 0 when
    // no tool runs (also while a relaunch is pending).
    qint64 processId() const;

    // Builds the option words and starts the tool; returns at once.
    void run();
    // Ends the tool for good: no relaunch, no callback afterwards, even for
    // output already queued. Does nothing when no tool runs or is pending.
    void stop();

    // One chunk of the tool's standard output, as read. Called by the server
    // itself for every read; public so a chunk can be replayed.
    void didReceivePerfTestRespnose(const QString &response);

    // Relays to the delegate's reportInterval(), when it answers to it.
    void reportIntervals(const PerfResultList &results);
    // Logs and relays to the delegate's testDidFinishedWithServerLog().
    void testFinished(const PerfResultList &results);

private:
    void createOptionsArray();
    void executeiPerfOnShell(const QStringList &arguments);
    void taskDidTerminate();
    void serverRunningError(const QString &message);
    void handleOutput(QProcess *process);
    void handleTermination(QProcess *process);
    // The delegate, or null when none is set or it has been destroyed.
    PerfServerDelegate *liveDelegate() const;
    // Whether reporting has to end: the server was stopped (or destroyed)
    // by a callback.
    static bool mustStopReporting(const QPointer<PerfServer> &self);
    PerfResultPtr recordFromFields(const QStringList &fields) const;
    // Sends SIGTERM to the process's group, SIGKILL later if it lingers.
    void terminateProcessGroup(QProcess *process);

    QString m_server;
    qint64 m_port = -1;
    QString m_clientIP;
    PerfServerDelegate *m_delegate = nullptr;
    std::weak_ptr<const void> m_delegateLifetime;
    bool m_isStop = false;
    bool m_hasCancelled = false;
    QStringList m_iperfOptions;
    QProcess *m_task = nullptr; // child of this; deleted once it has ended
    iPerfServerResultsPtr m_currentTest;
    PerfResultPtr m_result;
    PerfResultList m_finalResults;
    bool m_isJitterFound = false;        // declared, never used
    bool m_isTotalDataGramFound = false; // declared, never used

    // The subscription of taskDidTerminate to the current task's end.
    QMetaObject::Connection m_terminateSubscription;
    QTimer *m_relaunchTimer = nullptr;
    QElapsedTimer m_lastLaunch;
    // Groups of terminated tools that have not been seen to end yet.
    QSet<qint64> m_endingGroups;
};
