// How closely the launcher's tagged figures follow iperf3's exact JSON
// figures, how the byte-count rule compares with its alternatives, and what
// running iperf3 through the launcher costs in throughput. Loopback only.
//
// Usage: tool_accuracy <path to mac-native-iperf>

#include "LineTagger.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const QString kIperf = QStringLiteral(TIDEWAVE_IPERF3_PATH);
QString g_launcher;

quint16 freePort()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    quint16 port = 0;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0
        && getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(fd);
    return port;
}

// Whether something listens on the TCP port, read from /proc so that no
// connection disturbs a one-off iperf3 server.
bool listening(quint16 port)
{
    // Local addresses read "0100007F:1451": the port in four hex digits.
    const QByteArray suffix = ':' + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : file.readAll().split('\n')) {
            const QList<QByteArray> words = line.simplified().split(' ');
            if (words.size() > 3 && words[1].endsWith(suffix) && words[3] == "0A")
                return true;
        }
    }
    return false;
}

bool waitListening(quint16 port)
{
    QElapsedTimer timer;
    timer.start();
    while (!listening(port)) {
        if (timer.hasExpired(5000))
            return false;
        QThread::msleep(10);
    }
    return true;
}

QByteArray runToEnd(const QString &program, const QStringList &arguments, int timeoutMs)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(2000);
    }
    return process.readAll();
}

