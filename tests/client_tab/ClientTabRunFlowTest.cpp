#include "client_tab/ClientTabFixture.h"

using namespace ClientTestSupport;

namespace {

const QString kNotIp =
    QStringLiteral("Unable to perform test. Please check client settings or make sure server is running.");
const QString kStats =
    QStringLiteral("Invalid stats interval. Stats interval should be less than or equal to Test Duration.");
const QString kUdpBuffer = QStringLiteral("In UDP test Type, Maximum Buffer length is 8 KB");
const QString kTcpBuffer = QStringLiteral("In TCP test Type, Maximum Buffer length is 1024 KB");
const QString kNoData = QStringLiteral("Please make sure client and server are connected with same network.");

struct RunCase
{
    const char *name;
    QString address, port, duration;
    int statsSeconds;
    bool udp;
    QString buffer;
    QStringList expectedMessages;
    qint64 expectedBuffer; // 0: the run is refused before it starts
    QString expectedPort, expectedDuration; // stored afterwards
    friend void PrintTo(const RunCase &c, std::ostream *os) { *os << c.name; }
};

class RunFlow : public ClientTabFixture, public ::testing::WithParamInterface<RunCase>
{
};

TEST_P(RunFlow, ChecksInOrderWithTheExactMessages)
{
    const RunCase &c = GetParam();
    makeTab();
    fillForm(c.address, c.port, c.duration, c.statsSeconds, c.udp, c.buffer);
    tab->runClient();

    const bool starts = c.expectedBuffer > 0;
    EXPECT_EQ(messages.texts, c.expectedMessages);
    EXPECT_EQ(started.size(), starts ? 1u : 0u);
    EXPECT_EQ(tab->testResultsArray().size(), starts ? 1 : 0);
    EXPECT_EQ(runButton()->text(), starts ? QStringLiteral("Stop Test") : QStringLiteral("Run Test"));
    EXPECT_EQ(field("clientToServerIpAddress")->isEnabled(), !starts);
    EXPECT_EQ(stored("clientToServerPort"), c.expectedPort);
    EXPECT_EQ(stored("testDuration"), c.expectedDuration);
    EXPECT_EQ(field("testDuration")->text(), c.duration); // the field keeps what was typed
    EXPECT_EQ(scheduler.entries.size(), starts ? 2u : 1u); // the time-out only for a run that starts
    if (!starts)
        return;
    const PerfHelper &test = *tab->perfHelper();
    EXPECT_EQ(started.front(), &test);
    EXPECT_EQ(test.bufferLength, c.expectedBuffer);
    EXPECT_EQ(test.testLabel, c.udp ? QStringLiteral("UDP Test") : QStringLiteral("TCP Test"));
    EXPECT_EQ(test.isTestRunning, 1);
    EXPECT_EQ(test.invalidTestDuration, 1);
    EXPECT_EQ(test.serverIP, c.address);
    EXPECT_EQ(test.serverPort, c.expectedPort.toLongLong());
    EXPECT_EQ(test.duration, c.expectedDuration.toLongLong());
    EXPECT_EQ(test.delegate(), static_cast<PerfHelperDelegate *>(tab.get()));
    EXPECT_EQ(opened, QStringList{QStringLiteral("wlp2s0")});
}

const QString lo = QStringLiteral("127.0.0.1");
const QString p = QStringLiteral("5301");

INSTANTIATE_TEST_SUITE_P(
    Runs, RunFlow,
    ::testing::Values(
        RunCase{"tcpDefaults", lo, p, "10", 1, false, "", {""}, 128, p, "10"},
        RunCase{"notAnAddress", QStringLiteral("10.0.0"), p, "10", 1, false, "", {kNotIp}, 0, p, "10"},
        RunCase{"hostName", QStringLiteral("localhost"), p, "10", 1, false, "", {kNotIp}, 0, p, "10"},
        // The address check comes before the interval check.
        RunCase{"addressBeforeInterval", QStringLiteral("x"), p, "10", 11, false, "", {kNotIp}, 0, p, "10"},
        RunCase{"intervalEqualsDuration", lo, p, "10", 10, false, "", {""}, 128, p, "10"},
        RunCase{"intervalAboveDuration", lo, p, "10", 11, false, "", {kStats}, 0, p, "10"},
        // The interval check comes before the status line is cleared and
        // the buffer is checked.
        RunCase{"intervalBeforeBuffer", lo, p, "10", 11, true, "9", {kStats}, 0, p, "10"},
        RunCase{"emptyPortBecomes5201", lo, "", "10", 1, false, "", {""}, 128, "5201", "10"},
        // A duration of 0 becomes 30 before the interval is compared with it.
        RunCase{"zeroDurationBecomes30", lo, p, "0", 20, false, "", {""}, 128, p, "30"},
        RunCase{"udpEightAccepted", lo, p, "10", 1, true, "8", {""}, 8, p, "10"},
        RunCase{"udpNineRefused", lo, p, "10", 1, true, "9", {"", kUdpBuffer}, 0, p, "10"},
        RunCase{"udpEmptyIsEight", lo, p, "10", 1, true, "", {""}, 8, p, "10"},
        RunCase{"tcp1024Accepted", lo, p, "10", 1, false, "1024", {""}, 1024, p, "10"},
        RunCase{"tcp1025Refused", lo, p, "10", 1, false, "1025", {"", kTcpBuffer}, 0, p, "10"},
        RunCase{"tcpZeroIs128", lo, p, "10", 1, false, "0", {""}, 128, p, "10"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ClientTabFixture, RefusedBufferLeavesAnUnstartedCoordinatorOutOfTheList)
{
    makeTab();
    fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1, true, QStringLiteral("9"));
    tab->runClient();
    ASSERT_NE(tab->perfHelper(), nullptr);
    EXPECT_TRUE(tab->testResultsArray().isEmpty());
}

TEST_F(ClientTabFixture, TimeOutUsesItsTwoOffsets)
{
    makeTab();
    // {duration, stats interval, expected delay}
    const int cases[][3] = {{10, 1, 16}, {10, 2, 7}, {3600, 10, 15}, {0, 1, 36}};
    for (const auto &[duration, stats, delay] : cases) {
        fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QString::number(duration), stats);
        tab->runClient();
        EXPECT_EQ(scheduler.entries.back().delay, std::chrono::seconds(delay)) << duration << "/" << stats;
        tab->testFail(QString()); // back to idle for the next run
    }
}

class TimeOut : public ClientTabFixture
{
protected:
    static PerfResultPtr interval()
    {
        auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1000, 5e6f);
        r->interfaceName = QStringLiteral("Ethernet");
        return r;
    }
};

