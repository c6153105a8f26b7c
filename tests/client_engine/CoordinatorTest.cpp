#include "client_engine/CallRecorder.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfTest.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/SettingsStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>

using namespace std::chrono_literals;

namespace {

using namespace CallText;

// A settings store of the test's own, so the interface list is under control.
class CoordinatorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_store = std::make_unique<SettingsStore>(m_dir.filePath(QStringLiteral("settings.ini")));
    }

    QTemporaryDir m_dir;
    std::unique_ptr<SettingsStore> m_store;
};

struct InterfaceCase
{
    std::string name;
    QString stored; // the "IPAddresss" text; null: nothing stored
    QString address;
    QString expected; // null: still unknown
};

void PrintTo(const InterfaceCase &c, std::ostream *os)
{
    *os << c.name;
}

class InterfaceName : public CoordinatorTest, public ::testing::WithParamInterface<InterfaceCase>
{
};

TEST_P(InterfaceName, FromTheStoredInterfaceList)
{
    if (!GetParam().stored.isNull())
        m_store->setObject(GetParam().stored, QStringLiteral("IPAddresss"));
    PerfHelper helper(*m_store);
    helper.didResolvedLocalIP(GetParam().address);
    EXPECT_EQ(helper.localIP, GetParam().address);
    EXPECT_EQ(helper.usedInterfaceName().isNull(), GetParam().expected.isNull());
    EXPECT_EQ(helper.usedInterfaceName(), GetParam().expected);
}

const QString kTwo = QStringLiteral("Wi-Fi (Primary): 192.168.1.5, Ethernet: 10.0.0.2");

INSTANTIATE_TEST_SUITE_P(
    PerfHelper, InterfaceName,
    ::testing::Values(
        InterfaceCase{"later_entry_keeps_its_leading_blank", kTwo, "10.0.0.2", " Ethernet"},
        InterfaceCase{"wi_dash_fi_is_not_a_wifi_spelling", kTwo, "192.168.1.5", "Wi-Fi"},
        InterfaceCase{"airport_is_wifi", "AirPort (Primary): 192.168.1.5, Ethernet: 10.0.0.2", "192.168.1.5", "WiFi"},
        InterfaceCase{"leading_blank_spoils_a_wifi_spelling", "Ethernet: 10.0.0.2, AirPort: 192.168.1.5", "192.168.1.5",
                      " AirPort"},
        InterfaceCase{"nothing_stored_is_wifi", {}, "10.0.0.2", "WiFi"},
        InterfaceCase{"address_not_listed_is_wifi", kTwo, "172.16.0.9", "WiFi"},
        InterfaceCase{"empty_address_is_wifi", kTwo, "", "WiFi"},
        InterfaceCase{"suffix_match", "Ethernet: 192.168.1.5", "1.5", "Ethernet"},
        InterfaceCase{"listed_but_no_entry_ends_with_it", "Ethernet: 10.0.0.25", "10.0.0.2", {}},
        InterfaceCase{"last_match_wins", "IEEE80211: 10.0.0.2, Ethernet: 10.0.0.2", "10.0.0.2", " Ethernet"},
        InterfaceCase{"last_match_wins_wifi", "Ethernet: 10.0.0.2,IEEE80211: 10.0.0.2", "10.0.0.2", "WiFi"},
        InterfaceCase{"every_primary_mark_removed", "en0 (Primary) (Primary): 10.0.0.2", "10.0.0.2", "en0"},
        InterfaceCase{"entry_without_name_names_nothing", "10.0.0.2", "10.0.0.2", {}},
        InterfaceCase{"ipv6_entry_named_before_first_colon", "Ethernet: fe80::1", "fe80::1", "Ethernet"}),
    [](const ::testing::TestParamInfo<InterfaceCase> &info) { return info.param.name; });

PerfResultPtr makeRecord(const QString &end)
{
    auto result = std::make_shared<PerfResult>();
    result->startTime = QStringLiteral("0.00");
    result->endTime = end;
    result->sentBytes = 1;
    result->sentBandwidth = 8;
    return result;
}

