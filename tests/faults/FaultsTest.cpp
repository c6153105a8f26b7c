// Faults end to end: the application keeps working, tells the user, and
// leaves no process behind when its tools die, iperf3 is missing, the
// avahi-daemon goes away and comes back, or the application itself is
// terminated in the middle of a test. Each case prints the processes left
// under the test afterwards (target: none).
#include "FaultsSupport.h"

#include "PerfHelper/PerfServer.h"
#include "PerfHelper/PerfTest.h"
#include "Tidewave/TidewaveAppDelegate.h"
#include "app/AppTestSupport.h"
#include "client/ClientTab.h"
#include "common/TestEnvironment.h"
#include "discovery/AvahiSandbox.h"
#include "discovery/Server.h"
#include "discovery/ServerDiscoveryList.h"
#include "fakes/AppFakeReachabilitySource.h"
#include "server/ServerTabVIew.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QProcessEnvironment>
#include <QScopeGuard>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <iostream>

#include <signal.h>
#include <unistd.h>

using namespace std::chrono_literals;
using AppTestSupport::isListening;
using FaultsSupport::Process;

namespace {

QList<Process> launchersUnder(qint64 pid)
{
    QList<Process> found;
    for (const Process &process : FaultsSupport::descendantsOf(pid)) {
        // The kernel keeps 15 characters of a command name.
        if (QStringLiteral("mac-native-iperf").startsWith(process.name) && process.name.size() == 15)
            found.append(process);
    }
    return found;
}

// Prints what is left under this test process (the target is nothing) and
// answers it.
QList<Process> reportLeftovers(const char *when, const QList<qint64> &except = {})
{
    QList<Process> left;
    for (const Process &process : FaultsSupport::descendantsOf(::getpid())) {
        if (!except.contains(process.pid))
            left.append(process);
    }
    std::cout << "[ processes left " << when << " ] " << FaultsSupport::describe(left).toStdString() << std::endl;
    return left;
}

// The whole application in this process with its real tools; only
// reachability is faked (reachable from the start), so the server starts
// whatever this machine's routes are.
class RunningApp
{
public:
    RunningApp()
    {
        port = TestEnvironment::freeTcpPort();
        SettingsStore::standard().setObject(QString::number(port), QStringLiteral("serverPort"));
        reachability->flags = kReachabilityFlagReachable;
        TidewaveAppDelegate::Environment environment;
        environment.reachabilitySource = std::make_unique<AppFakeReachabilitySource>(reachability);
        environment.requestQuit = [] {};
        app = std::make_unique<TidewaveAppDelegate>(std::move(environment));
        NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showInfoMessage"),
                                                        [this](const QVariantMap &userInfo) {
                                                            const QString text =
                                                                userInfo.value(QStringLiteral("message")).toString();
                                                            if (!text.isEmpty())
                                                                messages.append(text);
                                                        });
        app->launch();
    }

    ~RunningApp()
    {
        NotificationCenter::defaultCenter().removeObserver(this);
        quit();
    }

    // What quitting does: the server stops, killall runs.
    void quit()
    {
        if (!app)
            return;
        app->applicationWillTerminateNotification();
        app.reset();
    }

    bool serving() const { return app->serverTab()->isRunning && isListening(port); }
    ClientTab &clientTab() const { return *app->clientTab(); }
    PerfHelperPtr newestTest() const
    {
        const auto &tests = app->clientTab()->testResultsArray();
        return tests.isEmpty() ? nullptr : tests.first();
    }
    bool clientIdle() const { return FaultsSupport::runButtonTitle(clientTab()) == ClientTab::kRunTitle; }

    quint16 port = 0;
    std::shared_ptr<AppFakeReachabilitySource::Control> reachability =
        std::make_shared<AppFakeReachabilitySource::Control>();
    std::unique_ptr<TidewaveAppDelegate> app;
    QStringList messages;
};

class Faults : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(FaultsSupport::becomeSubreaper()); }
};

