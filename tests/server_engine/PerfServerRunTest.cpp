// The server engine against the real launcher and stock iperf3 clients, on
// loopback ports only.
#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"
#include "server_engine/RecordingDelegate.h"
#include "server_engine/ToolProcesses.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QProcess>

#include <memory>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;

namespace {

class PerfServerRun : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_placeError = ToolProcesses::placeLauncher(); }

    void SetUp() override
    {
        ASSERT_TRUE(s_placeError.isEmpty()) << qPrintable(s_placeError);
        m_port = TestEnvironment::freeTcpPort();
        ASSERT_NE(m_port, 0);
    }

    void TearDown() override
    {
        // Whatever a failed test left behind goes now.
        m_servers.clear();
        for (auto &client : m_clients) {
            if (client->state() != QProcess::NotRunning) {
                client->kill();
                client->waitForFinished(2000);
            }
        }
        EXPECT_TRUE(waitUntil([] { return ToolProcesses::toolGroups().isEmpty(); }, 5s));
    }

    PerfServer &startServer(PerfServerDelegate &delegate)
    {
        auto server = std::make_unique<PerfServer>();
        server->setDelegate(&delegate);
        server->setPort(m_port);
        server->run();
        m_servers.push_back(std::move(server));
        return *m_servers.back();
    }

    QProcess &startClient(const QStringList &options)
    {
        auto client = std::make_unique<QProcess>();
        client->setProgram(QStringLiteral("iperf3"));
        client->setArguments(QStringList{QStringLiteral("-c"), QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                                         QString::number(m_port)}
                             + options);
        client->setProcessChannelMode(QProcess::MergedChannels);
        client->start();
        m_clients.push_back(std::move(client));
        return *m_clients.back();
    }

    bool listening() const { return ToolProcesses::tcpPortListening(m_port); }

    static QString s_placeError;
    quint16 m_port = 0;
    std::vector<std::unique_ptr<PerfServer>> m_servers;
    std::vector<std::unique_ptr<QProcess>> m_clients;
};

QString PerfServerRun::s_placeError;

struct ClientRun
{
    QStringList options;  // iperf3 client options besides -c/-p
    QString role;         // typeName of the server's interval and final records
    bool udp;             // whether records carry jitter and loss
};

TEST_F(PerfServerRun, ServesTestsInARowAndKeepsServing)
{
    RecordingDelegate delegate;
    PerfServer &server = startServer(delegate);
    ASSERT_TRUE(waitUntil([&] { return listening(); }, 5s));

    // The shell runs exactly the command the engine built.
    const qint64 pid = server.processId();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(server.iperfOptions(), (QStringList{QStringLiteral("./iperf3 "), QStringLiteral("-s"),
                                                  QStringLiteral("-p %1").arg(m_port)}));
    const QString command = QStringLiteral("\"%1\" ./iperf3  -s -p %2")
                                .arg(TidewaveUtils::getiPerfExecutablePath())
                                .arg(m_port);
    EXPECT_EQ(server.shellCommand(), command);
    EXPECT_EQ(ToolProcesses::commandLine(pid), (QStringList{QStringLiteral("/bin/sh"), QStringLiteral("-c"), command}));

    const QList<ClientRun> runs{
        {{QStringLiteral("-t"), QStringLiteral("2")}, QStringLiteral("receiver"), false},
        {{QStringLiteral("-u"), QStringLiteral("-t"), QStringLiteral("2")}, QStringLiteral("receiver"), true},
        {{QStringLiteral("-R"), QStringLiteral("-t"), QStringLiteral("2")}, QStringLiteral("sender"), false},
    };
    for (qsizetype i = 0; i < runs.size(); ++i) {
        const ClientRun &run = runs.at(i);
        SCOPED_TRACE(run.options.join(QLatin1Char(' ')).toStdString());
        QProcess &client = startClient(run.options);
        ASSERT_TRUE(waitUntil([&] { return client.state() == QProcess::NotRunning; }, 15s));
        ASSERT_EQ(client.exitCode(), 0) << client.readAll().toStdString();
        ASSERT_TRUE(waitUntil([&] { return delegate.finished.size() == i + 1; }, 5s));

        const iPerfServerResultsPtr test = delegate.finished.at(i);
        if (i > 0) {
            EXPECT_NE(test, delegate.finished.at(i - 1));
        }
        ASSERT_GE(test->intervalResults.size(), 2);
        ASSERT_GE(test->finalResults.size(), 1);
        for (const PerfResultList &records : {test->intervalResults, test->finalResults}) {
            for (const PerfResultPtr &record : records) {
                EXPECT_EQ(record->ip, QStringLiteral("127.0.0.1"));
                EXPECT_EQ(record->typeName, run.role);
                EXPECT_GT(record->receivedBandwidth, 0.0f);
                EXPECT_EQ(record->jitter.endsWith(QLatin1String(" ms")), run.udp) << qPrintable(record->jitter);
                EXPECT_EQ(record->lostTotalDataGrams.contains(QLatin1Char('/')), run.udp);
            }
        }
        EXPECT_TRUE(test->intervalResults.first()->intervals.startsWith(QLatin1String("0.00-")))
            << qPrintable(test->intervalResults.first()->intervals);
        EXPECT_TRUE(test->finalResults.first()->intervals.startsWith(QLatin1String("0.00-")));
        EXPECT_GT(test->finalResults.first()->receivedBytes, 0.0f);
    }
    EXPECT_EQ(delegate.count(QStringLiteral("testDidFinished")), 3);
    EXPECT_EQ(delegate.count(QStringLiteral("serverError")), 0);
    // The same tool served every test: no relaunch happened.
    EXPECT_EQ(server.processId(), pid);

    server.stop();
    EXPECT_TRUE(server.hasCancelled());
    EXPECT_TRUE(waitUntil([&] { return ToolProcesses::groupMembers(pid).isEmpty(); }, 5s));
}