TEST_F(TimeOut, StopsARunThatSentNothing)
{
    makeTab();
    startRun();
    const PerfHelperPtr run = tab->perfHelper();
    ASSERT_TRUE(scheduler.fire(1));
    EXPECT_EQ(messages.texts.last(), kNoData);
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_EQ(run->isTestRunning, 0);
    EXPECT_EQ(stopped, std::vector<PerfHelper *>{run.get()});
}

TEST_F(TimeOut, DoesNothingOnceDataArrived)
{
    makeTab();
    startRun();
    tab->reportIntervalResults(interval());
    ASSERT_TRUE(scheduler.fire(1));
    EXPECT_TRUE(stopped.empty());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
}

TEST_F(TimeOut, StaleTimeOutStopsALaterRunStillWaiting)
{
    makeTab();
    startRun();
    tab->reportIntervalResults(interval());
    tab->testFinished(interval());
    startRun();
    const PerfHelperPtr second = tab->perfHelper();
    // The first run's time-out was never withdrawn; it fires now.
    ASSERT_TRUE(scheduler.fire(1));
    EXPECT_EQ(messages.texts.last(), kNoData);
    EXPECT_EQ(stopped, std::vector<PerfHelper *>{second.get()});
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
}

TEST_F(TimeOut, StopButtonStopsTheNewestTestQuietly)
{
    makeTab();
    startRun();
    const PerfHelperPtr run = tab->perfHelper();
    messages.texts.clear();
    runButton()->click();
    EXPECT_EQ(stopped, std::vector<PerfHelper *>{run.get()});
    EXPECT_EQ(run->isTestRunning, 0);
    EXPECT_TRUE(messages.texts.isEmpty());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_TRUE(field("testDuration")->isEnabled());
    // The time-out later finds nothing to stop.
    ASSERT_TRUE(scheduler.fire(1));
    EXPECT_EQ(stopped.size(), 1u);
}

} // namespace
