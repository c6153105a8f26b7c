#include "PerfHelper/PerfServer.h"

#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/Logger.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStringDecoder>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <charconv>

#include <signal.h>

namespace {

// A tool that fails at once is relaunched no sooner than this after its
// previous launch: a few launches per second at most.
constexpr qint64 kRelaunchSpacingMs = 250;
// How long a terminated tool group may take before it is killed outright.
constexpr int kTerminateGraceMs = 2000;

const QString kAccepted = QStringLiteral("Accepted connection");
const QString kResult = QStringLiteral("RESULT_");
const QString kFinished = QStringLiteral("Finished_");
const QString kError = QStringLiteral("error");
const QString kFieldSeparator = QStringLiteral("$#");

// The lines of one step: a chunk that begins with the prefix counts as one
// line, whole; otherwise the text from the first occurrence of cutMarker on,
// split at line ends. The caller has checked that the chunk holds the marker.
QStringList collectLines(const QString &chunk, const QString &prefix, const QString &cutMarker)
{
    if (chunk.startsWith(prefix))
        return {chunk};
    const qsizetype from = chunk.indexOf(cutMarker);
    return chunk.mid(from < 0 ? chunk.size() : from).split(QLatin1Char('\n'));
}

// A number read the lenient way: leading blanks skipped, then the longest
// number that starts there; 0 when there is none.
float leadingFloat(const QString &text)
{
    const QByteArray bytes = text.toLatin1();
    const char *begin = bytes.constData();
    const char *end = begin + bytes.size();
    while (begin != end && (*begin == ' ' || *begin == '\t' || *begin == '\n' || *begin == '\r'))
        ++begin;
    if (begin != end && *begin == '+')
        ++begin;
    float value = 0;
    const auto [ptr, ec] = std::from_chars(begin, end, value);
    (void)ptr;
    return ec == std::errc() ? value : 0.0f;
}

QString describeList(const QStringList &words)
{
    QStringList quoted;
    quoted.reserve(words.size());
    for (const QString &word : words)
        quoted << QLatin1Char('"') + word + QLatin1Char('"');
    return QLatin1Char('(') + quoted.join(QStringLiteral(", ")) + QLatin1Char(')');
}

QString describeResults(const PerfResultList &results)
{
    QStringList intervals;
    for (const PerfResultPtr &record : results)
        intervals << (record ? record->intervals : QStringLiteral("nil"));
    return describeList(intervals);
}

// Whether any process of the group is still alive. Zombies do not count: a
// launcher orphaned by its shell may stay a zombie until someone reaps it.
bool groupHasLiveMembers(qint64 pgid)
{
    if (pgid <= 0 || !ShellTask::signalProcessGroup(pgid, 0))
        return false;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        if (!entry.front().isDigit())
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (comm) state ppid pgrp ..."
        const QByteArray text = stat.readAll();
        const qsizetype close = text.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = text.mid(close + 2).split(' ');
        if (fields.size() >= 3 && fields.at(0) != "Z" && fields.at(0) != "X" && fields.at(2).toLongLong() == pgid)
            return true;
    }
    return false;
}

} // namespace

PerfServer::PerfServer(QObject *parent)
    : QObject(parent)
    , m_server(QStringLiteral(""))
    , m_relaunchTimer(new QTimer(this))
{
    m_relaunchTimer->setSingleShot(true);
    connect(m_relaunchTimer, &QTimer::timeout, this, &PerfServer::run);
    (void)m_isJitterFound;
    (void)m_isTotalDataGramFound;
}

PerfServer::~PerfServer()
{
    m_relaunchTimer->stop();
    disconnect(m_terminateSubscription);
    // No tool may outlive the server: neither the running one nor stopped ones
    // still winding down.
    QSet<qint64> groups = m_endingGroups;
    const auto processes = findChildren<QProcess *>(Qt::FindDirectChildrenOnly);
    for (QProcess *process : processes) {
        disconnect(process, nullptr, this, nullptr);
        if (process->state() != QProcess::NotRunning)
            groups.insert(process->processId());
    }
    for (const qint64 pgid : std::as_const(groups))
        ShellTask::signalProcessGroup(pgid, SIGTERM);
    QDeadlineTimer deadline(kTerminateGraceMs);
    for (QProcess *process : processes) {
        if (process->state() != QProcess::NotRunning)
            process->waitForFinished(int(std::max<qint64>(deadline.remainingTime(), 1)));
    }
    // The launcher may outlive its shell by a moment.
    const auto anyAlive = [&groups] {
        return std::any_of(groups.cbegin(), groups.cend(), [](qint64 pgid) { return groupHasLiveMembers(pgid); });
    };
    while (anyAlive() && !deadline.hasExpired())
        QThread::msleep(10);
    for (const qint64 pgid : std::as_const(groups)) {
        if (groupHasLiveMembers(pgid))
            ShellTask::signalProcessGroup(pgid, SIGKILL);
    }
}

void PerfServer::setDelegate(PerfServerDelegate *delegate)
{
    m_delegate = delegate;
    m_delegateLifetime = delegate ? delegate->perfServerDelegateLifetime() : std::weak_ptr<const void>();
}

