#include "discovery/AvahiSandbox.h"
#include "discovery/LogCollector.h"
#include "discovery/RecordingDelegate.h"

#include "common/TestEnvironment.h"
#include "discovery/Server.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString kProtocolWord = QStringLiteral("TidewaveServer");

class ServerTest : public testing::Test
{
protected:
    void SetUp() override { m_log = LogCollector::install(); }
    void TearDown() override
    {
        // The tests' delegates are gone by now.
        for (const auto &server : m_servers)
            server->setDelegate(nullptr);
        m_servers.clear();
        Logger::shared().removeSink(m_log);
    }

    // A started server whose events go to the delegate.
    Server *startServer(const QString &name, RecordingDelegate *delegate)
    {
        m_servers.push_back(Server::withProtocol(kProtocolWord, name));
        Server *server = m_servers.back().get();
        server->setDelegate(delegate);
        ServerError error;
        EXPECT_TRUE(server->start(&error)) << error.toString().toStdString();
        return server;
    }

    bool waitForPresent(const RecordingDelegate &delegate, const QString &name, bool present = true)
    {
        return TestEnvironment::waitUntil([&] { return delegate.presentNames().contains(name) == present; }, 8s);
    }

    std::vector<std::unique_ptr<Server>> m_servers;
    std::shared_ptr<LogCollector> m_log;
};

TEST_F(ServerTest, TwoServersSeeEachOtherButNotThemselves)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate alphaEvents, betaEvents;
    Server *alpha = startServer(QStringLiteral("Alpha,5201,10_0_0_1,eth0"), &alphaEvents);
    Server *beta = startServer(QStringLiteral("Beta,5201,10_0_0_2,eth0"), &betaEvents);

    ASSERT_TRUE(waitForPresent(alphaEvents, beta->iPerfIP()));
    ASSERT_TRUE(waitForPresent(betaEvents, alpha->iPerfIP()));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return alpha->localService() && beta->localService(); }, 5s));
    EXPECT_EQ(alpha->name(), QStringLiteral("Alpha,5201,10_0_0_1,eth0"));
    EXPECT_NE(alpha->port(), 0);
    EXPECT_NE(alpha->port(), beta->port());
    EXPECT_EQ(alphaEvents.presentNames(), QStringList{beta->iPerfIP()});
    EXPECT_EQ(betaEvents.presentNames(), QStringList{alpha->iPerfIP()});
}

TEST_F(ServerTest, DotsInTheInstanceNameArePublishedAsUnderscores)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    Server *dotted = startServer(QStringLiteral("Studio,5201,192.168.1.20,Wi-Fi 2.4"), nullptr);

    EXPECT_EQ(dotted->iPerfIP(), QStringLiteral("Studio,5201,192_168_1_20,Wi-Fi 2_4"));
    ASSERT_TRUE(waitForPresent(watcherEvents, QStringLiteral("Studio,5201,192_168_1_20,Wi-Fi 2_4")));
}

TEST_F(ServerTest, PeerConnectionWithdrawsTheServiceUntilThePeerLeaves)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents, hostEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    Server *host = startServer(QStringLiteral("Host,5201,10_0_0_3,eth0"), &hostEvents);
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));

    QTcpSocket peer;
    peer.connectToHost(QHostAddress::LocalHost, host->port());
    ASSERT_TRUE(peer.waitForConnected(5000));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return hostEvents.connectionsCompleted == 1; }, 5s));
    EXPECT_TRUE(host->inputStreamReady() && host->outputStreamReady());
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP(), false));

    // Bytes from the peer are read and dropped; the connection stays up.
    peer.write(QByteArray(300, 'x'));
    ASSERT_TRUE(peer.waitForBytesWritten(5000));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return peer.bytesToWrite() == 0; }, 5s));
    EXPECT_TRUE(hostEvents.lostConnections.isEmpty());

    peer.disconnectFromHost();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return hostEvents.lostConnections.size() == 1; }, 5s));
    EXPECT_TRUE(hostEvents.lostConnections.first().isEmpty()) << "an orderly end carries no error";
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));
    EXPECT_EQ(hostEvents.stopped, 0);
}

