#include "client_tab/ClientTabFixture.h"

#include "client/TestInformationView.h"
#include "client/TestListModel.h"

#include <QSignalSpy>

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
    QString address;
    QString port;
    QString duration;
    int statsSeconds;
    bool udp;
    QString buffer;
    QStringList expectedMessages;
    bool expectStarted;
    qint64 expectedBuffer;    // coordinator's bufferLength when it got that far
    QString expectedPort;     // stored "clientToServerPort" afterwards
    QString expectedDuration; // stored "testDuration" afterwards
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

    EXPECT_EQ(messages.texts, c.expectedMessages);
    EXPECT_EQ(started.size(), c.expectStarted ? 1u : 0u);
    EXPECT_EQ(tab->testResultsArray().size(), c.expectStarted ? 1 : 0);
    EXPECT_EQ(runButton()->text(), c.expectStarted ? QStringLiteral("Stop Test") : QStringLiteral("Run Test"));
    EXPECT_EQ(field("clientToServerIpAddress")->isEnabled(), !c.expectStarted);
    EXPECT_EQ(stored("clientToServerPort"), c.expectedPort);
    EXPECT_EQ(stored("testDuration"), c.expectedDuration);
    // The time-out is scheduled only for a run that starts.
    EXPECT_EQ(timeOuts().size(), c.expectStarted ? 1u : 0u);
    if (c.expectedBuffer > 0) {
        ASSERT_NE(tab->perfHelper(), nullptr);
        EXPECT_EQ(tab->perfHelper()->bufferLength, c.expectedBuffer);
    }
    if (c.expectStarted) {
        const PerfHelper &test = *tab->perfHelper();
        EXPECT_EQ(started.front(), &test);
        EXPECT_EQ(test.testLabel, c.udp ? QStringLiteral("UDP Test") : QStringLiteral("TCP Test"));
        EXPECT_EQ(test.isTestRunning, 1);
        EXPECT_EQ(test.invalidTestDuration, 1);
        EXPECT_EQ(test.serverIP, c.address);
        EXPECT_EQ(test.serverPort, c.expectedPort.toLongLong());
        EXPECT_EQ(test.duration, c.expectedDuration.toLongLong());
        EXPECT_EQ(test.delegate(), static_cast<PerfHelperDelegate *>(tab.get()));
        EXPECT_EQ(tab->testInfoView()->perfHelper(), tab->perfHelper());
        EXPECT_EQ(opened, QStringList{QStringLiteral("wlp2s0")});
    }
}

const QString lo = QStringLiteral("127.0.0.1");
const QString p = QStringLiteral("5301");

INSTANTIATE_TEST_SUITE_P(
    Runs, RunFlow,
    ::testing::Values(
        RunCase{"tcpDefaults", lo, p, "10", 1, false, "", {""}, true, 128, p, "10"},
        RunCase{"notAnAddress", QStringLiteral("10.0.0"), p, "10", 1, false, "", {kNotIp}, false, 0, p, "10"},
        RunCase{"hostName", QStringLiteral("localhost"), p, "10", 1, false, "", {kNotIp}, false, 0, p, "10"},
        // The address check comes before the interval check.
        RunCase{"addressBeforeInterval", QStringLiteral("x"), p, "10", 11, false, "", {kNotIp}, false, 0, p, "10"},
        RunCase{"intervalEqualsDuration", lo, p, "10", 10, false, "", {""}, true, 128, p, "10"},
        RunCase{"intervalAboveDuration", lo, p, "10", 11, false, "", {kStats}, false, 0, p, "10"},
        // The interval check comes before the buffer check, which follows the
        // cleared status line.
        RunCase{"intervalBeforeBuffer", lo, p, "10", 11, true, "9", {kStats}, false, 0, p, "10"},
        RunCase{"emptyPortBecomes5201", lo, "", "10", 1, false, "", {""}, true, 128, "5201", "10"},
        // A duration of 0 becomes 30 before the interval is compared with it.
        RunCase{"zeroDurationBecomes30", lo, p, "0", 20, false, "", {""}, true, 128, p, "30"},
        RunCase{"udpEightAccepted", lo, p, "10", 1, true, "8", {""}, true, 8, p, "10"},
        RunCase{"udpNineRefused", lo, p, "10", 1, true, "9", {"", kUdpBuffer}, false, 0, p, "10"},
        RunCase{"udpEmptyIsEight", lo, p, "10", 1, true, "", {""}, true, 8, p, "10"},
        RunCase{"udpZeroIsEight", lo, p, "10", 1, true, "0", {""}, true, 8, p, "10"},
        RunCase{"tcp1024Accepted", lo, p, "10", 1, false, "1024", {""}, true, 1024, p, "10"},
        RunCase{"tcp1025Refused", lo, p, "10", 1, false, "1025", {"", kTcpBuffer}, false, 0, p, "10"},
        RunCase{"tcpZeroIs128", lo, p, "10", 1, false, "0", {""}, true, 128, p, "10"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ClientTabFixture, RefusedBufferLeavesAnUnstartedCoordinator)
{
    makeTab();
    fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1, true, QStringLiteral("9"));
    tab->runClient();
    ASSERT_NE(tab->perfHelper(), nullptr);
    EXPECT_FALSE(tab->testResultsArray().contains(tab->perfHelper()));
    EXPECT_TRUE(started.empty());
}

TEST_F(ClientTabFixture, ZeroDurationIsStoredAs30WhileTheFieldKeepsZero)
{
    makeTab();
    fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("0"), 1);
    tab->runClient();
    EXPECT_EQ(settings.store.integerForKey(QStringLiteral("testDuration")), 30);
    EXPECT_EQ(field("testDuration")->text(), QStringLiteral("0"));
}

