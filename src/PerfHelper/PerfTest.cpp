#include "PerfHelper/PerfTest.h"

#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <QPointer>
#include <QProcess>
#include <QStringDecoder>
#include <QTimer>

#include <algorithm>
#include <charconv>

#include <signal.h>

namespace {

const QString kResultTag = QStringLiteral("RESULT_");
const QString kFinishedTag = QStringLiteral("Finished_");
const QString kFieldSeparator = QStringLiteral("$#");
const QString kError = QStringLiteral("error");
const QString kLinkTag = QStringLiteral("LINK_");
const QString kPeerTag = QStringLiteral("PEER_");
const QString kTotalTag = QStringLiteral("LINK_TOTAL_");
// iperf3's own limit is 128; more than this many streams is not a link test.
constexpr qint64 kMaxStreams = 16;

// Counts add up (a server's short tail interval joins the record it follows);
// a level is kept from the first interval that gave one.
template <typename To, typename From>
void addFigures(To &to, const From &from)
{
    const auto add = [](qint64 &sum, qint64 value) {
        if (value >= 0)
            sum = std::max<qint64>(sum, 0) + value;
    };
    add(to.retransmits, from.retransmits);
    add(to.udpLostDatagrams, from.udpLostDatagrams);
    add(to.udpTotalDatagrams, from.udpTotalDatagrams);
    if (to.congestionWindow < 0)
        to.congestionWindow = from.congestionWindow;
    if (to.roundTripMs < 0)
        to.roundTripMs = from.roundTripMs;
    if (to.udpJitterMs < 0)
        to.udpJitterMs = from.udpJitterMs;
}

// The direction a tag names: "…UP" 0, "…DOWN" 1, none -1.
int tagDirection(QStringView tag)
{
    if (tag.endsWith(QLatin1String("UP")))
        return 0;
    return tag.endsWith(QLatin1String("DOWN")) ? 1 : -1;
}


// Undecodable bytes give no text at all (a null QString), which the parser
// ignores.
QString decodeUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    if (text.isNull())
        text = QStringLiteral("");
    return text;
}

bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

