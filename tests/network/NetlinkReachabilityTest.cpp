#include "NetworkTestSupport.h"
#include "common/TestEnvironment.h"
#include "network/NetlinkReachabilitySource.h"
#include "network/Reachability.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;

// These tests watch routing tables of namespaces they create. The resolver
// is always the test's own: the real public host is never looked up.
namespace {

// Handler calls as the monitor thread makes them.
class Events
{
public:
    void add(bool reachable)
    {
        std::lock_guard lock(m_mutex);
        m_events.append(reachable);
    }
    QList<bool> list() const
    {
        std::lock_guard lock(m_mutex);
        return m_events;
    }
    qsizetype size() const { return list().size(); }
    bool last(bool value) const
    {
        const QList<bool> events = list();
        return !events.isEmpty() && events.last() == value;
    }

private:
    mutable std::mutex m_mutex;
    QList<bool> m_events;
};

class NetlinkReachability : public testing::Test
{
protected:
    void SetUp() override
    {
        QString reason;
        m_space = TestNamespace::create(QStringLiteral("reach"), &reason);
        if (!m_space)
            GTEST_SKIP() << "cannot create a network namespace: " << reason.toStdString();
        // A veth pair with an address on one end and no default route.
        for (const QStringList &command :
             {QStringList{"link", "add", "tw0", "type", "veth", "peer", "name", "tw0p"},
              QStringList{"addr", "add", "10.203.0.1/24", "dev", "tw0"}, QStringList{"link", "set", "tw0", "up"},
              QStringList{"link", "set", "tw0p", "up"}})
            ASSERT_TRUE(m_space->ip(command)) << command.join(u' ').toStdString();
    }

    void TearDown() override
    {
        if (m_reachability)
            m_reachability->stopNotifier();
        m_reachability.reset();
        m_space.reset();
    }

    // Starts a monitor inside the namespace; its thread stays there.
    void start(NetlinkReachabilitySource::Resolver resolver)
    {
        m_reachability = Reachability::reachabilityWithSource(
            std::make_unique<NetlinkReachabilitySource>(QStringLiteral("watched.test"), std::move(resolver)));
        m_reachability->setReachableBlock([this](Reachability *) { m_events.add(true); });
        m_reachability->setUnreachableBlock([this](Reachability *) { m_events.add(false); });
        bool started = false;
        ASSERT_TRUE(m_space->runInside([&] { started = m_reachability->startNotifier(); }));
        ASSERT_TRUE(started);
    }

    bool ip(const QStringList &arguments) { return m_space->ip(arguments); }

    std::unique_ptr<TestNamespace> m_space;
    std::shared_ptr<Reachability> m_reachability;
    Events m_events;
};

const QStringList kAddDefault{"route", "add", "default", "via", "10.203.0.254", "dev", "tw0"};
const QStringList kDeleteDefault{"route", "del", "default"};

// A name that cannot be resolved: the default route decides.
TEST_F(NetlinkReachability, DefaultRouteComesAndGoes)
{
    start([](const QString &) { return QList<QHostAddress>{}; });
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_events.size() >= 1; }, 5s));
    EXPECT_EQ(m_events.list(), QList<bool>{false});
    EXPECT_FALSE(m_reachability->isReachable());

    ASSERT_TRUE(ip(kAddDefault));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_events.last(true); }, 5s));
    EXPECT_TRUE(m_reachability->isReachable());

    ASSERT_TRUE(ip(kDeleteDefault));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_events.last(false); }, 5s));
    EXPECT_EQ(m_events.list(), (QList<bool>{false, true, false}));
}

// A resolved address decides by its own route: reachable on the link's
// subnet without a default route, unreachable beyond it until one exists.
TEST_F(NetlinkReachability, ResolvedAddressDecidesByItsRoute)
{
    start([](const QString &) { return QList<QHostAddress>{QHostAddress(QStringLiteral("10.203.0.9"))}; });
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_events.last(true); }, 5s));
    EXPECT_EQ(m_events.list(), (QList<bool>{false, true})) << "the routing table first, the address then";
}

// A resolver that hangs must not hold the first decision back.
TEST_F(NetlinkReachability, SlowResolverDoesNotDelayTheDecision)
{
    ASSERT_TRUE(ip(kAddDefault));
    auto release = std::make_shared<std::pair<std::mutex, std::condition_variable>>();
    auto released = std::make_shared<bool>(false);
    QElapsedTimer timer;
    timer.start();
    start([release, released](const QString &) {
        std::unique_lock lock(release->first);
        release->second.wait_for(lock, 10s, [&] { return *released; });
        return QList<QHostAddress>{};
    });
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_events.size() >= 1; }, 5s));
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(m_events.list(), QList<bool>{true});
    {
        std::lock_guard lock(release->first);
        *released = true;
    }
    release->second.notify_all();
}

} // namespace