// The engine hears of a tool's end only through its output: a tool killed
// without a word leaves a test that had data showing as running (the no-data
// time-out only acts on a test that never had any). The user stops it and
// runs the next one; nothing of the killed test may be left running.
TEST_F(Faults, ClientToolKilledMidTestEndsItsProcessesAndTheNextTestRuns)
{
    {
        RunningApp app;
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.serving(); }, 15s));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.clientTab().isSetUp(); }, 10s));

        // The application tests against its own server on loopback.
        FaultsSupport::startClientTest(app.clientTab(), QStringLiteral("127.0.0.1"), app.port, 10);
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.newestTest() && !app.newestTest()->resultss.isEmpty(); },
                                               10s))
            << "no interval from the first test";
        const qint64 shell = app.newestTest()->test().processId();
        const QList<Process> tools = FaultsSupport::descendantsOf(shell);
        const QList<Process> launchers = launchersUnder(shell);
        ASSERT_EQ(launchers.size(), 1) << FaultsSupport::describe(tools).toStdString();
        const qsizetype messagesBefore = app.messages.size();
        ASSERT_EQ(::kill(pid_t(launchers.first().pid), SIGKILL), 0);

        // The killed tool's shell and iperf3 end with it.
        EXPECT_TRUE(TestEnvironment::waitUntil(
            [&] {
                if (TestEnvironment::processAlive(shell))
                    return false;
                for (const Process &tool : tools) {
                    if (TestEnvironment::processAlive(tool.pid))
                        return false;
                }
                return true;
            },
            10s))
            << "left of the killed test: " << FaultsSupport::describe(FaultsSupport::descendantsOf(shell)).toStdString();
        const bool ended = TestEnvironment::waitUntil([&] { return app.clientIdle(); }, 3s);
        std::cout << "after the kill: run button \"" << FaultsSupport::runButtonTitle(app.clientTab()).toStdString()
                  << "\", messages: \"" << app.messages.mid(messagesBefore).join(QStringLiteral(" | ")).toStdString()
                  << "\"" << std::endl;
        if (!ended) {
            // What the user does: press "Stop Test".
            FaultsSupport::startClientTest(app.clientTab(), QStringLiteral("127.0.0.1"), app.port, 2);
            ASSERT_TRUE(app.clientIdle());
        }
        EXPECT_EQ(app.newestTest()->isTestRunning, 0);

        const PerfHelperPtr killed = app.newestTest();
        FaultsSupport::startClientTest(app.clientTab(), QStringLiteral("127.0.0.1"), app.port, 2);
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.newestTest() != killed; }, 5s)) << "no next test";
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.clientIdle(); }, 20s)) << "the next test never ended";
        EXPECT_GE(app.newestTest()->resultss.size(), 2) << "the next test brought no results";
        EXPECT_EQ(app.newestTest()->isTestRunning, 0);
    }
    EXPECT_TRUE(TestEnvironment::waitUntil([] { return FaultsSupport::descendantsOf(::getpid()).isEmpty(); }, 10s));
    EXPECT_TRUE(reportLeftovers("after a client tool was killed").isEmpty());
}

