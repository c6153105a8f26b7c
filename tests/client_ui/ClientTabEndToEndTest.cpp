#include "client_tab/ClientTestSupport.h"
#include "common/TestEnvironment.h"
#include "fakes/ClientFakeAlerts.h"

#include "PerfHelper/TidewaveUtils.h"
#include "client/ClientTab.h"
#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

// Live processes whose command line is a client run against this loopback
// port (shell, launcher, iperf3); other programs' tools are left out.
QList<qint64> clientProcessesFor(quint16 port)
{
    QList<qint64> pids;
    const QByteArray portWord = QByteArray::number(port);
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(entry));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> words = file.readAll().replace('\0', ' ').split(' ');
        const bool client = words.contains("-c") && words.contains("127.0.0.1");
        const bool onPort = words.contains("-p" + portWord) || words.contains(portWord);
        if (client && onPort && TestEnvironment::processAlive(entry.toLongLong()))
            pids.append(entry.toLongLong());
    }
    return pids;
}

class ClientTabEndToEnd : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // The launcher goes where the engine looks for it.
        const QString target = TidewaveUtils::getiPerfExecutablePath();
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile::remove(target);
        ASSERT_TRUE(QFile::copy(TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf"), target));
        QFile::setPermissions(target, QFile::permissions(target) | QFile::ExeOwner);
    }

    void SetUp() override
    {
        settings.store.registerDefaults({{QStringLiteral("graphMaxSpeed"), 100}, {QStringLiteral("testType"), QStringLiteral("0")}});
        ClientTabServices services;
        services.settings = &settings.store;
        services.alerts = &alerts;
        tab = std::make_unique<ClientTab>(nullptr, services);
        tab->resize(1100, 860);
        tab->show();
        ASSERT_TRUE(TestEnvironment::waitUntil([this] { return tab->isSetUp(); }, 5s));
    }

    ~ClientTabEndToEnd() override
    {
        tab.reset();
        if (server.state() != QProcess::NotRunning) {
            server.kill();
            server.waitForFinished(5000);
        }
    }

    // A stock iperf3 server for one test on 127.0.0.1.
    bool startServer()
    {
        server.setProcessChannelMode(QProcess::MergedChannels);
        server.start(QStringLiteral("iperf3"), {QStringLiteral("-s"), QStringLiteral("-1"), QStringLiteral("-B"),
                                                QStringLiteral("127.0.0.1"), QStringLiteral("-p"), QString::number(port),
                                                QStringLiteral("--forceflush")});
        QByteArray output;
        return TestEnvironment::waitUntil([&] { return (output += server.readAll()).contains("Server listening"); }, 10s);
    }

    void run(int duration)
    {
        tab->findChild<QLineEdit *>(QStringLiteral("clientToServerIpAddress"))->setText(QStringLiteral("127.0.0.1"));
        tab->findChild<QLineEdit *>(QStringLiteral("clientToServerPort"))->setText(QString::number(port));
        tab->findChild<QLineEdit *>(QStringLiteral("testDuration"))->setText(QString::number(duration));
        tab->findChild<QComboBox *>(QStringLiteral("statsInterval"))->setCurrentIndex(0);
        runButton()->click();
    }

    QPushButton *runButton() { return tab->findChild<QPushButton *>(QStringLiteral("runClient")); }
    bool idle() { return runButton()->text() == QStringLiteral("Run Test"); }
    PerfResultTableModel *rows() { return tab->testInfoView()->resultModel(); }

    void screenshot(const QString &name)
    {
        QDir().mkpath(QStringLiteral(TIDEWAVE_SCREENSHOT_DIR));
        EXPECT_TRUE(tab->grab().save(QStringLiteral(TIDEWAVE_SCREENSHOT_DIR "/") + name));
    }

    TempStore settings;
    ClientFakeAlerts alerts;
    InfoMessages messages;
    quint16 port = TestEnvironment::freeTcpPort();
    QProcess server;
    std::unique_ptr<ClientTab> tab;
};