TEST_F(CoordinatorTest, RecordsAreStampedOnceTheInterfaceIsKnown)
{
    m_store->setObject(QStringLiteral("Loopback: 127.0.0.1"), QStringLiteral("IPAddresss"));
    PerfHelperRecorder recorder;
    PerfHelper helper(*m_store);
    helper.setDelegate(&recorder);

    helper.reportInterval(makeRecord(QStringLiteral("1.00")));
    helper.didResolvedLocalIP(QStringLiteral("127.0.0.1"));
    helper.reportInterval(makeRecord(QStringLiteral("2.00")));
    const PerfResultPtr last = makeRecord(QStringLiteral("3.00"));
    helper.testDidFinished(last);
    helper.testDidFail(QStringLiteral("iperf3: error - x\n"));

    const QString if1 = interval(record("0.00", "1.00", 1, 8)) + QStringLiteral(" if=nil");
    const QString if2 = interval(record("0.00", "2.00", 1, 8)) + QStringLiteral(" if=Loopback");
    const QString fin = finished(record("0.00", "3.00", 1, 8)) + QStringLiteral(" if=Loopback");
    EXPECT_EQ(recorder.calls, (QStringList{if1, if2, fin, fail("iperf3: error - x\n")}));
    // The same record goes up, not a copy.
    EXPECT_EQ(recorder.records.last(), last);
    // The address is not passed up; the coordinator keeps it.
    EXPECT_EQ(helper.localIP, QStringLiteral("127.0.0.1"));
}

// Answers to the interval callback only.
struct IntervalsOnly : PerfHelperDelegate
{
    void reportIntervalResults(const PerfResultPtr &result) override { ends << result->endTime; }
    QStringList ends;
};

TEST_F(CoordinatorTest, DelegateMissesWhatItDoesNotAnswerTo)
{
    IntervalsOnly delegate;
    PerfHelper helper(*m_store);
    helper.setDelegate(&delegate);
    helper.reportInterval(makeRecord(QStringLiteral("1.00")));
    helper.testDidFinished(makeRecord(QStringLiteral("3.00")));
    helper.testDidFail(QStringLiteral("failed"));
    helper.reportInterval(makeRecord(QStringLiteral("2.00")));
    EXPECT_EQ(delegate.ends, (QStringList{"1.00", "2.00"}));
}

TEST_F(CoordinatorTest, DestroyedDelegateIsForgotten)
{
    PerfHelper helper(*m_store);
    {
        PerfHelperRecorder recorder;
        helper.setDelegate(&recorder);
        ASSERT_EQ(helper.delegate(), &recorder);
    }
    EXPECT_EQ(helper.delegate(), nullptr);
    helper.reportInterval(makeRecord(QStringLiteral("1.00")));
    helper.testDidFail(QStringLiteral("failed"));
}

// The settings reach the run unchanged; the run is then stopped at once.
TEST_F(CoordinatorTest, RunTestHandsTheSettingsDown)
{
    PerfHelper helper(*m_store);
    helper.serverIP = QStringLiteral("127.0.0.1");
    helper.serverPort = TestEnvironment::freeTcpPort();
    helper.duration = 7;
    helper.stats_interval = 2;
    helper.reverse = 1;
    helper.bandwidthformat = 1;
    helper.testType = 1;
    helper.bufferLength = 4;
    helper.sendBandwidth = 30;
    helper.invalidTestDuration = 9;
    helper.graphMaxSpeed = 55;
    helper.runTest();
    helper.stopTest();

    const PerfTest &test = helper.test();
    EXPECT_EQ(test.server, helper.serverIP);
    EXPECT_EQ(test.port, helper.serverPort);
    EXPECT_EQ(test.invalidTestDuration, 9);
    EXPECT_EQ(test.iperfOptions(),
              (QStringList{"./iperf3 ", "-c", "127.0.0.1", QStringLiteral("-p%1").arg(helper.serverPort), "-R", "-u",
                           "-l4KB", "-b30K", "-t7", "-i2"}));
    EXPECT_EQ(helper.localIP, TidewaveUtils::getIPAddress());
    EXPECT_TRUE(test.hasCancelled());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !test.isRunning(); }, 5s));
}

TEST_F(CoordinatorTest, StopBeforeRunStartsNothing)
{
    PerfHelper helper(*m_store);
    helper.serverIP = QStringLiteral("127.0.0.1");
    helper.stopTest();
    helper.runTest();
    EXPECT_TRUE(helper.test().hasCancelled());
    EXPECT_EQ(helper.test().processId(), 0);
    EXPECT_FALSE(helper.test().isRunning());
}

} // namespace