TEST_F(Faults, ServerToolKilledIsRestartedAndServesTheNextTest)
{
    {
        RunningApp app;
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.serving(); }, 15s));
        const qint64 group = app.app->serverTab()->server->processId();
        const QList<Process> launchers = launchersUnder(group);
        ASSERT_EQ(launchers.size(), 1);
        ASSERT_EQ(::kill(pid_t(launchers.first().pid), SIGKILL), 0);

        ASSERT_TRUE(TestEnvironment::waitUntil(
            [&] {
                const qint64 now = app.app->serverTab()->server->processId();
                return now > 0 && now != group && isListening(app.port) && launchersUnder(now).size() == 1;
            },
            15s))
            << "the server tool was not started again";
        EXPECT_FALSE(TestEnvironment::processAlive(group));

        QProcess client;
        client.setProcessChannelMode(QProcess::MergedChannels);
        client.start(QStringLiteral("iperf3"), {QStringLiteral("-c"), QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                                                QString::number(app.port), QStringLiteral("-t"), QStringLiteral("2")});
        ASSERT_TRUE(client.waitForStarted(5000));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return client.state() == QProcess::NotRunning; }, 20s));
        EXPECT_EQ(client.exitCode(), 0) << client.readAll().toStdString();
        ServerTabVIew *tab = app.app->serverTab();
        EXPECT_TRUE(TestEnvironment::waitUntil(
            [&] {
                return tab->serverTestResultsArray.size() == 1
                    && !tab->serverTestResultsArray.first()->finalResults.isEmpty();
            },
            15s))
            << "the restarted server did not report the test";
    }
    EXPECT_TRUE(TestEnvironment::waitUntil([] { return FaultsSupport::descendantsOf(::getpid()).isEmpty(); }, 10s));
    EXPECT_TRUE(reportLeftovers("after the server tool was killed").isEmpty());
}

TEST_F(Faults, DiscoveryComesBackAfterTheAvahiDaemonRestarts)
{
    REQUIRE_AVAHI_SANDBOX();
    // The confined daemon and its bus are the sandbox's: it is taken down
    // when this case ends, however it ends, so they are counted neither
    // against this case nor against the ones after it.
    auto sandboxDown = qScopeGuard([] { AvahiSandbox::shutdown(); });
    {
        RunningApp app;
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.serving(); }, 15s));
        ASSERT_TRUE(
            TestEnvironment::waitUntil([&] { return app.app->discoveryList()->server() != nullptr; }, 15s))
            << "the application published nothing";

        auto peer = Server::withProtocol(ServerDiscoveryList::ProtocolWord, QStringLiteral("Peer,5201,10_0_0_9,eth0"));
        ASSERT_TRUE(peer->start());
        ServerDiscoveryList &list = *app.app->discoveryList();
        const auto peerListed = [&] {
            return list.rowCount() == 1 && list.cellValue(0, QStringLiteral("Service")) == QLatin1String("Peer");
        };
        ASSERT_TRUE(TestEnvironment::waitUntil(peerListed, 15s)) << "the peer was never listed";

        sandbox->stopAvahi();
        EXPECT_TRUE(TestEnvironment::waitUntil([&] { return list.rowCount() == 0; }, 10s))
            << "the peer stays listed without a daemon";
        ASSERT_TRUE(sandbox->startAvahi());
        const bool back = TestEnvironment::waitUntil(peerListed, 20s);
        std::cout << "after the daemon's return: " << list.rowCount() << " row(s), own services "
                  << app.app->discoveryList()->servicesName().join(QStringLiteral(", ")).toStdString() << std::endl;
        EXPECT_TRUE(back) << "discovery did not come back";
        EXPECT_TRUE(TestEnvironment::waitUntil([&] { return list.server() && list.server()->isPublished(); }, 10s))
            << "this computer's service was not published again";
        EXPECT_TRUE(app.serving()) << "the measurement server suffered from the daemon's absence";
    }
    sandboxDown.dismiss();
    AvahiSandbox::shutdown();
    EXPECT_TRUE(reportLeftovers("after the avahi restart").isEmpty());
}

// ---- the application as its own process ------------------------------------

// Private user folders for a child application, its server on a free port.
struct AppHome
{
    AppHome()
    {
        serverPort = TestEnvironment::freeTcpPort();
        QSettings settings(home.filePath(QStringLiteral("config/norvale/Tidewave.conf")), QSettings::IniFormat);
        settings.setValue(QStringLiteral("serverPort"), QString::number(serverPort));
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        return env;
    }

    QTemporaryDir home;
    quint16 serverPort = 0;
};

