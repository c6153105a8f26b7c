#include "NetworkTestSupport.h"
#include "common/TestEnvironment.h"
#include "fakes/FakeReachabilitySource.h"
#include "network/Reachability.h"
#include "network/ReachabilityCheck.h"
#include "shell/NotificationCenter.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;

namespace {

struct FlagsCase
{
    const char *name;
    ReachabilityFlags flags;
    bool reachable;
};
void PrintTo(const FlagsCase &row, std::ostream *out) { *out << row.name; }

using ReachableWithFlagsTest = testing::TestWithParam<FlagsCase>;

TEST_P(ReachableWithFlagsTest, ReachableUnlessConnectionRequiredAndTransient)
{
    EXPECT_EQ(Reachability::isReachableWithFlags(GetParam().flags), GetParam().reachable);
}

INSTANTIATE_TEST_SUITE_P(Flags, ReachableWithFlagsTest,
                         testing::Values(FlagsCase{"none", 0x0, false}, FlagsCase{"reachable", 0x2, true},
                                         FlagsCase{"reachable_transient", 0x3, true},
                                         FlagsCase{"reachable_connection_required", 0x6, true},
                                         FlagsCase{"reachable_required_and_transient", 0x7, false},
                                         FlagsCase{"connection_required_only", 0x4, false},
                                         FlagsCase{"transient_only", 0x1, false}),
                         caseName<FlagsCase>);

struct Fixture
{
    std::shared_ptr<FakeReachabilityControl> control = std::make_shared<FakeReachabilityControl>();
    std::unique_ptr<ReachabilitySource> source() { return std::make_unique<FakeReachabilitySource>(control); }
};

TEST(Reachability, StatusAndTextsFollowTheCurrentFlags)
{
    Fixture f;
    const auto reachability = Reachability::reachabilityWithSource(f.source());
    ASSERT_TRUE(reachability);
    EXPECT_EQ(reachability->currentReachabilityStatus(), Reachability::NotReachable);
    EXPECT_EQ(reachability->currentReachabilityString(), QStringLiteral("No Connection"));
    EXPECT_FALSE(reachability->isReachableViaWiFi());
    f.control->setFlags(kReachabilityFlagReachable);
    EXPECT_TRUE(reachability->isReachable());
    EXPECT_EQ(reachability->currentReachabilityStatus(), Reachability::ReachableViaWiFi);
    EXPECT_EQ(reachability->currentReachabilityString(), QStringLiteral("WiFi"));
    f.control->setFlags(0x7);
    EXPECT_EQ(reachability->currentReachabilityString(), QStringLiteral("No Connection"));
}

TEST(Reachability, HandlersFollowEveryChangeAndStopEndsThem)
{
    Fixture f;
    const auto reachability = Reachability::reachabilityWithSource(f.source());
    QStringList calls;
    reachability->setReachableBlock([&](Reachability *r) {
        EXPECT_EQ(r, reachability.get());
        calls.append(QStringLiteral("reachable"));
    });
    reachability->setUnreachableBlock([&](Reachability *) { calls.append(QStringLiteral("unreachable")); });

    ASSERT_TRUE(reachability->startNotifier());
    f.control->setFlags(0x2);
    f.control->setFlags(0x3); // still reachable: a change all the same
    f.control->setFlags(0x7);
    f.control->setFlags(0x2);
    EXPECT_EQ(calls, (QStringList{"unreachable", "reachable", "reachable", "unreachable", "reachable"}));

    reachability->stopNotifier();
    f.control->setFlags(0x0);
    EXPECT_EQ(calls.size(), 5);
}

TEST(Reachability, ChangeNotificationIsPostedOnTheMainThreadWithTheMonitor)
{
    Fixture f;
    const auto reachability = Reachability::reachabilityWithSource(f.source());
    std::atomic<int> posts{0};
    std::atomic<bool> onMainThread{true};
    int owner = 0;
    NotificationCenter::defaultCenter().addObserver(&owner, Reachability::kReachabilityChangedNotification,
                                                    [&](const QVariantMap &info) {
                                                        // Earlier monitors' posts may still be queued.
                                                        if (info.value(QStringLiteral("object")).value<void *>() != reachability.get())
                                                            return;
                                                        onMainThread = onMainThread && QThread::currentThread() == qApp->thread();
                                                        ++posts;
                                                    });
    ASSERT_TRUE(reachability->startNotifier());
    // A change reported from another thread, as the real monitor reports it.
    std::thread([&] { f.control->setFlags(0x2); }).join();
    EXPECT_EQ(posts, 0) << "posted later, on the main thread";
    const bool arrived = TestEnvironment::waitUntil([&] { return posts == 2; }, 5s);
    reachability->stopNotifier();
    NotificationCenter::defaultCenter().removeObserver(&owner);
    ASSERT_TRUE(arrived);
    EXPECT_TRUE(onMainThread);
}

TEST(Reachability, RunningMonitorKeepsItselfAliveUntilStoppedAndAFailedStartKeepsNothing)
{
    Fixture f;
    std::weak_ptr<Reachability> weak = Reachability::reachabilityWithSource(f.source());
    EXPECT_TRUE(weak.expired());
    weak = [&] {
        const auto reachability = Reachability::reachabilityWithSource(f.source());
        EXPECT_TRUE(reachability->startNotifier());
        return std::weak_ptr<Reachability>(reachability);
    }();
    ASSERT_FALSE(weak.expired());
    weak.lock()->stopNotifier();
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(f.control->started());

    f.control->setRefuseStart(true);
    EXPECT_FALSE(ReachabilityCheck::checkReachability(f.source()));
}

TEST(CheckReachability, AnnouncesEveryEntryIntoReachableOnTheMainThreadAndLogsBothStates)
{
    Fixture f;
    QCoreApplication::processEvents();
    const LogCapture log;
    std::atomic<int> announcements{0};
    std::atomic<bool> onMainThread{true};
    int owner = 0;
    NotificationCenter::defaultCenter().addObserver(
        &owner, ReachabilityCheck::kInternetDidBecomeAvailableOnSystemNotification, [&](const QVariantMap &info) {
            onMainThread = onMainThread && QThread::currentThread() == qApp->thread() && info.isEmpty();
            ++announcements;
        });

    std::weak_ptr<Reachability> weak = ReachabilityCheck::checkReachability(f.source());
    ASSERT_FALSE(weak.expired()) << "the started monitor keeps itself";
    std::thread([&] {
        f.control->setFlags(0x2);
        f.control->setFlags(0x0);
        f.control->setFlags(0x2);
    }).join();
    const bool twice = TestEnvironment::waitUntil([&] { return announcements == 2; }, 5s);
    if (auto reachability = weak.lock())
        reachability->stopNotifier();
    NotificationCenter::defaultCenter().removeObserver(&owner);

    ASSERT_TRUE(twice);
    EXPECT_TRUE(onMainThread);
    const QStringList messages = log.messages();
    EXPECT_EQ(messages.count(QStringLiteral("Internet is available on system!")), 2);
    // Once at start (nothing reachable yet) and once on the way down.
    EXPECT_EQ(messages.count(QStringLiteral("Internet is not available on system!")), 2);
}

} // namespace
