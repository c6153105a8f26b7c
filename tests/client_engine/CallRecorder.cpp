#include "client_engine/CallRecorder.h"

#include <QFile>

namespace {
QString orNil(const QString &text)
{
    return text.isNull() ? QStringLiteral("nil") : text;
}

QString number(float value)
{
    return QString::number(static_cast<qint64>(value));
}
} // namespace

namespace CallText {

QString record(const PerfResult &result)
{
    return QStringLiteral("%1-%2 %3 %4 jitter=%5 loss=%6 fmt=%7")
        .arg(orNil(result.startTime), orNil(result.endTime), number(result.sentBytes), number(result.sentBandwidth),
             orNil(result.jitter), orNil(result.lostTotalDataGrams), QString::number(result.bandwidthformat));
}

QString record(const QString &start, const QString &end, double bytes, double bandwidth, const QString &jitter,
               const QString &loss, qint64 format)
{
    PerfResult result;
    result.startTime = start;
    result.endTime = end;
    result.sentBytes = static_cast<float>(bytes);
    result.sentBandwidth = static_cast<float>(bandwidth);
    result.jitter = jitter;
    result.lostTotalDataGrams = loss;
    result.bandwidthformat = format;
    return record(result);
}

QString ip(const QString &address)
{
    return QStringLiteral("ip ") + address;
}

QString interval(const QString &recordText)
{
    return QStringLiteral("interval ") + recordText;
}

QString finished(const QString &recordText)
{
    return QStringLiteral("finished ") + recordText;
}

QString fail(const QString &message)
{
    return QStringLiteral("fail ") + orNil(message);
}

} // namespace CallText

void PerfTestRecorder::reportInterval(const PerfResultPtr &result)
{
    calls << CallText::interval(CallText::record(*result));
    records << result;
}

void PerfTestRecorder::testDidFinished(const PerfResultPtr &result)
{
    calls << CallText::finished(CallText::record(*result));
    records << result;
}

void PerfTestRecorder::testDidFail(const QString &message)
{
    calls << CallText::fail(message);
}

void PerfTestRecorder::didResolvedLocalIP(const QString &address)
{
    calls << CallText::ip(address);
}

void PerfHelperRecorder::reportIntervalResults(const PerfResultPtr &result)
{
    calls << CallText::interval(CallText::record(*result)) + QStringLiteral(" if=") + orNil(result->interfaceName);
    records << result;
}

void PerfHelperRecorder::testFinished(const PerfResultPtr &result)
{
    calls << CallText::finished(CallText::record(*result)) + QStringLiteral(" if=") + orNil(result->interfaceName);
    records << result;
}

void PerfHelperRecorder::testFail(const QString &message)
{
    calls << CallText::fail(message);
}

QByteArrayList readChunkFixture(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray data = file.readAll();
    const QByteArray prefix("@@ chunk ");
    const QByteArray suffix(" bytes @@\n");
    QByteArrayList chunks;
    qsizetype at = 0;
    while (at < data.size()) {
        const qsizetype lineEnd = data.indexOf('\n', at);
        if (data.at(at) == '#') {
            at = lineEnd < 0 ? data.size() : lineEnd + 1;
            continue;
        }
        const QByteArray line = data.mid(at, lineEnd < 0 ? -1 : lineEnd + 1 - at);
        if (!line.startsWith(prefix) || !line.endsWith(suffix))
            return {};
        bool ok = false;
        const qsizetype size = line.mid(prefix.size(), line.size() - prefix.size() - suffix.size()).toLongLong(&ok);
        at += line.size();
        if (!ok || size < 0 || at + size > data.size())
            return {};
        chunks << data.mid(at, size);
        at += size;
    }
    return chunks;
}