TEST_F(ServerTest, NameCollisionIsReportedAndNeverRenamed)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents, firstEvents, secondEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    startServer(QStringLiteral("Same,5201,10_0_0_4,eth0"), &firstEvents);
    ASSERT_TRUE(waitForPresent(watcherEvents, QStringLiteral("Same,5201,10_0_0_4,eth0")));

    Server *second = startServer(QStringLiteral("Same,5201,10_0_0_4,eth0"), &secondEvents);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !secondEvents.didNotStart.isEmpty(); }, 5s));
    const QVariantMap error = secondEvents.didNotStart.first();
    EXPECT_EQ(error.value(QStringLiteral("domain")).toString(), Server::AvahiErrorDomain);
    EXPECT_NE(error.value(QStringLiteral("code")).toInt(), 0);
    EXPECT_FALSE(second->isPublished());
    EXPECT_EQ(second->iPerfIP(), QStringLiteral("Same,5201,10_0_0_4,eth0"));

    // Give a renamed copy ("… #2") time to show up: none may.
    ASSERT_FALSE(TestEnvironment::waitUntil([&] { return watcherEvents.present.size() > 1; }, 2s))
        << watcherEvents.presentNames().join(QLatin1Char('|')).toStdString();
}

TEST_F(ServerTest, ResolvingConnectsToThePeerAndGivesItsAddress)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate clientEvents, hostEvents;
    Server *client = startServer(QStringLiteral("Client"), &clientEvents);
    Server *host = startServer(QStringLiteral("Host,5201,10_0_0_5,eth0"), &hostEvents);
    ASSERT_TRUE(waitForPresent(clientEvents, host->iPerfIP()));
    const NetServicePtr service = clientEvents.presentNamed(host->iPerfIP());
    EXPECT_EQ(Server::getAddress(service), QStringLiteral("")) << "not resolved yet";

    client->connectToRemoteService(service);
    EXPECT_EQ(client->currentlyResolvingService(), service);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return hostEvents.connectionsCompleted == 1; }, 5s));
    EXPECT_EQ(Server::getAddress(service), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(service->port, host->port());
    EXPECT_EQ(client->currentlyResolvingService(), nullptr);
}

TEST_F(ServerTest, ResolvingAVanishedServiceGivesUpAfterTwoSeconds)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents;
    Server *watcher = startServer(QStringLiteral("Watcher"), &watcherEvents);
    auto gone = Server::withProtocol(kProtocolWord, QStringLiteral("Gone,5201,10_0_0_6,eth0"));
    ASSERT_TRUE(gone->start());
    ASSERT_TRUE(waitForPresent(watcherEvents, gone->iPerfIP()));
    const NetServicePtr service = watcherEvents.presentNamed(gone->iPerfIP());
    gone.reset();
    ASSERT_TRUE(waitForPresent(watcherEvents, service->name, false));

    QElapsedTimer clock;
    clock.start();
    watcher->connectToRemoteService(service);
    ASSERT_EQ(watcher->currentlyResolvingService(), service);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return watcher->currentlyResolvingService() == nullptr; }, 5s));
    EXPECT_GE(clock.elapsed(), 1900);
    EXPECT_LE(clock.elapsed(), 3000);
    EXPECT_EQ(Server::getAddress(service), QStringLiteral(""));
}

TEST_F(ServerTest, PeersPresentAtStartArriveAsOneBatch)
{
    REQUIRE_AVAHI_SANDBOX();
    startServer(QStringLiteral("One,5201,10_0_1_1,eth0"), nullptr);
    startServer(QStringLiteral("Two,5201,10_0_1_2,eth0"), nullptr);
    startServer(QStringLiteral("Three,5201,10_0_1_3,eth0"), nullptr);
    RecordingDelegate lateEvents;
    // Let the three settle before the browser starts.
    RecordingDelegate earlyEvents;
    startServer(QStringLiteral("Early"), &earlyEvents);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return earlyEvents.present.size() == 3; }, 8s));

    startServer(QStringLiteral("Late"), &lateEvents);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return lateEvents.present.size() == 4; }, 8s));
    QList<bool> flags;
    for (const auto &event : lateEvents.browseEvents)
        flags.append(event.moreComing);
    EXPECT_EQ(flags, (QList<bool>{true, true, true, false})) << "Early, One, Two, Three in one batch";
}