// Spaces and tabs only: line breaks inside a field stay.
QString trimBlanks(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin)))
        ++begin;
    while (end > begin && isBlank(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

// The leading decimal number of a text as a 32-bit float, 0 when there is
// none: leading white space, an optional sign, digits with an optional
// fraction and exponent. Independent of the locale.
float leadingFloat(const QString &text)
{
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < n && (text.at(i) == QLatin1Char('+') || text.at(i) == QLatin1Char('-'))) {
        negative = text.at(i) == QLatin1Char('-');
        ++i;
    }
    QByteArray number;
    auto takeDigits = [&] {
        qsizetype taken = 0;
        while (i < n && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9')) {
            number.append(static_cast<char>(text.at(i).unicode()));
            ++i;
            ++taken;
        }
        return taken;
    };
    qsizetype digits = takeDigits();
    if (i < n && text.at(i) == QLatin1Char('.')) {
        number.append('.');
        ++i;
        digits += takeDigits();
    }
    if (digits == 0)
        return 0.0f;
    if (i < n && (text.at(i) == QLatin1Char('e') || text.at(i) == QLatin1Char('E'))) {
        const qsizetype mark = i;
        QByteArray exponent("e");
        ++i;
        if (i < n && (text.at(i) == QLatin1Char('+') || text.at(i) == QLatin1Char('-'))) {
            exponent.append(static_cast<char>(text.at(i).unicode()));
            ++i;
        }
        const qsizetype before = i;
        while (i < n && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9')) {
            exponent.append(static_cast<char>(text.at(i).unicode()));
            ++i;
        }
        if (i > before)
            number.append(exponent);
        else
            i = mark;
    }
    float value = 0.0f;
    const auto [end, error] = std::from_chars(number.constData(), number.constData() + number.size(), value);
    (void)end;
    if (error != std::errc())
        return 0.0f;
    return negative ? -value : value;
}

// A string list the way the logs have always shown one.
QString describeList(const QStringList &items)
{
    QString text = QStringLiteral("(\n");
    for (qsizetype i = 0; i < items.size(); ++i) {
        QString item = items.at(i);
        item.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
        text += QStringLiteral("    \"%1\"").arg(item);
        text += i + 1 < items.size() ? QStringLiteral(",\n") : QStringLiteral("\n");
    }
    return text + QLatin1Char(')');
}

QString orNull(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

// A chunk that starts with the tag is taken as one line, however many it
// holds; otherwise the text from the first marker on, split at line ends.
QStringList linesFrom(const QString &text, const QString &tag, const QString &marker)
{
    if (text.startsWith(tag))
        return {text};
    const QStringList lines = text.mid(text.indexOf(marker)).split(QLatin1Char('\n'));
    return lines.isEmpty() ? QStringList{text} : lines;
}

} // namespace

PerfTest::PerfTest(QObject *parent)
    : QObject(parent)
{
}

PerfTest::~PerfTest()
{
    if (!m_task)
        return;
    m_hasCancelled = true;
    // The process object may be the one whose signal led here, so it is
    // never deleted on the spot; a running shell's group is terminated and
    // the object goes once the shell has ended.
    QProcess *process = m_task.release();
    process->disconnect(this);
    if (process->state() == QProcess::NotRunning) {
        process->deleteLater();
        return;
    }
    const qint64 pid = m_pid;
    ShellTask::signalProcessGroup(pid, SIGTERM);
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    QTimer::singleShot(kStopGrace, process, [process, pid] {
        if (process->state() != QProcess::NotRunning)
            ShellTask::signalProcessGroup(pid, SIGKILL);
    });
}

PerfTestDelegate *PerfTest::delegate() const
{
    return liveDelegate();
}

void PerfTest::setDelegate(PerfTestDelegate *delegate)
{
    m_delegate = delegate;
    m_delegateLifetime = delegate ? delegate->perfTestDelegateLifetime() : std::weak_ptr<const void>();
}

PerfTestDelegate *PerfTest::liveDelegate() const
{
    if (!m_delegate || m_delegateLifetime.expired())
        return nullptr;
    return m_delegate;
}

bool PerfTest::isRunning() const
{
    return m_task && m_task->state() != QProcess::NotRunning;
}

void PerfTest::run()
{
    if (m_task || m_hasCancelled) {
        TW_LOG(QStringLiteral("PerfTest: not starting the tool, this test has already run or was stopped"));
        return;
    }
    executeiPerfOnShell(prepareOptions());
}

const QStringList &PerfTest::prepareOptions()
{
    m_iperfOptions = {QStringLiteral("./iperf3 "), QStringLiteral("-c"), server,
                      QStringLiteral("-p%1").arg(port)};
    createOptionsArray();
    return m_iperfOptions;
}

void PerfTest::createOptionsArray()
{
    // iperf3 refuses a reverse two-way test; both directions run anyway.
    if (reverse == 1 && twoWay != 1)
        m_iperfOptions << QStringLiteral("-R");
    // The tool's own defaults (128 KB for TCP, 8 KB for UDP) are left to it.
    if (testType == 1) {
        m_iperfOptions << QStringLiteral("-u");
        if (bufferLength != 8)
            m_iperfOptions << QStringLiteral("-l%1KB").arg(bufferLength);
    } else if (bufferLength != 128) {
        m_iperfOptions << QStringLiteral("-l%1KB").arg(bufferLength);
    }
    if (sendBandwidth > 0)
        m_iperfOptions << QStringLiteral("-b%1").arg(sendBandwidth) + (bandwidthformat != 0 ? QStringLiteral("K") : QStringLiteral("M"));
    if (const qint64 streams = std::clamp<qint64>(parallelStreams, 1, kMaxStreams); streams > 1)
        m_iperfOptions << QStringLiteral("-P%1").arg(streams);
    if (twoWay == 1)
        m_iperfOptions << QStringLiteral("--bidir");
    m_iperfOptions << QStringLiteral("-t%1").arg(duration) << QStringLiteral("-i%1").arg(stats_interval);
}

QString PerfTest::commandText(const QString &toolPath, const QStringList &options)
{
    // Only the tool path is quoted: the shell splits everything else at
    // blanks, so "./iperf3 " followed by the join leaves two blanks.
    return QStringLiteral("\"%1\"").arg(toolPath) + QStringLiteral(" %1").arg(options.join(QLatin1Char(' ')));
}

void PerfTest::executeiPerfOnShell(const QStringList &options)
{
    const QString toolPath = TidewaveUtils::getiPerfExecutablePath();
    TW_LOG(QStringLiteral("iPef path is %1:").arg(QStringLiteral("\"%1\"").arg(toolPath)));
    const QString command = commandText(toolPath, options);

    m_task = ShellTask::taskForShellCommand(command);
    TW_LOG(QStringLiteral("PerfTesr//exeucteiPerfOnShell:arguments are:%1").arg(describeList(m_task->arguments())));
    connect(m_task.get(), &QProcess::readyReadStandardOutput, this, &PerfTest::readStandardOutput);
    connect(m_task.get(), &QProcess::finished, this, &PerfTest::shellDidEnd);
    m_task->start();
    m_pid = m_task->processId();
    // A coarse timer may fire up to 5 % early; the check is due at 5 s.
    QTimer::singleShot(kResponseTimeout, Qt::PreciseTimer, this, &PerfTest::checkResponse);
}

void PerfTest::readStandardOutput()
{
    m_hasReceivediPerfResponse = true;
    didReceivePerfTestRespnose(decodeUtf8(m_task->readAllStandardOutput()));
}

void PerfTest::shellDidEnd()
{
    // The output handler is taken off first: what is still unread belongs to
    // the end-of-process rules.
    disconnect(m_task.get(), &QProcess::readyReadStandardOutput, this, &PerfTest::readStandardOutput);
    processDidEnd(m_task->readAllStandardOutput(), m_task->readAllStandardError());
}

void PerfTest::processDidEnd(const QByteArray &outputRest, const QByteArray &errorRest)
{
    const QString output = decodeUtf8(outputRest);
    TW_LOG(QStringLiteral("PerfTest output is: %1").arg(orNull(output)));
    if (m_hasCancelled)
        return;
    if (output.startsWith(kFinishedTag) || output.contains(QLatin1String("iperf Done")) || output.contains(kFinishedTag)) {
        didReceivePerfTestRespnose(output);
        return;
    }
    // A decided test reports nothing more.
    if (!output.contains(kError) || m_hasTestFinished)
        return;
    QString message = decodeUtf8(errorRest);
    if (!message.isEmpty())
        TW_LOG(QStringLiteral("PerfTest: unable to execute test, error is: %1").arg(message));
    else
        message = output;
    QPointer<PerfTest> alive(this);
    testDidFails(message);
    if (alive)
        m_hasTestFinished = true;
}

void PerfTest::checkResponse()
{
    if (m_hasReceivediPerfResponse || m_hasCancelled)
        return;
    TW_LOG(QStringLiteral("PerfTest: Timeout occured, no response received in last (%1) seconds so aborting it....")
               .arg(kResponseTimeout.count()));
    stop();
    if (liveDelegate())
        testDidFails(QStringLiteral("Connection timedout, no Response received from server."));
}

void PerfTest::stop()
{
    m_hasCancelled = true;
    if (isRunning())
        terminateProcessGroup();
}

void PerfTest::terminateProcessGroup()
{
    // Debian's sh keeps the tool as its child: only the whole group reaches it.
    ShellTask::signalProcessGroup(m_pid, SIGTERM);
    QTimer::singleShot(kStopGrace, this, [this] {
        // Only while the shell is unreaped is its pid still our group's id.
        if (isRunning())
            ShellTask::signalProcessGroup(m_pid, SIGKILL);
    });
}

void PerfTest::reportIntervals(const PerfResultPtr &result)
{
    if (PerfTestDelegate *target = liveDelegate())
        target->reportInterval(result);
}

void PerfTest::testFineshed(const PerfResultPtr &result)
{
    if (PerfTestDelegate *target = liveDelegate())
        target->testDidFinished(result);
}

void PerfTest::testDidFails(const QString &message)
{
    if (PerfTestDelegate *target = liveDelegate())
        target->testDidFail(message);
}

bool PerfTest::fillRecord(const QStringList &fields, const PerfResultPtr &record) const
{
    const QStringList interval = trimBlanks(QString(fields.at(1)).remove(QLatin1String("sec"))).split(QLatin1Char('-'));
    if (interval.size() < 2)
        return false;
    record->startTime = interval.at(0);
    record->endTime = interval.at(1);
    record->sentBandwidth = leadingFloat(trimBlanks(QString(fields.at(3)).remove(QLatin1String("Kbits/sec"))));
    record->sentBytes = leadingFloat(trimBlanks(QString(fields.at(2)).remove(QLatin1String("KBytes"))));
    record->bandwidthformat = bandwidthformat;
    const int way = tagDirection(fields.at(0));
    record->direction = way >= 0 ? way : (reverse == 1 ? 1 : 0);
    return true;
}

void PerfTest::takeLinkFigures(const QString &text, const QString &tag)
{
    const bool peer = tag == kPeerTag;
    for (qsizetype at = text.indexOf(tag); at >= 0; at = text.indexOf(tag, at + 1)) {
        if (at > 0 && text.at(at - 1) != QLatin1Char('\n'))
            continue;
        const qsizetype end = text.indexOf(QLatin1Char('\n'), at);
        int index = 0;
        int way = -1;
        QStringView interval;
        LinkFigures figures;
        for (const QStringView field : QStringView(text).mid(at, end < 0 ? -1 : end - at).tokenize(kFieldSeparator)) {
            if (index++ == 0) {
                way = tagDirection(field);
                continue;
            }
            if (index == 2) {
                interval = field.trimmed();
                continue;
            }
            const qsizetype equals = field.indexOf(QLatin1Char('='));
            bool ok = false;
            const double number = field.mid(equals + 1).toDouble(&ok);
            if (equals < 0 || !ok || number < 0)
                continue;
            const QStringView key = field.left(equals);
            if (key == QLatin1String("retr"))
                figures.retransmits = qint64(number);
            else if (key == QLatin1String("cwnd"))
                figures.congestionWindow = qint64(number);
            else if (key == QLatin1String("rtt"))
                figures.roundTripMs = number;
            else if (key == QLatin1String("jitter"))
                figures.udpJitterMs = number;
            else if (key == QLatin1String("lost"))
                figures.udpLostDatagrams = qint64(number);
            else if (key == QLatin1String("total"))
                figures.udpTotalDatagrams = qint64(number);
        }
        if (way < 0 || index < 3)
            continue;
        if (text.mid(at, kTotalTag.size()) == kTotalTag) {
            m_totals[way] = figures;
            continue;
        }
        if (!peer) {
            addFigures(m_waitingFigures[QString::number(way) + interval.toString()], figures);
            continue;
        }
        // The server's interval joins this computer's record it falls in
        // (by its middle); one past the last joins the last.
        const PerfResultList &records = m_intervalRecords[way];
        if (records.isEmpty())
            continue;
        const QStringView times = interval.left(interval.indexOf(QLatin1Char(' ')));
        const qsizetype dash = times.indexOf(QLatin1Char('-'), 1);
        const double middle = (times.left(dash).toDouble() + times.mid(dash + 1).toDouble()) / 2;
        PerfResultPtr into = records.first();
        for (const PerfResultPtr &record : records) {
            if (record->startTime.toDouble() <= middle)
                into = record;
        }
        addFigures(*into, figures);
    }
}

void PerfTest::addLinkFigures(const PerfResultPtr &record, const QString &interval, bool final)
{
    if (record->direction < 0 || record->direction > 1)
        return;
    PerfResultList &records = m_intervalRecords[record->direction];
    if (!final) {
        if (!m_waitingFigures.isEmpty())
            addFigures(*record, m_waitingFigures.take(QString::number(record->direction) + trimBlanks(interval)));
        records << record;
        return;
    }
    // iperf3's own totals may count a little past its last interval: that
    // goes to the last one, so the intervals add up to the totals.
    const auto topUp = [&records](qint64 PerfResult::*field, qint64 total) {
        qint64 sum = 0;
        for (const PerfResultPtr &r : records)
            sum += std::max<qint64>(r.get()->*field, 0);
        if (!records.isEmpty() && total > sum)
            records.last().get()->*field = std::max<qint64>(records.last().get()->*field, 0) + total - sum;
    };
    const LinkFigures iperfTotals = std::exchange(m_totals[record->direction], LinkFigures());
    topUp(&PerfResult::retransmits, iperfTotals.retransmits);
    topUp(&PerfResult::udpLostDatagrams, iperfTotals.udpLostDatagrams);
    topUp(&PerfResult::udpTotalDatagrams, iperfTotals.udpTotalDatagrams);
    LinkFigures totals;
    double rttSum = 0;
    int rttCount = 0;
    for (const PerfResultPtr &r : records) {
        addFigures(totals, *r);
        if (r->roundTripMs >= 0) {
            rttSum += r->roundTripMs;
            ++rttCount;
        }
    }
    totals.roundTripMs = rttCount > 0 ? rttSum / rttCount : -1;
    totals.congestionWindow = -1;
    totals.udpJitterMs = record->jitter.isNull() ? -1 : leadingFloat(record->jitter);
    addFigures(*record, totals);
}

void PerfTest::didReceivePerfTestRespnose(const QString &response)
{
    const QString &text = response;
    if (text.isNull() || m_hasCancelled || m_hasTestFinished)
        return;
    TW_LOG(QStringLiteral("[TID] %1").arg(text));

    // Any delegate call may stop or destroy this test.
    QPointer<PerfTest> alive(this);

    if (text.contains(kLinkTag))
        takeLinkFigures(text, kLinkTag);

    if (text.contains(QLatin1String("connected to"))) {
        QString address;
        const qsizetype local = text.indexOf(QLatin1String("local"));
        if (local >= 0) {
            const QString rest = text.mid(local + 6);
            const qsizetype port = rest.indexOf(QLatin1String("port"));
            if (port >= 0) {
                address = rest.left(port).trimmed();
                if (address.isNull())
                    address = QStringLiteral("");
            }
        }
        // A connection line without "local ... port" names no address.
        if (!address.isNull()) {
            if (PerfTestDelegate *target = liveDelegate()) {
                target->didResolvedLocalIP(address);
                return;
            }
        }
    }

    if (text.contains(kResultTag)) {
        for (const QString &line : linesFrom(text, kResultTag, kResultTag)) {
            if (line.isEmpty())
                continue;
            if (line.contains(kError))
                break;
            if (line.startsWith(kFinishedTag) || !line.startsWith(kResultTag))
                continue;
            const QStringList fields = line.split(kFieldSeparator);
            m_result = std::make_shared<PerfResult>();
            if (fields.size() < 4)
                continue;
            auto record = std::make_shared<PerfResult>();
            if (!fillRecord(fields, record))
                continue;
            m_result = record;
            if (fields.size() >= 6 && testType == 1 && record->direction == 1) {
                record->jitter = trimBlanks(fields.at(4));
                record->lostTotalDataGrams = trimBlanks(fields.at(5));
            }
            addLinkFigures(record, fields.at(1), false);
            reportIntervals(record);
            if (!alive)
                return;
            if (m_hasCancelled)
                return;
        }
    }

    // The server's figures go into records of this chunk too, and ahead of the totals.
    if (text.contains(kPeerTag))
        takeLinkFigures(text, kPeerTag);

    if (text.contains(kFinishedTag)) {
        TW_LOG(QStringLiteral("Finished_response From Iperf %1").arg(text));
        // A two-way test's result is both receivers' lines, which come first.
        int reached = 0;
        for (const QString &line : linesFrom(text, kFinishedTag, QStringLiteral("Finished"))) {
            TW_LOG(QStringLiteral("PerfTest: processing line at FinishedTest_ = %1").arg(line));
            if (line.contains(kResultTag) || line.contains(kError))
                break;
            if (!line.startsWith(kFinishedTag))
                continue;
            const QStringList fields = line.split(kFieldSeparator);
            m_result = std::make_shared<PerfResult>();
            if (fields.size() >= 4) {
                auto record = std::make_shared<PerfResult>();
                if (fillRecord(fields, record)) {
                    m_result = record;
                    if (fields.size() >= 6 && testType == 1) {
                        record->jitter = trimBlanks(fields.at(4));
                        record->lostTotalDataGrams = trimBlanks(fields.at(5));
                    }
                    addLinkFigures(record, fields.at(1), true);
                    reportIntervals(record);
                    if (!alive || m_hasCancelled)
                        return;
                }
            }
            if (SettingsStore::leadingInteger(m_result->endTime) >= duration && ++reached >= (twoWay == 1 ? 2 : 1)) {
                m_hasTestFinished = true;
                TW_LOG(QStringLiteral("PerfTest: final interval result has been received from native iperf, stopping test.. "));
                break;
            }
        }
    }

    if (text.contains(kError)) {
        TW_LOG(QStringLiteral("PerfTest: iPerf test got failed..."));
        if (liveDelegate())
            testDidFails(text);
    } else if (text.contains(kFinishedTag)) {
        m_hasTestFinished = true;
        if (liveDelegate())
            testFineshed(m_result);
    }
}