PerfServerDelegate *PerfServer::liveDelegate() const
{
    if (!m_delegate || m_delegateLifetime.expired())
        return nullptr;
    return m_delegate;
}

bool PerfServer::mustStopReporting(const QPointer<PerfServer> &self)
{
    return !self || self->m_hasCancelled;
}

QString PerfServer::shellCommand() const
{
    const QString quotedPath = QLatin1Char('"') + TidewaveUtils::getiPerfExecutablePath() + QLatin1Char('"');
    return quotedPath + QLatin1Char(' ') + m_iperfOptions.join(QLatin1Char(' '));
}

qint64 PerfServer::processId() const
{
    if (!m_task || m_task->state() == QProcess::NotRunning)
        return 0;
    return m_task->processId();
}

void PerfServer::createOptionsArray()
{
    m_iperfOptions << QStringLiteral("./iperf3 ") << QStringLiteral("-s")
                   << QStringLiteral("-p %1").arg(m_port);
}

void PerfServer::run()
{
    m_hasCancelled = false;
    m_iperfOptions = QStringList();
    createOptionsArray();
    m_relaunchTimer->stop();
    if (m_task) {
        // A second run replaces the tool that runs; the old one must not
        // trigger a relaunch of its own.
        disconnect(m_terminateSubscription);
        terminateProcessGroup(m_task);
        m_task = nullptr;
    }
    executeiPerfOnShell(m_iperfOptions);
}

void PerfServer::executeiPerfOnShell(const QStringList &arguments)
{
    const QString quotedPath = QLatin1Char('"') + TidewaveUtils::getiPerfExecutablePath() + QLatin1Char('"');
    TW_LOG(QStringLiteral("PerfServer: iPef path is %1:").arg(quotedPath));
    TW_LOG(QStringLiteral("PerfServer: exeucteiPerfOnShell:arguments are:%1").arg(describeList(arguments)));

    const QString command = quotedPath + QLatin1Char(' ') + arguments.join(QLatin1Char(' '));
    QProcess *process = ShellTask::taskForShellCommand(command).release();
    process->setParent(this);
    m_task = process;

    connect(process, &QProcess::readyReadStandardOutput, this, [this, process] { handleOutput(process); });
    // The termination handler comes first, so its output is drained and
    // logged before a relaunch starts the next tool.
    connect(process, &QProcess::finished, this, [this, process] { handleTermination(process); });
    m_terminateSubscription = connect(process, &QProcess::finished, this, &PerfServer::taskDidTerminate);
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        // No finished signal follows a failed start; treat it as an exit.
        const bool subscribed = static_cast<bool>(m_terminateSubscription) && process == m_task;
        handleTermination(process);
        if (subscribed)
            taskDidTerminate();
    });

    m_lastLaunch.start();
    process->start();
}

void PerfServer::handleOutput(QProcess *process)
{
    const QByteArray data = process->readAllStandardOutput();
    if (data.isEmpty())
        return;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString chunk = decoder.decode(data);
    // A chunk that is not valid UTF-8 (a character split between two reads)
    // carries no text.
    if (decoder.hasError())
        return;
    QMetaObject::invokeMethod(this, [this, chunk] { didReceivePerfTestRespnose(chunk); }, Qt::QueuedConnection);
}

void PerfServer::handleTermination(QProcess *process)
{
    disconnect(process, &QProcess::readyReadStandardOutput, this, nullptr);
    const QString output = QString::fromUtf8(process->readAllStandardOutput());
    TW_LOG(QStringLiteral("PerfTest output is: %1").arg(output));
    const QString error = QString::fromUtf8(process->readAllStandardError());
    if (!error.isEmpty())
        TW_LOG(QStringLiteral("PerfTest error is: %1").arg(error));
    if (process == m_task)
        m_task = nullptr;
    process->deleteLater();
}

void PerfServer::taskDidTerminate()
{
    TW_LOG(QStringLiteral("PerfServer:--NSTask did terminate"));
    const qint64 wait = kRelaunchSpacingMs - m_lastLaunch.elapsed();
    if (wait > 0)
        m_relaunchTimer->start(static_cast<int>(wait));
    else
        run();
}

void PerfServer::stop()
{
    const bool toolRuns = m_task && m_task->state() != QProcess::NotRunning;
    // A relaunch waiting for its turn counts as running: stopping must end it.
    if (!toolRuns && !m_relaunchTimer->isActive())
        return;
    disconnect(m_terminateSubscription);
    m_relaunchTimer->stop();
    m_hasCancelled = true;
    m_isStop = true;
    if (toolRuns)
        terminateProcessGroup(m_task);
    TW_LOG(QStringLiteral("PerfServer: task terminate success"));
}

void PerfServer::terminateProcessGroup(QProcess *process)
{
    const qint64 pgid = process->processId();
    if (pgid <= 0)
        return;
    ShellTask::signalProcessGroup(pgid, SIGTERM);
    // The launcher passes the signal on to iperf3 and waits for it; one that
    // does not end in time is killed with its whole group.
    m_endingGroups.insert(pgid);
    QTimer::singleShot(kTerminateGraceMs, this, [this, pgid] {
        m_endingGroups.remove(pgid);
        if (groupHasLiveMembers(pgid))
            ShellTask::signalProcessGroup(pgid, SIGKILL);
    });
}