TEST_F(ServerTest, OverlongNamesLoseOnlyTheEndOfTheDisplayName)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    const QString fixed = QStringLiteral("Studio,5201,192_168_1_20,");
    const QString display = QString(20, QChar(0x00E9)) + QStringLiteral("Thunderbolt Ethernet Slot 1");
    Server *server = startServer(fixed + display + QStringLiteral(" (Primary)"), nullptr);

    const QString published = server->iPerfIP();
    EXPECT_LE(published.toUtf8().size(), 63);
    EXPECT_TRUE(published.startsWith(fixed + QString(10, QChar(0x00E9)))) << published.toStdString();
    EXPECT_TRUE(published.endsWith(QStringLiteral(" (Primary)")));
    EXPECT_EQ(QString::fromUtf8(published.toUtf8()), published);
    EXPECT_TRUE(m_log->contains(QStringLiteral("longer than 63 bytes")));
    ASSERT_TRUE(waitForPresent(watcherEvents, published));
}

TEST_F(ServerTest, SendDataNeedsAConnectedPeer)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate hostEvents;
    Server *host = startServer(QStringLiteral("Sender,5201,10_0_0_7,eth0"), &hostEvents);
    ServerError error;
    EXPECT_FALSE(host->sendData("hello", &error));
    EXPECT_EQ(error.domain, Server::ErrorDomain);
    EXPECT_EQ(error.code, Server::WriteFailed);

    QTcpSocket peer;
    peer.connectToHost(QHostAddress::LocalHost, host->port());
    ASSERT_TRUE(peer.waitForConnected(5000));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return host->outputStreamHasSpace(); }, 5s));

    EXPECT_FALSE(host->sendData(QByteArray(), &error));
    EXPECT_EQ(error.code, Server::NothingWritten);
    ASSERT_TRUE(host->sendData("hello", &error)) << error.toString().toStdString();
    QByteArray received;
    ASSERT_TRUE(TestEnvironment::waitUntil(
        [&] {
            received += peer.readAll();
            return received.size() >= 5;
        },
        5s));
    EXPECT_EQ(received, QByteArray("hello"));
}

TEST_F(ServerTest, StopWithdrawsButKeepsBrowsing)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents, stoppingEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    Server *stopping = startServer(QStringLiteral("Stopping,5201,10_0_0_8,eth0"), &stoppingEvents);
    ASSERT_TRUE(waitForPresent(watcherEvents, stopping->iPerfIP()));
    ASSERT_TRUE(waitForPresent(stoppingEvents, QStringLiteral("Watcher")));

    stopping->stop();
    EXPECT_EQ(stoppingEvents.stopped, 1);
    ASSERT_TRUE(waitForPresent(watcherEvents, stopping->iPerfIP(), false));
    QTcpSocket peer;
    peer.connectToHost(QHostAddress::LocalHost, stopping->port());
    EXPECT_FALSE(peer.waitForConnected(2000)) << "the listening socket is closed";

    // Its browser still reports peers until stopBrowser().
    startServer(QStringLiteral("Newcomer"), nullptr);
    ASSERT_TRUE(waitForPresent(stoppingEvents, QStringLiteral("Newcomer")));
    stopping->stopBrowser();
    EXPECT_FALSE(stopping->isBrowsing());
}

