#include "client_engine/CallRecorder.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfTest.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>

using namespace std::chrono_literals;

// The real launcher from the build tree against a stock iperf3 server on a
// free loopback port.
namespace {

using namespace CallText;

const QString kLoopback = QStringLiteral("127.0.0.1");

// Whether something listens on 127.0.0.1:port (checked without connecting,
// which would use up a one-off server).
bool listening(quint16 port)
{
    QFile table(QStringLiteral("/proc/net/tcp"));
    if (!table.open(QIODevice::ReadOnly))
        return false;
    const QByteArray local = QByteArray("0100007F:") + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    for (const QByteArray &line : table.readAll().split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 3 && fields.at(1) == local && fields.at(3) == "0A")
            return true;
    }
    return false;
}

QByteArray procField(qint64 pid, const char *file)
{
    QFile f(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(file)));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The process and everything below it, with their command names.
QHash<qint64, QString> processTree(qint64 root)
{
    QHash<qint64, QList<qint64>> children;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok)
            continue;
        const QByteArray stat = procField(pid, "stat");
        const qsizetype close = stat.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() > 1)
            children[fields.at(1).toLongLong()] << pid;
    }
    QHash<qint64, QString> tree;
    QList<qint64> pending{root};
    while (!pending.isEmpty()) {
        const qint64 pid = pending.takeFirst();
        if (!TestEnvironment::processAlive(pid))
            continue;
        tree.insert(pid, QString::fromLocal8Bit(procField(pid, "comm")).trimmed());
        pending << children.value(pid);
    }
    return tree;
}

class EndToEnd : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const QString launcher = TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
        ASSERT_TRUE(QFileInfo(launcher).isExecutable()) << "the launcher is built with the tests";
        const QString tool = TidewaveUtils::getiPerfExecutablePath();
        QDir().mkpath(QFileInfo(tool).path());
        QFile::remove(tool);
        ASSERT_TRUE(QFile::copy(launcher, tool));

        ASSERT_TRUE(m_dir.isValid());
        m_store = std::make_unique<SettingsStore>(m_dir.filePath(QStringLiteral("settings.ini")));
        m_store->setObject(QStringLiteral("Wi-Fi (Primary): 192.168.1.5, Loopback: 127.0.0.1"),
                           QStringLiteral("IPAddresss"));
        m_port = TestEnvironment::freeTcpPort();
        ASSERT_NE(m_port, 0);
    }

    void TearDown() override
    {
        if (m_server.state() != QProcess::NotRunning) {
            m_server.kill();
            m_server.waitForFinished(5000);
        }
        QFile::remove(TidewaveUtils::getiPerfExecutablePath());
    }

    void startServer()
    {
        m_server.setProgram(QStringLiteral("iperf3"));
        m_server.setArguments({QStringLiteral("-s"), QStringLiteral("-1"), QStringLiteral("-B"), kLoopback,
                               QStringLiteral("-p"), QString::number(m_port)});
        m_server.setStandardOutputFile(QProcess::nullDevice());
        m_server.setStandardErrorFile(QProcess::nullDevice());
        m_server.start();
        ASSERT_TRUE(m_server.waitForStarted(5000));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return listening(m_port); }, 5s));
    }

    PerfHelperPtr makeHelper(qint64 testType, qint64 reverse, qint64 duration)
    {
        auto helper = std::make_shared<PerfHelper>(*m_store);
        helper->setDelegate(&m_recorder);
        helper->serverIP = kLoopback;
        helper->serverPort = m_port;
        helper->duration = duration;
        helper->stats_interval = 1;
        helper->testType = testType;
        helper->reverse = reverse;
        helper->bufferLength = testType == 1 ? 8 : 128;
        return helper;
    }

    bool decided() const
    {
        return !m_recorder.calls.isEmpty()
            && (m_recorder.calls.last().startsWith(QLatin1String("finished "))
                || m_recorder.calls.last().startsWith(QLatin1String("fail ")));
    }

    // The shell and what it started, once the iperf3 below it runs.
    QHash<qint64, QString> runningTree(const PerfHelper &helper)
    {
        QHash<qint64, QString> tree;
        const bool found = TestEnvironment::waitUntil(
            [&] {
                tree = processTree(helper.test().processId());
                return tree.values().contains(QStringLiteral("iperf3"));
            },
            5s);
        return found ? tree : QHash<qint64, QString>();
    }

    static bool allGone(const QHash<qint64, QString> &tree)
    {
        for (auto it = tree.begin(); it != tree.end(); ++it) {
            if (TestEnvironment::processAlive(it.key()))
                return false;
        }
        return true;
    }

    // Checks the finished run: intervals with ends 1..duration, then the final
    // record reported as an interval and again as the result.
    void expectCompleteRun(qint64 duration, bool udpReverse)
    {
        ASSERT_TRUE(m_recorder.calls.last().startsWith(QLatin1String("finished "))) << m_recorder.calls.join('\n').toStdString();
        const QList<PerfResultPtr> &records = m_recorder.records;
        ASSERT_GE(records.size(), 3);
        const PerfResultPtr final = records.last();
        EXPECT_EQ(records.at(records.size() - 2), final);
        EXPECT_EQ(final->startTime, QStringLiteral("0.00"));
        EXPECT_EQ(SettingsStore::leadingInteger(final->endTime), duration);

        QList<qint64> ends;
        for (qsizetype i = 0; i < records.size() - 2; ++i)
            ends << SettingsStore::leadingInteger(records.at(i)->endTime);
        QList<qint64> expectedEnds;
        for (qint64 end = 1; end <= duration; ++end)
            expectedEnds << end;
        // A first interval missing here came in one chunk with the connection
        // line, which then reports only the address: the tool must deliver
        // the connection line at connect time, in a chunk of its own.
        EXPECT_EQ(ends, expectedEnds) << m_recorder.calls.join('\n').toStdString();

        for (const PerfResultPtr &record : records) {
            EXPECT_EQ(record->interfaceName, QStringLiteral(" Loopback"));
            EXPECT_GT(record->sentBytes, 0.0f);
            EXPECT_GT(record->sentBandwidth, 0.0f);
            // Jitter and loss: every interval of a reverse UDP test and every
            // UDP final line; never for TCP.
            EXPECT_EQ(record->jitter.endsWith(QLatin1String(" ms")), udpReverse);
            EXPECT_EQ(record->lostTotalDataGrams.contains(QLatin1Char('/')), udpReverse);
        }
    }

    QTemporaryDir m_dir;
    std::unique_ptr<SettingsStore> m_store;
    quint16 m_port = 0;
    QProcess m_server;
    PerfHelperRecorder m_recorder;
};