void PerfServer::serverRunningError(const QString &message)
{
    if (PerfServerDelegate *delegate = liveDelegate())
        delegate->serverError(message);
}

void PerfServer::reportIntervals(const PerfResultList &results)
{
    if (PerfServerDelegate *delegate = liveDelegate())
        delegate->reportInterval(results);
}

void PerfServer::testFinished(const PerfResultList &results)
{
    TW_LOG(QStringLiteral("testFinished :%1").arg(describeResults(results)));
    if (PerfServerDelegate *delegate = liveDelegate())
        delegate->testDidFinishedWithServerLog(results);
}

PerfResultPtr PerfServer::recordFromFields(const QStringList &fields) const
{
    auto record = std::make_shared<PerfResult>();
    record->intervals = fields.at(1);
    record->receivedBytes = leadingFloat(fields.at(2));
    record->receivedBandwidth = leadingFloat(fields.at(3));
    if (fields.size() >= 7) {
        record->jitter = fields.at(4);
        record->lostTotalDataGrams = fields.at(5);
        record->typeName = fields.at(6).trimmed();
    } else {
        record->jitter = QStringLiteral("-");
        record->lostTotalDataGrams = QStringLiteral("-");
        record->typeName = fields.at(4).trimmed();
    }
    record->ip = m_clientIP;
    record->currentDate = TidewaveUtils::getCurrentDate();
    return record;
}

void PerfServer::didReceivePerfTestRespnose(const QString &response)
{
    if (m_hasCancelled)
        return;
    // A callback may stop or even delete this server; nothing is reported
    // after that.
    const QPointer<PerfServer> self(this);

    if (response.contains(QLatin1String("listener for connections: Address already"))) {
        serverRunningError(response);
        return;
    }

    if (response.contains(kAccepted)) {
        m_currentTest = std::make_shared<iPerfServerResults>();
        if (!response.startsWith(kAccepted))
            TW_LOG(QStringLiteral("*******server listening From %1 was appended so parsed it**************** ")
                       .arg(m_port));
        const QStringList lines = collectLines(response, kAccepted, kAccepted);
        for (const QString &line : lines) {
            if (!line.startsWith(kAccepted))
                continue;
            const QStringList words = line.split(QLatin1Char(' '));
            // A cut-off connection line has no address word; keep the last one.
            if (words.size() < 4)
                continue;
            m_clientIP = QString(words.at(3)).remove(QLatin1Char(','));
            TW_LOG(QStringLiteral("Client Local IP Address is: %1").arg(m_clientIP));
        }
    }

    if (response.contains(kResult)) {
        const QStringList lines = collectLines(response, kResult, kResult);
        for (const QString &line : lines) {
            if (line.isEmpty())
                continue;
            TW_LOG(QStringLiteral("PerfTest: processing line = %1").arg(line));
            if (line.contains(kFinished) || line.contains(kError))
                break;
            if (!line.startsWith(kResult))
                continue;
            const QStringList fields = line.split(kFieldSeparator);
            if (fields.size() >= 5)
                m_result = recordFromFields(fields);
            // With fewer fields the previous record goes in again. Records
            // that come before any connection have no test to go to.
            if (m_currentTest && m_result)
                m_currentTest->intervalResults.append(m_result);
            if (m_currentTest) {
                if (PerfServerDelegate *delegate = liveDelegate())
                    delegate->reportIntervalNew(m_currentTest);
                if (mustStopReporting(self))
                    return;
            }
        }
    }

    if (response.contains(kFinished)) {
        TW_LOG(QStringLiteral("Finished_response From Iperf %1").arg(response));
        const QStringList lines = collectLines(response, kFinished, QStringLiteral("Finished"));
        if (!response.startsWith(kFinished))
            TW_LOG(QStringLiteral("Finished_lines count: %1 ,...lines:%2").arg(lines.size()).arg(describeList(lines)));
        m_finalResults = PerfResultList();
        for (const QString &line : lines) {
            if (line.isEmpty())
                continue;
            TW_LOG(QStringLiteral("PerfTest: processing line at FinishedTest_ = %1").arg(line));
            if (line.contains(kResult) || line.contains(kError))
                break;
            if (line.startsWith(kFinished)) {
                const QStringList fields = line.split(kFieldSeparator);
                if (fields.size() >= 5)
                    m_result = recordFromFields(fields);
            }
            // Every line that gets here appends the latest record, so a
            // trailing line without the prefix repeats the previous one.
            if (m_currentTest && m_result)
                m_currentTest->finalResults.append(m_result);
        }
    }

    if (response.contains(kError)) {
        TW_LOG(QStringLiteral("PerfTest: received error message from native iPerf server: %1").arg(response));
    } else if (response.contains(kFinished) && m_currentTest) {
        if (PerfServerDelegate *delegate = liveDelegate())
            delegate->testDidFinished(m_currentTest);
    }
}