TEST_F(PerfServerRun, PortInUseIsReportedAndStopEndsTheRelaunching)
{
    RecordingDelegate first;
    PerfServer &owner = startServer(first);
    ASSERT_TRUE(waitUntil([&] { return listening(); }, 5s));
    const qint64 ownerPid = owner.processId();

    // Like the server tab: stop on the error.
    RecordingDelegate second;
    PerfServer &intruder = startServer(second);
    second.onEvent = [&intruder] { intruder.stop(); };
    ASSERT_TRUE(waitUntil([&] { return second.count(QStringLiteral("serverError:")) > 0; }, 5s));
    EXPECT_TRUE(second.events.first().contains(QLatin1String("Address already in use")))
        << qPrintable(second.events.first());
    EXPECT_TRUE(intruder.isStop());

    // Only the first server's tool is left, and no relaunch follows.
    ASSERT_TRUE(waitUntil([&] { return ToolProcesses::toolGroups() == QSet<qint64>{ownerPid}; }, 5s));
    EXPECT_FALSE(waitUntil(
        [&] { return second.events.size() > 1 || ToolProcesses::toolGroups() != QSet<qint64>{ownerPid}; }, 1s));
    EXPECT_EQ(owner.processId(), ownerPid);
    EXPECT_TRUE(first.events.isEmpty());
}

TEST_F(PerfServerRun, FailingToolIsRelaunchedAtAFewPerSecondUntilStopped)
{
    RecordingDelegate first;
    PerfServer &owner = startServer(first);
    ASSERT_TRUE(waitUntil([&] { return listening(); }, 5s));
    const qint64 ownerPid = owner.processId();

    // Nobody stops this one on its error: it keeps relaunching.
    RecordingDelegate second;
    QList<qint64> errorTimes;
    QElapsedTimer clock;
    clock.start();
    second.onEvent = [&] { errorTimes << clock.elapsed(); };
    PerfServer &failing = startServer(second);
    ASSERT_TRUE(waitUntil([&] { return errorTimes.size() >= 4; }, 8s));
    for (qsizetype i = 1; i < errorTimes.size(); ++i)
        EXPECT_GE(errorTimes.at(i) - errorTimes.at(i - 1), 150) << "relaunch " << i;

    // Stop while a relaunch is pending (between two tools).
    ASSERT_TRUE(waitUntil([&] { return failing.processId() == 0; }, 5s));
    const qsizetype errorsAtStop = second.events.size();
    failing.stop();
    EXPECT_TRUE(failing.hasCancelled());
    EXPECT_FALSE(waitUntil([&] { return failing.processId() != 0 || second.events.size() > errorsAtStop; }, 1s));
    EXPECT_TRUE(waitUntil([&] { return ToolProcesses::toolGroups() == QSet<qint64>{ownerPid}; }, 5s));
}

TEST_F(PerfServerRun, StopDuringATestEndsEverythingAndReportsNothingMore)
{
    RecordingDelegate delegate;
    PerfServer &server = startServer(delegate);
    ASSERT_TRUE(waitUntil([&] { return listening(); }, 5s));
    const qint64 pid = server.processId();

    QProcess &client = startClient({QStringLiteral("-t"), QStringLiteral("10")});
    ASSERT_TRUE(waitUntil([&] { return delegate.tests.size() >= 1; }, 5s));
    ASSERT_GE(ToolProcesses::groupMembers(pid).size(), 3); // shell, launcher, iperf3
    server.stop();
    const QStringList eventsAtStop = delegate.events;

    // Output already on its way, and output replayed by hand, are ignored.
    server.didReceivePerfTestRespnose(QStringLiteral("Finished_$#0.00-1.00 sec$#1$#8$#receiver\n"));
    ASSERT_TRUE(waitUntil([&] { return ToolProcesses::groupMembers(pid).isEmpty(); }, 5s));
    ASSERT_TRUE(waitUntil([&] { return client.state() == QProcess::NotRunning; }, 15s));
    EXPECT_FALSE(waitUntil(
        [&] { return delegate.events != eventsAtStop || !ToolProcesses::toolGroups().isEmpty(); }, 1s));
}

TEST_F(PerfServerRun, DestroyingTheServerEndsItsTool)
{
    RecordingDelegate delegate;
    PerfServer &server = startServer(delegate);
    ASSERT_TRUE(waitUntil([&] { return listening(); }, 5s));
    const qint64 pid = server.processId();
    ASSERT_GE(ToolProcesses::groupMembers(pid).size(), 2);
    m_servers.clear();
    EXPECT_TRUE(ToolProcesses::groupMembers(pid).isEmpty());
    EXPECT_FALSE(listening());
}

} // namespace