// The listening socket's own failures, provoked inside the sandbox.
TEST_F(ServerTest, SocketFailuresGiveTheirErrorCodes)
{
    REQUIRE_AVAHI_SANDBOX();
    // No free descriptor at all: the socket cannot be created.
    {
        rlimit saved{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
        const int lowestFree = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(lowestFree, 0);
        ::close(lowestFree);
        rlimit tight = saved;
        tight.rlim_cur = rlim_t(lowestFree);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        auto server = Server::withProtocol(kProtocolWord, QStringLiteral("NoFd"));
        ServerError error;
        const bool started = server->start(&error);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
        EXPECT_FALSE(started);
        EXPECT_EQ(error.domain, Server::ErrorDomain);
        EXPECT_EQ(error.code, Server::CreateFailed);
    }
    // One ephemeral port in the namespace, already taken: binding fails.
    {
        QByteArray before;
        ASSERT_TRUE(sandbox->runInNamespace({QStringLiteral("sysctl"), QStringLiteral("-n"),
                                             QStringLiteral("net.ipv4.ip_local_port_range")},
                                            &before));
        const QString range = QString::fromUtf8(before).simplified();
        ASSERT_TRUE(sandbox->runInNamespace({QStringLiteral("sysctl"), QStringLiteral("-w"),
                                             QStringLiteral("net.ipv4.ip_local_port_range=45000 45000")}));
        auto first = Server::withProtocol(kProtocolWord, QStringLiteral("PortHolder"));
        auto second = Server::withProtocol(kProtocolWord, QStringLiteral("NoPort"));
        ServerError error;
        const bool firstStarted = first->start(&error);
        const bool secondStarted = second->start(&error);
        sandbox->runInNamespace({QStringLiteral("sysctl"), QStringLiteral("-w"),
                                 QStringLiteral("net.ipv4.ip_local_port_range=%1").arg(range)});
        EXPECT_TRUE(firstStarted);
        EXPECT_EQ(first->port(), 45000);
        EXPECT_FALSE(secondStarted);
        EXPECT_EQ(error.domain, Server::ErrorDomain);
        EXPECT_EQ(error.code, Server::BindFailed);
    }
}

TEST_F(ServerTest, WithoutTheDaemonStartFailsAndTheNextStartWorksOnceItIsBack)
{
    REQUIRE_AVAHI_SANDBOX();
    sandbox->stopAvahi();
    auto orphan = Server::withProtocol(kProtocolWord, QStringLiteral("Orphan,5201,10_0_0_9,eth0"));
    ServerError error;
    EXPECT_FALSE(orphan->start(&error));
    EXPECT_EQ(error.domain, Server::AvahiErrorDomain);
    EXPECT_TRUE(m_log->contains(QStringLiteral("avahi-daemon is not available")));
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, orphan->port());
    EXPECT_FALSE(probe.waitForConnected(1000)) << "nothing listens for a service that is not published";

    ASSERT_TRUE(sandbox->startAvahi());
    RecordingDelegate watcherEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    ASSERT_TRUE(orphan->start(&error)) << error.toString().toStdString();
    ASSERT_TRUE(waitForPresent(watcherEvents, orphan->iPerfIP()));
}

TEST_F(ServerTest, ADaemonRestartIsWaitedForAndEverythingComesBack)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    Server *host = startServer(QStringLiteral("Survivor,5201,10_0_0_10,eth0"), nullptr);
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));

    sandbox->stopAvahi();
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP(), false)) << "peers vanish with the daemon";
    EXPECT_TRUE(m_log->contains(QStringLiteral("lost the connection to avahi-daemon")));

    ASSERT_TRUE(sandbox->startAvahi());
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));
    EXPECT_EQ(watcherEvents.present.size(), 1);
}

TEST_F(ServerTest, ALostSystemBusIsWaitedForToo)
{
    REQUIRE_AVAHI_SANDBOX();
    RecordingDelegate watcherEvents;
    startServer(QStringLiteral("Watcher"), &watcherEvents);
    Server *host = startServer(QStringLiteral("BusSurvivor,5201,10_0_0_11,eth0"), nullptr);
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));

    sandbox->stopAvahi();
    sandbox->stopBus();
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP(), false));
    ASSERT_TRUE(sandbox->startBus());
    ASSERT_TRUE(sandbox->startAvahi());
    ASSERT_TRUE(waitForPresent(watcherEvents, host->iPerfIP()));
}

} // namespace