// The CPU time (user + system, in ms) a process has used itself, not
// counting its children; -1 once it is gone.
double ownCpuMs(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = file.readAll();
    // Fields after the parenthesised name: state is field 3, utime 14, stime 15.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return -1;
    return (fields[11].toDouble() + fields[12].toDouble()) * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Runs the launcher to its end, noting the CPU time it used itself (iperf3,
// its child, not included).
QByteArray runLauncher(const QStringList &arguments, double &cpuMs)
{
    QProcess process;
    process.start(g_launcher, arguments);
    process.waitForStarted(5000);
    const qint64 pid = process.processId();
    QElapsedTimer timer;
    timer.start();
    cpuMs = 0;
    while (!process.waitForFinished(50) && !timer.hasExpired(20000)) {
        const double used = ownCpuMs(pid);
        if (used >= 0)
            cpuMs = used;
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(2000);
    }
    return process.readAllStandardOutput();
}

struct Tagged
{
    bool summary = false;
    double start = 0;
    double end = 0;
    double bytes = 0;
    double bitsPerSecond = 0;
    QByteArray role;
};

std::vector<Tagged> tagged(const QByteArray &output)
{
    std::vector<Tagged> out;
    for (const QByteArray &line : output.split('\n')) {
        if (!line.startsWith("RESULT_") && !line.startsWith("Finished_"))
            continue;
        const QList<QByteArray> fields = line.split('$');
        if (fields.size() < 5)
            continue;
        Tagged t;
        t.summary = line.startsWith("Finished_");
        const QList<QByteArray> interval = fields[1].mid(1).chopped(4).split('-');
        t.start = interval.value(0).toDouble();
        t.end = interval.value(1).toDouble();
        t.bytes = fields[2].mid(1).toDouble();
        t.bitsPerSecond = fields[3].mid(1).toDouble();
        t.role = fields.last().mid(1);
        out.push_back(t);
    }
    return out;
}

// iperf3 3.12's number printing (units.c): three significant digits.
QString threeDigits(double value)
{
    const char *format = value < 9.995 ? "%4.2f" : value < 99.95 ? "%4.1f" : "%4.0f";
    return QString::asprintf(format, value);
}

QString volumeText(double bytes)
{
    static const char *units[] = {"Bytes", "KBytes", "MBytes", "GBytes", "TBytes"};
    int unit = 0;
    while (bytes >= 1024.0 && unit < 4) {
        bytes /= 1024.0;
        ++unit;
    }
    return threeDigits(bytes) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

// The report line iperf3 prints with --format k for an interval it measured.
QString reportLine(double start, double end, double bytes, double bitsPerSecond)
{
    return QString::asprintf("[  5] %6.2f-%-6.2f sec  ", start, end) + volumeText(bytes) + QStringLiteral("  ")
        + threeDigits(bitsPerSecond / 1000.0) + QStringLiteral(" Kbits/sec                  ");
}

struct Errors
{
    double worst = 0;
    double sum = 0;
    int count = 0;
    void add(double estimate, double truth)
    {
        if (truth <= 0)
            return;
        const double error = std::abs(estimate / truth - 1.0);
        worst = std::max(worst, error);
        sum += error;
        ++count;
    }
    QString text() const
    {
        return QString::asprintf("mean %.4f %%  worst %.4f %%  (%d intervals)", count ? 100 * sum / count : 0.0,
                                 100 * worst, count);
    }
};

// The three candidate byte counts for one measured interval, each against the
// exact count: the Transfer column alone, the rate over the printed interval
// alone, and the launcher's rule.
struct RuleComparison
{
    Errors transfer, rate, rule;

    void add(double start, double end, double bytes, double bitsPerSecond)
    {
        const QString line = reportLine(start, end, bytes, bitsPerSecond);
        LineTagger tagger;
        tagger.tag("[ ID] Interval           Transfer     Bitrate");
        const auto out = tagger.tag(line.toStdString());
        if (!out)
            return;
        const QList<QByteArray> fields = QByteArray::fromStdString(*out).split('$');
        rule.add(fields.value(2).mid(1).toDouble(), bytes);
        const QList<QByteArray> words = line.toLatin1().mid(6).simplified().split(' ');
        const QStringList units = {QStringLiteral("Bytes"), QStringLiteral("KBytes"), QStringLiteral("MBytes"),
                                   QStringLiteral("GBytes"), QStringLiteral("TBytes")};
        transfer.add(words[2].toDouble() * std::pow(1024.0, units.indexOf(QString::fromLatin1(words[3]))), bytes);
        const QList<QByteArray> ends = words[0].split('-');
        rate.add(words[4].toDouble() * 1000.0 * (ends[1].toDouble() - ends[0].toDouble()) / 8.0, bytes);
    }
};

RuleComparison g_rule;

bool g_allMet = true;

void report(const char *what, double ratio, double tolerance)
{
    const bool met = std::abs(ratio - 1.0) <= tolerance;
    g_allMet = g_allMet && met;
    std::printf("  %-44s %.6f  (target 1 +- %.1f %%: %s)\n", what, ratio, tolerance * 100, met ? "met" : "MISSED");
}

// One 10-second launcher client run against a stock one-off JSON server.
void accuracy(const char *name, const QStringList &options)
{
    const quint16 port = freePort();
    QProcess server;
    server.start(kIperf, {QStringLiteral("-s"), QStringLiteral("-1"), QStringLiteral("-p"), QString::number(port),
                          QStringLiteral("--json")});
    if (!waitListening(port)) {
        std::printf("%s: the iperf3 server did not start\n", name);
        g_allMet = false;
        return;
    }
    QStringList arguments = {QStringLiteral("./iperf3"), QStringLiteral("-c"), QStringLiteral("127.0.0.1"),
                             QStringLiteral("-p%1").arg(port), QStringLiteral("-t10"), QStringLiteral("-i1")};
    arguments += options;
    const QByteArray output = runToEnd(g_launcher, arguments, 30000);
    server.waitForFinished(10000);
    const QJsonObject json = QJsonDocument::fromJson(server.readAllStandardOutput()).object();
    const QJsonObject received = json[QStringLiteral("end")].toObject()[QStringLiteral("sum_received")].toObject();
    const double bytes = received[QStringLiteral("bytes")].toDouble();
    const double rate = received[QStringLiteral("bits_per_second")].toDouble();

    std::optional<Tagged> finished;
    double intervalBytes = 0;
    for (const Tagged &t : tagged(output)) {
        if (t.summary && t.role == "receiver")
            finished = t;
        else if (!t.summary)
            intervalBytes += t.bytes;
    }
    std::printf("%s (%s), server JSON: %.0f bytes, %.0f bit/s\n", name, qPrintable(options.join(QLatin1Char(' '))),
                bytes, rate);
    if (!finished || bytes <= 0) {
        std::printf("  no receiver summary from the launcher or no JSON from the server\n%s\n", output.constData());
        g_allMet = false;
        return;
    }
    report("Finished_ receiver BITS_PER_SECOND / JSON", finished->bitsPerSecond / rate, 0.001);
    report("Finished_ receiver BYTES / JSON", finished->bytes / bytes, 0.005);
    // The client's interval lines are its sender's: for UDP, what was sent is
    // every datagram the server counted (lost ones included) times their length.
    double sent = bytes;
    if (options.contains(QStringLiteral("-u"))) {
        const double length = json[QStringLiteral("start")].toObject()[QStringLiteral("test_start")]
                                  .toObject()[QStringLiteral("blksize")].toDouble();
        sent = received[QStringLiteral("packets")].toDouble() * length;
        std::printf("  datagrams: %.0f of %.0f bytes, %.0f lost\n", received[QStringLiteral("packets")].toDouble(),
                    length, received[QStringLiteral("lost_packets")].toDouble());
        report("sum of RESULT_ BYTES / JSON datagrams sent", intervalBytes / sent, 0.005);
    } else {
        report("sum of RESULT_ BYTES / JSON", intervalBytes / sent, 0.005);
    }

    for (const QJsonValue &interval : json[QStringLiteral("intervals")].toArray()) {
        const QJsonObject sum = interval.toObject()[QStringLiteral("sum")].toObject();
        g_rule.add(sum[QStringLiteral("start")].toDouble(), sum[QStringLiteral("end")].toDouble(),
                   sum[QStringLiteral("bytes")].toDouble(), sum[QStringLiteral("bits_per_second")].toDouble());
    }
    g_rule.add(0, received[QStringLiteral("seconds")].toDouble(), bytes, rate);
}

// Unlimited TCP through the launcher and through bare iperf3, alternately,
// against one stock server.
void throughput()
{
    const quint16 port = freePort();
    QProcess server;
    server.setStandardOutputFile(QProcess::nullDevice());
    server.start(kIperf, {QStringLiteral("-s"), QStringLiteral("-p"), QString::number(port)});
    if (!waitListening(port)) {
        std::printf("throughput: the iperf3 server did not start\n");
        g_allMet = false;
        return;
    }
    const QStringList common = {QStringLiteral("-c"), QStringLiteral("127.0.0.1"), QStringLiteral("-p%1").arg(port),
                                QStringLiteral("-t3"), QStringLiteral("-i1")};
    constexpr int kRounds = 8;
    // The receiver's rate from a run's text output (stock iperf3 prints the
    // same summary lines, in its own units, which the tagger reads as well).
    auto receiverRate = [](const QByteArray &output) {
        LineTagger tagger;
        double rate = 0;
        for (const QByteArray &line : output.split('\n')) {
            const auto out = tagger.tag(line.toStdString());
            if (!out)
                continue;
            for (const Tagged &t : tagged(QByteArray::fromStdString(*out))) {
                if (t.summary && t.role == "receiver")
                    rate = t.bitsPerSecond;
            }
        }
        return rate;
    };
    std::vector<double> viaLauncher;
    std::vector<double> bare;
    std::vector<double> launcherCpuMs;
    for (int round = 0; round < kRounds; ++round) {
        // Alternate which goes first, so neither profits from the order.
        for (int turn = 0; turn < 2; ++turn) {
            if ((round + turn) % 2 == 0)
            {
                double cpuMs = 0;
                viaLauncher.push_back(receiverRate(runLauncher(QStringList{QStringLiteral("./iperf3")} + common, cpuMs)));
                launcherCpuMs.push_back(cpuMs);
            }
            else
                bare.push_back(receiverRate(runToEnd(kIperf, common, 20000)));
        }
    }
    server.terminate();
    server.waitForFinished(5000);

    auto mean = [](const std::vector<double> &values) {
        double sum = 0;
        for (double v : values)
            sum += v;
        return values.empty() ? 0.0 : sum / static_cast<double>(values.size());
    };
    std::printf("Throughput, unlimited TCP, 8 x 3 s each, alternating\n");
    for (std::size_t i = 0; i < std::max(viaLauncher.size(), bare.size()); ++i) {
        std::printf("  round %zu: launcher %.0f Mbit/s, bare iperf3 %.0f Mbit/s\n", i + 1,
                    i < viaLauncher.size() ? viaLauncher[i] / 1e6 : 0.0, i < bare.size() ? bare[i] / 1e6 : 0.0);
    }
    // Loopback throughput swings with whatever else the machine runs, so the
    // judged figure is the median of the ratios of neighbouring runs.
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(viaLauncher.size(), bare.size()); ++i) {
        if (bare[i] > 0)
            ratios.push_back(viaLauncher[i] / bare[i]);
    }
    std::sort(ratios.begin(), ratios.end());
    const double median = ratios.empty() ? 0.0
        : ratios.size() % 2 ? ratios[ratios.size() / 2]
                            : (ratios[ratios.size() / 2 - 1] + ratios[ratios.size() / 2]) / 2;
    // /proc counts in clock ticks (10 ms), so 0 means less than one tick.
    std::printf("  launcher's own CPU time per 3 s run: %.0f ms on average (at most %.0f ms)\n", mean(launcherCpuMs),
                launcherCpuMs.empty() ? 0.0 : *std::max_element(launcherCpuMs.begin(), launcherCpuMs.end()));
    std::printf("  %-44s %.4f\n", "mean launcher / mean bare", mean(bare) > 0 ? mean(viaLauncher) / mean(bare) : 0.0);
    const bool met = median >= 0.98;
    g_allMet = g_allMet && met;
    std::printf("  %-44s %.4f  (target >= 0.98: %s)\n", "median of per-round ratios", median, met ? "met" : "MISSED");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: tool_accuracy <path to mac-native-iperf>\n");
        return 2;
    }
    g_launcher = QString::fromLocal8Bit(argv[1]);

    accuracy("TCP at 1 Gbit/s", {QStringLiteral("-b"), QStringLiteral("1G")});
    accuracy("UDP at 100 Mbit/s", {QStringLiteral("-u"), QStringLiteral("-b"), QStringLiteral("100M")});

    std::printf("Byte count of the server's measured intervals and summaries, printed as iperf3 prints them,\n"
                "against the exact count:\n");
    std::printf("  Transfer column alone:        %s\n", qPrintable(g_rule.transfer.text()));
    std::printf("  rate x printed interval / 8:  %s\n", qPrintable(g_rule.rate.text()));
    std::printf("  launcher's rule:              %s\n", qPrintable(g_rule.rule.text()));

    throughput();
    std::printf("%s\n", g_allMet ? "All targets met." : "Some targets MISSED.");
    return g_allMet ? 0 : 1;
}