TEST_F(EndToEnd, TcpThreeSeconds)
{
    startServer();
    PerfHelperPtr helper = makeHelper(0, 0, 3);
    helper->runTest();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return decided(); }, 15s)) << m_recorder.calls.join('\n').toStdString();
    EXPECT_EQ(helper->localIP, kLoopback);
    EXPECT_EQ(helper->usedInterfaceName(), QStringLiteral(" Loopback"));
    expectCompleteRun(3, false);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !helper->test().isRunning(); }, 5s));
}

TEST_F(EndToEnd, UdpReverseThreeSeconds)
{
    startServer();
    PerfHelperPtr helper = makeHelper(1, 1, 3);
    helper->runTest();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return decided(); }, 15s)) << m_recorder.calls.join('\n').toStdString();
    EXPECT_EQ(helper->localIP, kLoopback);
    expectCompleteRun(3, true);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !helper->test().isRunning(); }, 5s));
}

TEST_F(EndToEnd, RefusedConnectionFailsWithTheToolsText)
{
    PerfHelperPtr helper = makeHelper(0, 0, 3);
    helper->runTest();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return decided(); }, 5s));
    ASSERT_EQ(m_recorder.calls.size(), 1);
    EXPECT_TRUE(m_recorder.calls.first().startsWith(QLatin1String("fail ")));
    EXPECT_TRUE(m_recorder.calls.first().contains(
        QLatin1String("iperf3: error - unable to connect to server: Connection refused")))
        << m_recorder.calls.first().toStdString();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !helper->test().isRunning(); }, 5s));
}

TEST_F(EndToEnd, SilentListenerEndsInTheTimeout)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress(kLoopback)));
    QList<QTcpSocket *> accepted;
    QObject::connect(&silent, &QTcpServer::newConnection, &silent, [&] {
        while (QTcpSocket *socket = silent.nextPendingConnection())
            accepted << socket;
    });
    m_port = silent.serverPort();
    PerfHelperPtr helper = makeHelper(0, 0, 3);
    helper->runTest();
    const QHash<qint64, QString> tree = runningTree(*helper);
    ASSERT_FALSE(tree.isEmpty());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return decided(); }, 8s)) << m_recorder.calls.join('\n').toStdString();
    EXPECT_EQ(m_recorder.calls, QStringList{fail(QStringLiteral("Connection timedout, no Response received from server."))});
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return allGone(tree); }, 5s));
    EXPECT_FALSE(accepted.isEmpty());
}

struct StopCase
{
    std::string name;
    bool dropCoordinator; // else stopTest
};

void PrintTo(const StopCase &c, std::ostream *os)
{
    *os << c.name;
}

class EndToEndStop : public EndToEnd, public ::testing::WithParamInterface<StopCase>
{
};

// Mid-run the tool, iperf3 and the shell all end and nothing more is reported.
TEST_P(EndToEndStop, NoCallbackAndNoProcessLeft)
{
    startServer();
    PerfHelperPtr helper = makeHelper(0, 0, 10);
    helper->runTest();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return helper->localIP == kLoopback; }, 5s));
    const QHash<qint64, QString> tree = runningTree(*helper);
    ASSERT_FALSE(tree.isEmpty());

    const qsizetype before = m_recorder.calls.size();
    if (GetParam().dropCoordinator) {
        helper.reset();
    } else {
        helper->stopTest();
    }
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return allGone(tree); }, 5s));
    if (helper) {
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !helper->test().isRunning(); }, 5s));
    }
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return m_recorder.calls.size() != before; }, 1500ms))
        << m_recorder.calls.join('\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(PerfHelper, EndToEndStop,
                         ::testing::Values(StopCase{"stop_test", false}, StopCase{"drop_coordinator", true}),
                         [](const ::testing::TestParamInfo<StopCase> &info) { return info.param.name; });

} // namespace
