// Feeds the client output parser a 10,000-interval stream chunk by chunk and
// prints what one chunk costs. The stream repeats the interval chunk of a
// capture from the launcher (tests/data/client-tcp-3s.txt) with advancing
// times (and the launcher's LINK_ line of link figures, unless
// TIDEWAVE_BENCH_NO_LINK_LINES is set), then the capture's final block; each
// chunk is decoded from bytes as the engine does with what it reads from the
// pipe.

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfTest.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <QByteArrayList>
#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include <time.h>

namespace {

constexpr int kIntervals = 10000;
constexpr double kTargetMicroseconds = 20.0;

QByteArrayList readFixture(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray data = file.readAll();
    QByteArrayList chunks;
    qsizetype at = 0;
    while (at < data.size()) {
        const qsizetype end = data.indexOf('\n', at);
        if (end < 0)
            break;
        const QByteArray line = data.mid(at, end - at);
        at = end + 1;
        if (line.startsWith('#'))
            continue;
        const qsizetype size = line.mid(9, line.indexOf(" bytes") - 9).toLongLong();
        chunks << data.mid(at, size);
        at += size;
    }
    return chunks;
}

// The capture's interval chunks carry "[  5]   1.00-2.00   sec ..." and
// "RESULT_$#1.00-2.00 sec$#...": the times are replaced for interval i.
QByteArray intervalChunk(const QByteArray &pattern, int i)
{
    QByteArray chunk = pattern;
    const QByteArray times = QByteArray::number(i) + ".00-" + QByteArray::number(i + 1) + ".00";
    chunk.replace("1.00-2.00", times);
    return chunk;
}

QByteArrayList buildStream(const QByteArrayList &capture)
{
    QByteArray pattern;
    qsizetype finalStart = -1;
    for (qsizetype i = 0; i < capture.size(); ++i) {
        if (pattern.isEmpty() && capture.at(i).startsWith("[  5]   1.00-2.00") && capture.at(i).contains("RESULT_"))
            pattern = capture.at(i);
        if (finalStart < 0 && capture.at(i).startsWith("- - -"))
            finalStart = i;
    }
    if (pattern.isEmpty() || finalStart < 0)
        return {};
    // The launcher now writes each interval's link figures ahead of its tag.
    if (qEnvironmentVariableIsEmpty("TIDEWAVE_BENCH_NO_LINK_LINES"))
        pattern.replace("RESULT_", "LINK_UP$#1.00-2.00 sec$#retr=32$#cwnd=1698693$#rtt=0.041\nRESULT_");
    QByteArrayList stream;
    stream << capture.first(); // connection line
    for (int i = 0; i < kIntervals; ++i)
        stream << intervalChunk(pattern, i);
    for (qsizetype i = finalStart; i < capture.size(); ++i) {
        QByteArray chunk = capture.at(i);
        chunk.replace("0.00-3.01", "0.00-" + QByteArray::number(kIntervals) + ".00");
        stream << chunk;
    }
    return stream;
}

struct Counter : PerfHelperDelegate
{
    void reportIntervalResults(const PerfResultPtr &) override { ++intervals; }
    void testFinished(const PerfResultPtr &) override { ++finished; }
    long intervals = 0;
    long finished = 0;
};

// Formats every entry the way a line logger would, into memory.
struct FormattingSink : LogSink
{
    void write(const LogMessage &message) override
    {
        buffer += (message.timestamp.toString(QStringLiteral("yyyy/MM/dd HH:mm:ss:zzz")) + QLatin1Char(' ')
                   + message.message + QLatin1Char('\n'))
                      .toUtf8();
        if (buffer.size() > (1 << 20))
            buffer.clear();
    }
    QByteArray buffer;
};

double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

struct Figures
{
    double totalMs = 0;
    double cpuMs = 0;
    double meanUs = 0;
    double medianUs = 0;
    double p99Us = 0;
    double maxUs = 0;
    long intervals = 0;
    long finished = 0;
};

Figures run(const QByteArrayList &stream, SettingsStore &settings)
{
    Counter counter;
    PerfHelper helper(settings);
    helper.setDelegate(&counter);
    PerfTest test;
    test.duration = kIntervals;
    test.stats_interval = 1;
    test.setDelegate(&helper);

    std::vector<double> costs;
    costs.reserve(static_cast<std::size_t>(stream.size()));
    using Clock = std::chrono::steady_clock;
    const double cpuBegin = threadCpuMs();
    const Clock::time_point begin = Clock::now();
    for (const QByteArray &chunk : stream) {
        const Clock::time_point start = Clock::now();
        test.didReceivePerfTestRespnose(QString::fromUtf8(chunk));
        costs.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    const double total = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    const double cpu = threadCpuMs() - cpuBegin;

    // Interval chunks only: the connection chunk and the final block apart.
    std::vector<double> intervals(costs.begin() + 1, costs.begin() + 1 + kIntervals);
    std::sort(intervals.begin(), intervals.end());
    Figures f;
    f.totalMs = total;
    f.cpuMs = cpu;
    double sum = 0;
    for (double c : intervals)
        sum += c;
    f.meanUs = sum / static_cast<double>(intervals.size());
    f.medianUs = intervals.at(intervals.size() / 2);
    f.p99Us = intervals.at(intervals.size() * 99 / 100);
    f.maxUs = intervals.back();
    f.intervals = counter.intervals;
    f.finished = counter.finished;
    return f;
}

// Wall-clock figures include whatever else the machine runs; the CPU time of
// this thread per chunk is the parser's own cost.
void print(const char *label, const Figures &f, qsizetype chunks)
{
    std::printf("%s (%ld intervals, %ld finished)\n", label, f.intervals, f.finished);
    std::printf("  wall %.1f ms, %.0f chunks/s; CPU %.1f ms, %.2f us per chunk\n", f.totalMs,
                static_cast<double>(chunks) / (f.totalMs / 1000.0), f.cpuMs,
                f.cpuMs * 1000.0 / static_cast<double>(chunks));
    std::printf("  per interval chunk (wall): median %.2f us, p99 %.2f us, mean %.2f us, max %.2f us\n", f.medianUs,
                f.p99Us, f.meanUs, f.maxUs);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    SettingsStore settings(dir.filePath(QStringLiteral("settings.ini")));
    settings.setObject(QStringLiteral("Loopback: 127.0.0.1"), QStringLiteral("IPAddresss"));

    const QByteArrayList stream = buildStream(readFixture(QStringLiteral(TIDEWAVE_CLIENT_FIXTURE)));
    if (stream.isEmpty()) {
        std::fprintf(stderr, "cannot read the capture %s\n", TIDEWAVE_CLIENT_FIXTURE);
        return 1;
    }
    std::printf("stream: %lld chunks (%d interval chunks), target < %.0f us per interval chunk\n",
                static_cast<long long>(stream.size()), kIntervals, kTargetMicroseconds);

    Logger::shared().removeAllSinks();
    run(stream, settings); // warm-up
    const Figures bare = run(stream, settings);
    print("parser, no log sink", bare, stream.size());

    Logger::shared().addSink(std::make_shared<FormattingSink>());
    const Figures logged = run(stream, settings);
    print("parser + formatting log sink", logged, stream.size());
    Logger::shared().removeAllSinks();

    const double costUs = logged.cpuMs * 1000.0 / static_cast<double>(stream.size());
    const bool ok = bare.intervals == kIntervals + 1 && bare.finished == 1 && costUs < kTargetMicroseconds
        && logged.p99Us < kTargetMicroseconds;
    std::printf("%s: %.2f us CPU per chunk with logging, p99 %.2f us\n", ok ? "target met" : "target NOT met", costUs,
                logged.p99Us);
    return ok ? 0 : 1;
}