struct TimeOutCase
{
    const char *name;
    const char *duration;
    int statsSeconds;
    int expectedSeconds;
    friend void PrintTo(const TimeOutCase &c, std::ostream *os) { *os << c.name; }
};

class TimeOutDelay : public ClientTabFixture, public ::testing::WithParamInterface<TimeOutCase>
{
};

TEST_P(TimeOutDelay, UsesTheTwoOffsets)
{
    const TimeOutCase &c = GetParam();
    makeTab();
    fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QString::fromLatin1(c.duration), c.statsSeconds);
    tab->runClient();
    ASSERT_EQ(timeOuts().size(), 1u);
    EXPECT_EQ(scheduler.entries.at(timeOuts().front()).delay, std::chrono::seconds(c.expectedSeconds));
}

INSTANTIATE_TEST_SUITE_P(Delays, TimeOutDelay,
                         ::testing::Values(TimeOutCase{"oneSecondStats", "10", 1, 16},
                                           TimeOutCase{"twoSecondStats", "10", 2, 7},
                                           TimeOutCase{"longTestOneSecond", "3600", 1, 3606},
                                           TimeOutCase{"longTestTenSeconds", "3600", 10, 15},
                                           TimeOutCase{"zeroDurationUses30", "0", 1, 36}),
                         [](const auto &info) { return std::string(info.param.name); });

class TimeOutTest : public ClientTabFixture
{
protected:
    void startRun()
    {
        fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1);
        tab->runClient();
        ASSERT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    }
    PerfResultPtr interval()
    {
        auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1000, 5e6f);
        r->interfaceName = QStringLiteral("Ethernet");
        return r;
    }
};

TEST_F(TimeOutTest, StopsARunThatSentNothing)
{
    makeTab();
    startRun();
    const PerfHelperPtr run = tab->perfHelper();
    ASSERT_TRUE(scheduler.fire(timeOuts().front()));
    EXPECT_EQ(messages.texts.last(), kNoData);
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_EQ(run->isTestRunning, 0);
    ASSERT_EQ(stopped.size(), 1u);
    EXPECT_EQ(stopped.front(), run.get());
}

TEST_F(TimeOutTest, DoesNothingOnceDataArrived)
{
    makeTab();
    startRun();
    tab->reportIntervalResults(interval());
    ASSERT_TRUE(scheduler.fire(timeOuts().front()));
    EXPECT_TRUE(stopped.empty());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    EXPECT_FALSE(messages.texts.contains(kNoData));
}

TEST_F(TimeOutTest, StaleTimeOutStopsALaterRunStillWaiting)
{
    makeTab();
    startRun();
    const PerfHelperPtr first = tab->perfHelper();
    tab->reportIntervalResults(interval());
    tab->testFinished(interval());
    ASSERT_EQ(runButton()->text(), QStringLiteral("Run Test"));

    startRun();
    const PerfHelperPtr second = tab->perfHelper();
    ASSERT_NE(first, second);
    // The first run's time-out was never withdrawn; it fires now.
    ASSERT_TRUE(scheduler.fire(timeOuts().front()));
    EXPECT_EQ(messages.texts.last(), kNoData);
    ASSERT_EQ(stopped.size(), 1u);
    EXPECT_EQ(stopped.front(), second.get());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
}

TEST_F(TimeOutTest, StopButtonStopsTheNewestTestQuietly)
{
    makeTab();
    startRun();
    const PerfHelperPtr run = tab->perfHelper();
    messages.texts.clear();
    runButton()->click();
    ASSERT_EQ(stopped.size(), 1u);
    EXPECT_EQ(stopped.front(), run.get());
    EXPECT_EQ(run->isTestRunning, 0);
    EXPECT_TRUE(messages.texts.isEmpty());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_TRUE(field("testDuration")->isEnabled());
    // A later time-out finds nothing to stop.
    ASSERT_TRUE(scheduler.fire(timeOuts().front()));
    EXPECT_EQ(stopped.size(), 1u);
}

} // namespace
