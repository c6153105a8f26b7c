#include "Tidewave/TidewaveAppDelegate.h"

#include "PerfHelper/PerfServer.h"
#include "app/AppTestSupport.h"
#include "common/TestEnvironment.h"
#include "fakes/AppFakeReachabilitySource.h"
#include "server/TestFinishedResultCellView.h"
#include "shell/SettingsStore.h"

#include <QLabel>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <signal.h>

using namespace std::chrono_literals;
using AppTestSupport::isListening;
using AppTestSupport::processesUsingPort;

namespace {

// The whole application in this process with the real launcher, the real
// killall and a stock iperf3 client on loopback; only reachability is faked
// (reachable from the start).
TEST(AppEndToEnd, ServesAStockIperf3ClientAndLeavesNothingRunning)
{
    const quint16 port = TestEnvironment::freeTcpPort();
    ASSERT_NE(port, 0);
    SettingsStore::standard().setObject(QString::number(port), QStringLiteral("serverPort"));

    auto reachability = std::make_shared<AppFakeReachabilitySource::Control>();
    reachability->flags = kReachabilityFlagReachable;
    TidewaveAppDelegate::Environment environment;
    environment.reachabilitySource = std::make_unique<AppFakeReachabilitySource>(reachability);
    environment.requestQuit = [] {};
    auto app = std::make_unique<TidewaveAppDelegate>(std::move(environment));
    app->launch();

    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app->serverTab()->isRunning && isListening(port); }, 15s))
        << "no server listening on " << port;
    const qint64 toolGroup = app->serverTab()->server->processId();
    ASSERT_GT(toolGroup, 0);

    QProcess client;
    client.setProcessChannelMode(QProcess::MergedChannels);
    client.start(QStringLiteral("iperf3"), {QStringLiteral("-c"), QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                                            QString::number(port), QStringLiteral("-t"), QStringLiteral("2")});
    ASSERT_TRUE(client.waitForStarted(5000));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return client.state() == QProcess::NotRunning; }, 30s));
    ASSERT_EQ(client.exitCode(), 0) << client.readAll().toStdString();

    ServerTabVIew *tab = app->serverTab();
    ASSERT_TRUE(TestEnvironment::waitUntil(
        [&] { return tab->serverTestResultsArray.size() == 1 && !tab->serverTestResultsArray.first()->finalResults.isEmpty(); },
        15s));
    const iPerfServerResultsPtr test = tab->serverTestResultsArray.first();
    EXPECT_GE(test->intervalResults.size(), 2);
    TestFinishedResultCellView *cell = tab->cellForRow(0);
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->textField->text(), QStringLiteral("From 127.0.0.1 To This Computer"));
    EXPECT_EQ(tab->rowHeight(0), 95 + 10 * static_cast<int>(test->intervalResults.size()));
    EXPECT_NE(cell->bandwidthTextField->text(), QStringLiteral("-")) << "no whole-test summary";

    app->applicationWillTerminateNotification();
    EXPECT_TRUE(TestEnvironment::waitUntil(
        [&] { return !isListening(port) && processesUsingPort(port).isEmpty() && !TestEnvironment::processAlive(toolGroup); },
        10s))
        << "left running: " << processesUsingPort(port).size() << " processes";
    app.reset();
}

// The built application, started as a user would, quits in order on the
// signals a terminal or a session logout sends: the server tab stops its
// server, killall runs, the exit status is 0 and no tool is left.
class AppSignals : public ::testing::TestWithParam<int>
{
};

TEST_P(AppSignals, QuitInOrderAndLeaveNoTool)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    const quint16 port = TestEnvironment::freeTcpPort();
    {
        QSettings settings(home.filePath(QStringLiteral("config/norvale/Tidewave.conf")), QSettings::IniFormat);
        settings.setValue(QStringLiteral("serverPort"), QString::number(port));
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));

    QProcess tidewave;
    tidewave.setProcessEnvironment(env);
    tidewave.setProcessChannelMode(QProcess::MergedChannels);
    QByteArray output;
    QObject::connect(&tidewave, &QProcess::readyRead, &tidewave, [&] { output += tidewave.readAll(); });
    tidewave.start(TestEnvironment::binDir() + QStringLiteral("/tidewave"), {});
    ASSERT_TRUE(tidewave.waitForStarted(5000));
    const auto stopApp = qScopeGuard([&] {
        if (tidewave.state() != QProcess::NotRunning) {
            tidewave.kill();
            tidewave.waitForFinished(5000);
        }
    });
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return output.contains("Starting Mac Tidewave Version"); }, 15s))
        << output.toStdString();

    // Both ignored from the start.
    QFile status(QStringLiteral("/proc/%1/status").arg(tidewave.processId()));
    ASSERT_TRUE(status.open(QIODevice::ReadOnly));
    const QByteArray statusText = status.readAll();
    const qsizetype at = statusText.indexOf("SigIgn:\t");
    ASSERT_GE(at, 0);
    const quint64 ignored = statusText.mid(at + 8, 16).toULongLong(nullptr, 16);
    EXPECT_TRUE(ignored & (1ull << (SIGPIPE - 1)));
    EXPECT_TRUE(ignored & (1ull << (SIGSEGV - 1)));

    const bool serving = AppTestSupport::hasDefaultRoute();
    if (serving) {
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return isListening(port); }, 15s))
            << "the server did not start on reachability:\n" << output.toStdString();
    }

    ASSERT_EQ(::kill(static_cast<pid_t>(tidewave.processId()), GetParam()), 0);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tidewave.state() == QProcess::NotRunning; }, 15s));
    EXPECT_EQ(tidewave.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(tidewave.exitCode(), 0);
    output += tidewave.readAll();
    EXPECT_TRUE(output.contains("terminate at server Tab")) << output.toStdString();
    EXPECT_TRUE(TestEnvironment::waitUntil([&] { return !isListening(port) && processesUsingPort(port).isEmpty(); }, 10s));
    if (!serving)
        GTEST_SKIP() << "no default route here: the server never started, only the orderly exit was checked";
}

INSTANTIATE_TEST_SUITE_P(Signals, AppSignals, ::testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const ::testing::TestParamInfo<int> &info) {
                             switch (info.param) {
                             case SIGTERM: return std::string("SIGTERM");
                             case SIGINT: return std::string("SIGINT");
                             default: return std::string("SIGHUP");
                             }
                         });

} // namespace