// A child process whose merged output is collected as it comes.
class Child
{
public:
    explicit Child(const QProcessEnvironment &environment)
    {
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_process, &QProcess::readyRead, &m_process, [this] { output += m_process.readAll(); });
    }
    ~Child()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    bool start(const QString &program, const QStringList &arguments)
    {
        m_process.start(program, arguments);
        return m_process.waitForStarted(5000);
    }
    bool says(const QByteArray &text) const { return output.contains(text); }
    // The last "intervals N" count the application printed, 0 before any.
    int intervals() const
    {
        const qsizetype at = output.lastIndexOf("intervals ");
        return at < 0 ? 0 : output.mid(at + 10, 12).split('\n').value(0).trimmed().toInt();
    }
    bool ended() const { return m_process.state() == QProcess::NotRunning; }
    qint64 pid() const { return m_process.processId(); }
    QProcess &process() { return m_process; }

    QByteArray output;

private:
    QProcess m_process;
};

TEST_F(Faults, WithoutIperf3AClientTestFailsClearlyAndNothingHangs)
{
    // The launcher runs the iperf3 found when it was built; an empty file
    // bind-mounted over it, in a mount namespace of the application's own,
    // makes it unusable for the application alone.
    QTemporaryDir scratch;
    const QString empty = scratch.filePath(QStringLiteral("empty"));
    ASSERT_TRUE(QFile(empty).open(QIODevice::WriteOnly));
    QProcess probe;
    probe.start(QStringLiteral("unshare"), {QStringLiteral("--mount"), QStringLiteral("--propagation"),
                                            QStringLiteral("private"), QStringLiteral("mount"), QStringLiteral("--bind"),
                                            empty, QStringLiteral(TIDEWAVE_IPERF3_PATH)});
    if (!probe.waitForFinished(10000) || probe.exitCode() != 0)
        GTEST_SKIP() << "no private mount namespace here: " << probe.readAllStandardError().toStdString();

    const quint16 nobody = TestEnvironment::freeTcpPort();
    {
        AppHome home;
        Child app(home.environment());
        ASSERT_TRUE(app.start(QStringLiteral("unshare"),
                              {QStringLiteral("--mount"), QStringLiteral("--propagation"), QStringLiteral("private"),
                               QStringLiteral("sh"), QStringLiteral("-c"),
                               QStringLiteral("mount --bind \"$0\" %1 && exec \"$@\"").arg(TIDEWAVE_IPERF3_PATH), empty,
                               TestEnvironment::binDir() + QStringLiteral("/tidewave_fault_app"),
                               QStringLiteral("--client"), QStringLiteral("127.0.0.1"), QString::number(nobody),
                               QStringLiteral("2")}));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.says("running 1"); }, 15s)) << app.output.toStdString();
        // Failed at once with the reason, not by the no-data time-out (8 s
        // for a 2 s test).
        const bool ended = TestEnvironment::waitUntil([&] { return app.says("running 0"); }, 6s);
        std::cout << "application output:\n" << app.output.toStdString() << std::endl;
        EXPECT_TRUE(ended) << "the client test did not fail at once";
        EXPECT_TRUE(app.says("message Unable to perform test..mac-native-iperf: error - cannot run"))
            << "the user is not told why";

        // Meanwhile the server side has no tool either: count how often it
        // was started again within two seconds.
        QSet<qint64> seen;
        TestEnvironment::waitUntil(
            [&] {
                for (const Process &launcher : launchersUnder(app.pid()))
                    seen.insert(launcher.pid);
                return false;
            },
            2s);
        std::cout << "server tool starts within 2 s without iperf3: " << seen.size() << std::endl;

        ASSERT_EQ(::kill(pid_t(app.pid()), SIGTERM), 0);
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.ended(); }, 15s)) << "the application hangs on quit";
        EXPECT_EQ(app.process().exitCode(), 0);
    }
    EXPECT_TRUE(TestEnvironment::waitUntil([] { return FaultsSupport::descendantsOf(::getpid()).isEmpty(); }, 10s));
    EXPECT_TRUE(reportLeftovers("without iperf3").isEmpty());
}

