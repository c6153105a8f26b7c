// The application keeps working, tells the user, and leaves no process behind when its tools die, iperf3
// is unusable, avahi-daemon restarts, or it is terminated mid-test. Each case prints what it left (target: none).
#include "app/AppHarness.h"

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfServer.h"
#include "PerfHelper/PerfTest.h"
#include "discovery/AvahiSandbox.h"
#include "discovery/Server.h"
#include "discovery/ServerDiscoveryList.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <unistd.h>

namespace {

using TestEnvironment::processAlive;

QList<Process> launchersUnder(qint64 pid)
{
    QList<Process> found = descendantsOf(pid);
    found.removeIf([](const Process &process) { return process.name != u"mac-native-iper"_s; });
    return found;
}

// The whole application in this process with its real tools, reachable.
class Faults : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); } // lost tools' orphans show under us
    void TearDown() override
    {
        app->applicationWillTerminateNotification(), app.delegate.reset();
        const auto ours = [] { // the avahi sandbox's daemons stay for the whole program
            QList<Process> left = descendantsOf(::getpid());
            left.removeIf([](const Process &process) { return process.name.endsWith(u"-daemon"_s); });
            return left;
        };
        waitUntil([&] { return ours().isEmpty(); }, 10s);
        EXPECT_TRUE(reportLeft(::testing::UnitTest::GetInstance()->current_test_info()->name(), ours()).isEmpty());
    }
    void launch()
    {
        app.reachability->setFlags(kReachabilityFlagReachable);
        app->launch();
        ASSERT_TRUE(waitUntil([&] { return app.serving(); }, 15s));
    }
    PerfHelperPtr newest() const { return app->clientTab()->testResultsArray().value(0); }

    LocalApp app;
};

// A killed server tool is started again. The client engine hears of its tool's end only through the
// tool's output, so a test that had data may still show as running; the user then stops it.
TEST_F(Faults, KilledToolsEndWithTheirProcessesAndTheNextTestsRun)
{
    launch();
    const qint64 group = app->serverTab()->server->processId();
    ASSERT_EQ(launchersUnder(group).size(), 1);
    ASSERT_EQ(::kill(pid_t(launchersUnder(group).first().pid), SIGKILL), 0);
    ASSERT_TRUE(waitUntil([&] {
        const qint64 now = app->serverTab()->server->processId();
        return now > 0 && now != group && app.serving() && launchersUnder(now).size() == 1 && !processAlive(group);
    }, 15s)) << "the server tool was not started again";

    ClientTab &tab = *app->clientTab();
    ASSERT_TRUE(waitUntil([&] { return tab.isSetUp(); }, 10s));
    startClientTest(tab, u"127.0.0.1"_s, app.port, 10); // against its own, restarted server
    ASSERT_TRUE(waitUntil([&] { return newest() && !newest()->resultss.isEmpty(); }, 10s));
    const qint64 shell = newest()->test().processId();
    const QList<Process> tools = descendantsOf(shell), launchers = launchersUnder(shell);
    ASSERT_EQ(launchers.size(), 1);
    ASSERT_EQ(::kill(pid_t(launchers.first().pid), SIGKILL), 0);
    EXPECT_TRUE(waitUntil([&] {
        return !processAlive(shell) && std::none_of(tools.cbegin(), tools.cend(), [](const Process &p) { return processAlive(p.pid); });
    }, 10s));
    if (!waitUntil([&] { return !clientRunning(tab); }, 1s))
        startClientTest(tab, u"127.0.0.1"_s, app.port, 1); // "Stop Test"
    EXPECT_TRUE(!clientRunning(tab) && newest()->isTestRunning == 0);

    const PerfHelperPtr killed = newest();
    startClientTest(tab, u"127.0.0.1"_s, app.port, 1);
    ASSERT_TRUE(waitUntil([&] { return newest() != killed && !clientRunning(tab); }, 15s)) << "the next test never ended";
    EXPECT_FALSE(newest()->resultss.isEmpty()) << "the next test brought no results";
    const auto &served = app->serverTab()->serverTestResultsArray;
    EXPECT_TRUE(served.size() == 2 && !served.first()->finalResults.isEmpty()) << "the server reported " << served.size() << " tests";
}