TEST_F(ClientTabEndToEnd, ThreeSecondTcpTestFillsTableAndGraph)
{
    ASSERT_TRUE(startServer());
    run(3);
    EXPECT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    ASSERT_EQ(tab->testResultsArray().size(), 1);
    const PerfHelperPtr test = tab->testResultsArray().first();
    // Results appear while the test runs.
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return rows()->rowCount() >= 1; }, 10s));
    EXPECT_FALSE(idle());
    screenshot(QStringLiteral("client_tab_running.png"));

    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return idle(); }, 20s)) << messages.texts.join('|').toStdString();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return rows()->rowCount() == test->resultss.size(); }, 5s));
    screenshot(QStringLiteral("client_tab_finished.png"));

    // Newest first: the final summary (0 to the end, which the engine also
    // reports as an interval) on top, then the intervals, latest first. A
    // chunk that carries the connection line is not read further, so the
    // first interval may be missing.
    const qsizetype count = test->resultss.size();
    EXPECT_TRUE(count == 3 || count == 4) << count;
    EXPECT_EQ(test->resultss.first()->startTime, QStringLiteral("0.00"));
    EXPECT_GE(test->resultss.first()->endTime.toDouble(), 2.9);
    for (qsizetype r = 1; r + 1 < count; ++r)
        EXPECT_GT(test->resultss.at(r)->startTime.toDouble(), test->resultss.at(r + 1)->startTime.toDouble());
    EXPECT_EQ(tab->testInfoView()->graph()->pointCount(), count + 1);
    for (const PerfResultPtr &r : test->resultss)
        EXPECT_GT(r->sentBandwidth, 0.0f);
    EXPECT_EQ(messages.texts, QStringList{QString()});
    EXPECT_TRUE(TestEnvironment::waitUntil([&] { return clientProcessesFor(port).isEmpty(); }, 10s));
}

TEST_F(ClientTabEndToEnd, ClosedPortFailsWithTheToolsMessage)
{
    run(3);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return idle(); }, 15s));
    ASSERT_FALSE(messages.texts.isEmpty());
    EXPECT_TRUE(messages.texts.last().startsWith(QStringLiteral("Unable to perform test.."))) << messages.texts.last().toStdString();
    EXPECT_TRUE(tab->findChild<QLineEdit *>(QStringLiteral("testDuration"))->isEnabled());
}

TEST_F(ClientTabEndToEnd, StopMidRunLeavesNoProcess)
{
    ASSERT_TRUE(startServer());
    run(30);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return rows()->rowCount() >= 1; }, 10s));
    ASSERT_FALSE(clientProcessesFor(port).isEmpty());
    runButton()->click();
    EXPECT_TRUE(idle());
    EXPECT_TRUE(TestEnvironment::waitUntil([&] { return clientProcessesFor(port).isEmpty(); }, 10s));
}

TEST_F(ClientTabEndToEnd, ShellTextInAStoredAddressNeverRuns)
{
    QTemporaryDir dir;
    const QString marker = dir.filePath(QStringLiteral("pwned"));
    // As a malicious discovered peer could have it stored.
    settings.store.setObject(QStringLiteral("127.0.0.1 $(touch %1)").arg(marker), QStringLiteral("clientToServerIpAddress"));
    settings.store.setObject(QString::number(port), QStringLiteral("clientToServerPort"));
    tab->refreshvalue({{QStringLiteral("update"), QVariant::fromValue(&settings.store)}});
    runButton()->click();
    EXPECT_EQ(messages.texts, QStringList{QStringLiteral(
                                  "Unable to perform test. Please check client settings or make sure server is running.")});
    EXPECT_TRUE(tab->testResultsArray().isEmpty());
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return QFile::exists(marker); }, 1500ms));
}

} // namespace