TEST_F(Faults, ApplicationTerminatedDuringAClientTestLeavesNoTool)
{
    // A stock server for the application's client to measure against.
    const quint16 port = TestEnvironment::freeTcpPort();
    Child server(QProcessEnvironment::systemEnvironment());
    ASSERT_TRUE(server.start(QStringLiteral("iperf3"), {QStringLiteral("-s"), QStringLiteral("-p"), QString::number(port)}));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return isListening(port); }, 10s));
    {
        AppHome home;
        Child app(home.environment());
        ASSERT_TRUE(app.start(TestEnvironment::binDir() + QStringLiteral("/tidewave_fault_app"),
                              {QStringLiteral("--client"), QStringLiteral("127.0.0.1"), QString::number(port),
                               QStringLiteral("30")}));
        // Intervals may arrive two to a chunk, so the count can step past 2.
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.intervals() >= 2; }, 20s)) << app.output.toStdString();
        const QList<Process> tools = FaultsSupport::descendantsOf(app.pid());
        std::cout << "application's processes mid-test: " << FaultsSupport::describe(tools).toStdString() << std::endl;
        ASSERT_GE(launchersUnder(app.pid()).size(), 1);

        ASSERT_EQ(::kill(pid_t(app.pid()), SIGTERM), 0);
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.ended(); }, 15s)) << "the application hangs on quit";
        EXPECT_EQ(app.process().exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(app.process().exitCode(), 0);
        EXPECT_TRUE(TestEnvironment::waitUntil(
            [&] {
                for (const Process &tool : tools) {
                    if (TestEnvironment::processAlive(tool.pid))
                        return false;
                }
                return true;
            },
            10s))
            << "a tool outlived the application";
    }
    EXPECT_TRUE(reportLeftovers("after the application was terminated mid-test", {server.pid()}).isEmpty());
}

TEST_F(Faults, ApplicationTerminatedDuringAnIncomingTestLeavesNoTool)
{
    if (!AppTestSupport::hasDefaultRoute())
        GTEST_SKIP() << "no default route: the application's server never starts here";
    AppHome home;
    {
        Child app(home.environment());
        ASSERT_TRUE(app.start(TestEnvironment::binDir() + QStringLiteral("/tidewave"), {}));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return isListening(home.serverPort); }, 20s))
            << app.output.toStdString();

        Child client(QProcessEnvironment::systemEnvironment());
        ASSERT_TRUE(client.start(QStringLiteral("iperf3"), {QStringLiteral("-c"), QStringLiteral("127.0.0.1"),
                                                            QStringLiteral("-p"), QString::number(home.serverPort),
                                                            QStringLiteral("-t"), QStringLiteral("30"),
                                                            QStringLiteral("--forceflush")}));
        // The second interval ends near 2 s; iperf3 may print its start as 1.01.
        const QRegularExpression secondInterval(QStringLiteral("-\\s*2\\.\\d\\d\\s+sec"));
        ASSERT_TRUE(TestEnvironment::waitUntil(
            [&] { return secondInterval.match(QString::fromLatin1(client.output)).hasMatch(); }, 15s))
            << client.output.toStdString();
        const QList<Process> tools = FaultsSupport::descendantsOf(app.pid());

        ASSERT_EQ(::kill(pid_t(app.pid()), SIGTERM), 0);
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app.ended(); }, 15s)) << "the application hangs on quit";
        EXPECT_EQ(app.process().exitCode(), 0);
        EXPECT_TRUE(TestEnvironment::waitUntil([&] { return client.ended(); }, 15s))
            << "the client was not let go";
        EXPECT_TRUE(TestEnvironment::waitUntil(
            [&] {
                for (const Process &tool : tools) {
                    if (TestEnvironment::processAlive(tool.pid))
                        return false;
                }
                return !isListening(home.serverPort);
            },
            10s))
            << "the server tool outlived the application";
    }
    EXPECT_TRUE(reportLeftovers("after the application was terminated while serving").isEmpty());
}

} // namespace
