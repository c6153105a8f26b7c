// The server engine through the real launcher, driven by stock iperf3 clients
// on loopback ports. Processes are checked by pid and process group.
#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"
#include "server_engine/RecordingDelegate.h"
#include "server_engine/ToolProcesses.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QProcess>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;
using ToolProcesses::groupMembers;
using ToolProcesses::toolGroups;

namespace {

class PerfServerRun : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const QString error = ToolProcesses::placeLauncher();
        ASSERT_TRUE(error.isEmpty()) << qPrintable(error);
        ASSERT_NE(m_port = TestEnvironment::freeTcpPort(), 0);
    }

    void TearDown() override
    {
        m_servers.clear();
        for (auto &client : m_clients) {
            client->kill();
            client->waitForFinished(2000);
        }
        EXPECT_TRUE(waitUntil([] { return toolGroups().isEmpty(); }, 5s));
    }

    // Runs a server and waits until its tool listens.
    PerfServer &listeningServer(PerfServerDelegate &delegate, bool mustListen = true)
    {
        m_servers.push_back(std::make_unique<PerfServer>());
        PerfServer &server = *m_servers.back();
        server.setDelegate(&delegate);
        server.setPort(m_port);
        server.run();
        if (mustListen) {
            EXPECT_TRUE(waitUntil([&] { return ToolProcesses::tcpPortListening(m_port); }, 5s));
        }
        return server;
    }

    QProcess &client(const QString &options)
    {
        m_clients.push_back(std::make_unique<QProcess>());
        QProcess &c = *m_clients.back();
        c.setProcessChannelMode(QProcess::MergedChannels);
        c.start(QStringLiteral("iperf3"), QStringLiteral("-c 127.0.0.1 -p %1 %2").arg(m_port).arg(options).split(' '));
        return c;
    }

    quint16 m_port = 0;
    std::vector<std::unique_ptr<PerfServer>> m_servers;
    std::vector<std::unique_ptr<QProcess>> m_clients;
};

TEST_F(PerfServerRun, ServesTcpUdpAndReverseTestsInARow)
{
    RecordingDelegate delegate;
    PerfServer &server = listeningServer(delegate);
    const qint64 pid = server.processId();
    const QString command =
        QStringLiteral("\"%1\" ./iperf3  -s -p %2").arg(TidewaveUtils::getiPerfExecutablePath()).arg(m_port);
    EXPECT_EQ(ToolProcesses::commandLine(pid), (QStringList{QStringLiteral("/bin/sh"), QStringLiteral("-c"), command}));

    const QList<std::tuple<QString, QString, bool>> runs{{QStringLiteral("-t 2"), QStringLiteral("receiver"), false},
                                                        {QStringLiteral("-u -t 2"), QStringLiteral("receiver"), true},
                                                        {QStringLiteral("-R -t 2"), QStringLiteral("sender"), false}};
    for (int i = 0; i < runs.size(); ++i) {
        const auto &[options, role, udp] = runs.at(i);
        SCOPED_TRACE(options.toStdString());
        QProcess &c = client(options);
        ASSERT_TRUE(waitUntil([&] { return c.state() == QProcess::NotRunning; }, 15s));
        ASSERT_EQ(c.exitCode(), 0) << c.readAll().toStdString();
        ASSERT_TRUE(waitUntil([&] { return delegate.finished.size() > i; }, 5s));

        const iPerfServerResultsPtr test = delegate.finished.at(i);
        ASSERT_GE(test->intervalResults.size(), 2);
        ASSERT_GE(test->finalResults.size(), 1);
        EXPECT_TRUE(test->finalResults.first()->intervals.startsWith(QLatin1String("0.00-")));
        for (const PerfResultPtr &r : test->intervalResults + test->finalResults) {
            EXPECT_EQ(r->ip, QStringLiteral("127.0.0.1"));
            EXPECT_EQ(r->typeName, role);
            EXPECT_GT(r->receivedBandwidth, 0.0f);
            EXPECT_EQ(r->jitter.endsWith(QLatin1String(" ms")), udp) << qPrintable(r->jitter);
        }
    }
    EXPECT_EQ(delegate.count(QStringLiteral("testDidFinished")), 3);
    // One tool served all three: it kept running between tests.
    EXPECT_EQ(server.processId(), pid);
}

TEST_F(PerfServerRun, PortInUseRelaunchesAFewTimesASecondUntilStopped)
{
    RecordingDelegate first;
    const qint64 owner = listeningServer(first).processId();

    RecordingDelegate second;
    QList<qint64> errorTimes;
    QElapsedTimer clock;
    clock.start();
    second.onEvent = [&] { errorTimes << clock.elapsed(); };
    PerfServer &failing = listeningServer(second, false);
    ASSERT_TRUE(waitUntil([&] { return errorTimes.size() >= 4; }, 8s));
    EXPECT_TRUE(second.events.first().contains(QLatin1String("Address already in use")));
    for (int i = 1; i < errorTimes.size(); ++i)
        EXPECT_GE(errorTimes.at(i) - errorTimes.at(i - 1), 150) << "relaunch " << i;

    // Stop while the next relaunch is pending.
    ASSERT_TRUE(waitUntil([&] { return failing.processId() == 0; }, 5s));
    const qsizetype errorsAtStop = second.events.size();
    failing.stop();
    EXPECT_FALSE(waitUntil(
        [&] { return second.events.size() > errorsAtStop || toolGroups() != QSet<qint64>{owner}; }, 1s));
    EXPECT_TRUE(first.events.isEmpty());
}

TEST_F(PerfServerRun, StopInsideTheErrorCallbackEndsTheIntruder)
{
    RecordingDelegate first;
    const qint64 owner = listeningServer(first).processId();
    RecordingDelegate second;
    PerfServer &intruder = listeningServer(second, false);
    second.onEvent = [&] { intruder.stop(); }; // as the server tab does
    ASSERT_TRUE(waitUntil([&] { return !second.events.isEmpty(); }, 5s));
    ASSERT_TRUE(waitUntil([&] { return toolGroups() == QSet<qint64>{owner}; }, 5s));
    EXPECT_FALSE(waitUntil([&] { return second.events.size() > 1 || toolGroups() != QSet<qint64>{owner}; }, 1s));
}

TEST_F(PerfServerRun, StopDuringATestEndsEverythingAndReportsNothingMore)
{
    RecordingDelegate delegate;
    PerfServer &server = listeningServer(delegate);
    const qint64 pid = server.processId();
    client(QStringLiteral("-t 10"));
    ASSERT_TRUE(waitUntil([&] { return delegate.count(QStringLiteral("reportIntervalNew")) > 0; }, 5s));
    EXPECT_GE(groupMembers(pid).size(), 3); // shell, launcher, iperf3
    server.stop();
    const QStringList eventsAtStop = delegate.events;
    server.didReceivePerfTestRespnose(QStringLiteral("Finished_$#0.00-1.00 sec$#1$#8$#receiver\n"));
    ASSERT_TRUE(waitUntil([&] { return groupMembers(pid).isEmpty(); }, 5s));
    EXPECT_FALSE(waitUntil([&] { return delegate.events != eventsAtStop || !toolGroups().isEmpty(); }, 1s));
}

TEST_F(PerfServerRun, DestroyingTheServerEndsItsTool)
{
    RecordingDelegate delegate;
    const qint64 pid = listeningServer(delegate).processId();
    ASSERT_GE(groupMembers(pid).size(), 2);
    m_servers.clear();
    EXPECT_TRUE(groupMembers(pid).isEmpty());
}

} // namespace
