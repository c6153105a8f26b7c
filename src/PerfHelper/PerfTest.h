#pragma once

#include "PerfHelper/PerfTestDelegate.h"
#include "records/PerfResult.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <memory>

class QProcess;

// One run of the measurement tool in client mode: builds its command line
// from the run settings, runs it through "/bin/sh" "-c" in a process group of
// its own, parses its output as it arrives and reports intervals, completion
// and failure to its delegate.
//
// Everything happens on the main thread: the shell is a QProcess driven by the
// event loop, each standard-output chunk is parsed in its own
// readyReadStandardOutput handler (so in arrival order) and the end of the
// shell is handled in its finished handler. Nothing reads standard error
// until the shell has ended.
//
// QProcess reports the end of standard output only together with the end of
// the shell, when the end-of-process path has taken over; so a tool that
// cannot be started (it writes nothing, its shell exits at once) ends in the
// no-response time-out failure.
//
// The flags are never cleared: a PerfTest is good for one run.
//
// Destroying a PerfTest whose tool still runs cancels the run and terminates
// the whole process group without waiting; nothing is reported afterwards.
class PerfTest : public QObject
{
    Q_OBJECT

public:
    // How long after the start the tool must have written something.
    static constexpr std::chrono::seconds kResponseTimeout{5};
    // How long the tool gets to end after a stop before its group is killed.
    static constexpr std::chrono::seconds kStopGrace{3};

    // Run settings; the coordinator copies them in right before run().
    QString server = QStringLiteral("");  // server address, passed to the shell as it is
    qint64 port = -1;                     // server port
    qint64 stats_interval = -1;           // report interval, seconds
    qint64 reverse = 0;                   // 1: the server sends
    qint64 duration = 5;                  // test length, seconds; the last final line's end reaches it
    qint64 testType = 0;                  // 0 TCP, 1 UDP
    qint64 bufferLength = 0;              // buffer (TCP) or datagram (UDP) length, KB
    qint64 sendBandwidth = 0;             // target rate; 0 or less: none given
    qint64 bandwidthformat = 0;           // non-zero: kilo units for the rate
    qint64 invalidTestDuration = 0;       // carried along, not used here
    qint64 parallelStreams = 1;           // 2-16: "-P"; records are the streams' sums (clamped to 1-16)
    qint64 twoWay = 0;                    // 1: "--bidir" (and no "-R"): records of both directions

    explicit PerfTest(QObject *parent = nullptr);
    ~PerfTest() override;

    PerfTestDelegate *delegate() const;
    // Held without owning; null clears it.
    void setDelegate(PerfTestDelegate *delegate);

    // Builds the argument list and starts the tool; returns at once. A test
    // that has already run, or was stopped before it ran, starts nothing.
    void run();
    // Marks the run cancelled (nothing is reported from then on) and
    // terminates the tool's whole process group.
    void stop();

    // The argument list run() passes: "./iperf3 ", "-c", the server, "-p"
    // and the port, then createOptionsArray()'s part. Kept in iperfOptions().
    const QStringList &prepareOptions();
    // Appends "-R", the protocol and length options, the rate, "-P" and
    // "--bidir" when set, "-t" and "-i" to the argument list (creating it if
    // none exists).
    void createOptionsArray();
    const QStringList &iperfOptions() const { return m_iperfOptions; }

    // The text the shell runs: the quoted tool path, a blank, the arguments
    // joined with single blanks.
    static QString commandText(const QString &toolPath, const QStringList &options);

    // The output parser: one chunk of the tool's standard output as it came
    // from the pipe; a null text (undecodable bytes) is ignored.
    void didReceivePerfTestRespnose(const QString &response);

    // Forward one event to the delegate, if there is one.
    void reportIntervals(const PerfResultPtr &result);
    void testFineshed(const PerfResultPtr &result);
    void testDidFails(const QString &message);

    // The end-of-process rules, given what was left unread on standard
    // output and standard error when the shell ended.
    void processDidEnd(const QByteArray &outputRest, const QByteArray &errorRest);

    bool hasCancelled() const { return m_hasCancelled; }
    bool hasReceivediPerfResponse() const { return m_hasReceivediPerfResponse; }
    bool hasTestFinished() const { return m_hasTestFinished; }
    // The record of the most recent result line handled.
    PerfResultPtr result() const { return m_result; }
    // The shell's pid (the leader of the tool's process group); 0 before run().
    qint64 processId() const { return m_pid; }
    // Whether the shell has been started and has not ended yet.
    bool isRunning() const;

private:
    void executeiPerfOnShell(const QStringList &options);
    void readStandardOutput();
    void shellDidEnd();
    void checkResponse();
    void terminateProcessGroup();
    PerfTestDelegate *liveDelegate() const;
    // Fills a record from the fields of a result line; false when the
    // interval field holds no "-".
    bool fillRecord(const QStringList &fields, const PerfResultPtr &record) const;
    // The launcher's LINK_ (this interval's, ahead of its RESULT_ line) or
    // PEER_ lines (the server's intervals, at the end) of a chunk.
    void takeLinkFigures(const QString &text, const QString &tag);
    // A new interval record gets the figures waiting for it; a final record
    // its direction's totals.
    void addLinkFigures(const PerfResultPtr &record, const QString &interval, bool final);

    PerfTestDelegate *m_delegate = nullptr;
    std::weak_ptr<const void> m_delegateLifetime;

    QStringList m_iperfOptions;
    std::unique_ptr<QProcess> m_task;
    qint64 m_pid = 0;
    bool m_hasCancelled = false;
    bool m_hasReceivediPerfResponse = false;
    bool m_hasTestFinished = false;
    PerfResultPtr m_result;
    // One interval's link figures, as in PerfResult.
    struct LinkFigures
    {
        qint64 retransmits = -1, congestionWindow = -1, udpLostDatagrams = -1, udpTotalDatagrams = -1;
        double roundTripMs = -1, udpJitterMs = -1;
    };
    // LINK_ figures by direction and interval text, until their record comes.
    QHash<QString, LinkFigures> m_waitingFigures;
    // The interval records reported, by direction (0 up, 1 down).
    PerfResultList m_intervalRecords[2];
    // iperf3's totals by direction (LINK_TOTAL_ lines), until the final record.
    LinkFigures m_totals[2];
};