TEST_F(Faults, DiscoveryComesBackAfterTheAvahiDaemonRestarts)
{
    REQUIRE_AVAHI_SANDBOX();
    launch();
    ServerDiscoveryList &list = *app->discoveryList();
    const auto published = [&] { return list.server() && list.server()->isPublished(); };
    ASSERT_TRUE(waitUntil(published, 15s)) << "nothing published";
    auto peer = Server::withProtocol(ServerDiscoveryList::ProtocolWord, u"Peer,5201,10_0_0_9,eth0"_s);
    ASSERT_TRUE(peer->start());
    const auto peerListed = [&] { return list.rowCount() == 1 && list.cellValue(0, u"Service"_s) == u"Peer"_s; };
    ASSERT_TRUE(waitUntil(peerListed, 15s)) << "the peer was never listed";

    sandbox->stopAvahi();
    EXPECT_TRUE(waitUntil([&] { return list.rowCount() == 0; }, 10s)) << "the peer stays listed without a daemon";
    ASSERT_TRUE(sandbox->startAvahi());
    EXPECT_TRUE(waitUntil(peerListed, 20s)) << "discovery did not come back";
    EXPECT_TRUE(waitUntil(published, 10s)) << "not published again";
    EXPECT_TRUE(app.serving()) << "the measurement server suffered from the daemon's absence";
}


TEST(FaultsApart, WithoutIperf3AClientTestFailsAtOnceWithTheReasonAndNothingHangs)
{
    QTemporaryDir scratch; // an empty file mounted over the iperf3 the launcher runs, for the application only
    ASSERT_TRUE(QFile(scratch.filePath(u"empty"_s)).open(QIODevice::WriteOnly));
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave_fault_app"_s, {u"127.0.0.1"_s, u"5202"_s, u"2"_s},
                    u"mount --bind '%1' '%2' || exit 1;"_s.arg(scratch.filePath(u"empty"_s), QStringLiteral(TIDEWAVE_IPERF3_PATH)));
    ASSERT_TRUE(app.waitFor("running 1", 15s)) << app.output.toStdString();
    // At once, not by the no-data time-out (8 s for a 2 s test).
    EXPECT_TRUE(app.waitFor("running 0", 6s) && app.output.contains("message Unable to perform test..mac-native-iperf: error - cannot run"))
        << app.output.toStdString();
    EXPECT_EQ(app.end(SIGTERM), 0) << "the application hangs on quit";
    EXPECT_TRUE(app.left("without iperf3").isEmpty());
}

TEST(FaultsApart, ApplicationTerminatedDuringAClientTestLeavesNoTool)
{
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave_fault_app"_s, {u"127.0.0.1"_s, u"5202"_s, u"30"_s},
                    u"iperf3 -s -p 5202 & helper=$!;"_s);
    const QRegularExpression twoIntervals(u"intervals ([2-9]|\\d\\d)"_s); // they may arrive two to a chunk
    ASSERT_TRUE(waitUntil([&] { return twoIntervals.match(QString::fromLatin1(app.output)).hasMatch(); }, 15s)) << app.output.toStdString();
    ASSERT_GE(launchersUnder(app.pid()).size(), 2) << "a client and a server tool";
    EXPECT_EQ(app.end(SIGTERM), 0) << app.output.toStdString();
    EXPECT_TRUE(app.left("after the application was terminated mid-test").isEmpty());
}

TEST(FaultsApart, ApplicationKilledOutrightTakesItsToolsWithItWithinASecond)
{
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave_fault_app"_s, {u"127.0.0.1"_s, u"5202"_s, u"30"_s},
                    u"iperf3 -s -p 5202 & helper=$!;"_s);
    const QRegularExpression twoIntervals(u"intervals ([2-9]|\\d\\d)"_s);
    ASSERT_TRUE(waitUntil([&] { return twoIntervals.match(QString::fromLatin1(app.output)).hasMatch() && app.listening(5201); }, 15s))
        << app.output.toStdString();
    ASSERT_GE(launchersUnder(app.pid()).size(), 2) << "a client and a server tool";
    EXPECT_EQ(app.end(SIGKILL), 128 + SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return descendantsOf(app.shell()).isEmpty() && !app.listening(5201); }, 1s));
    EXPECT_TRUE(app.left("after the application was killed outright").isEmpty());
}

TEST(FaultsApart, ApplicationTerminatedDuringAnIncomingTestLeavesNoToolAndLetsTheClientGo)
{
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave"_s, {});
    ASSERT_TRUE(waitUntil([&] { return app.listening(5201); }, 20s)) << app.output.toStdString();
    QProcess client;
    client.start(u"nsenter"_s, app.inside() + QStringList{u"iperf3"_s, u"-c"_s, u"127.0.0.1"_s, u"-t"_s, u"30"_s, u"--forceflush"_s});
    const QRegularExpression secondInterval(u"-\\s*2\\.\\d\\d\\s+sec"_s); // ends near 2 s; the start may read 1.01
    QByteArray said;
    ASSERT_TRUE(waitUntil([&] { return secondInterval.match(QString::fromLatin1(said += client.readAll())).hasMatch(); }, 15s)) << said.toStdString();
    EXPECT_EQ(app.end(SIGTERM), 0) << app.output.toStdString();
    EXPECT_TRUE(waitUntil([&] { return client.state() == QProcess::NotRunning; }, 15s)) << "the client was not let go";
    EXPECT_TRUE(app.left("after the application was terminated while serving").isEmpty());
}

} // namespace
