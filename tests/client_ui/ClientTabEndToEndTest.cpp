#include "client_tab/ClientTestSupport.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/TidewaveUtils.h"
#include "client/ClientTab.h"
#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"

#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>

#include <gtest/gtest.h>

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

// The client tab with its real services, the real launcher and a stock iperf3 server on loopback.
TEST(ClientTabEndToEnd, AReverseTestRunsTheToolFillsTableAndGraphAndAStopOrAClosedPortEndsARun)
{
    const QString launcher = TidewaveUtils::getiPerfExecutablePath(); // where the engine looks for it
    ASSERT_TRUE(QDir().mkpath(QFileInfo(launcher).path()) && (QFile::exists(launcher) || QFile::copy(TestEnvironment::binDir() + "/mac-native-iperf", launcher)));
    const quint16 port = TestEnvironment::freeTcpPort();
    QProcess server; // a stock iperf3 server
    server.start("iperf3", {"-s", "-B", "127.0.0.1", "-p", QString::number(port), "--forceflush"});
    ASSERT_TRUE(TestEnvironment::waitUntil([&, out = QByteArray()]() mutable { return (out += server.readAllStandardOutput()).contains("Server listening"); }, 10s));
    TempStore settings;
    InfoMessages messages;
    ClientTab tab(nullptr, [&] { ClientTabServices s; s.settings = &settings.store; return s; }());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab.isSetUp(); }, 5s));
    QPushButton *button = tab.findChild<QPushButton *>("runClient");
    const auto run = [&](int duration) {
        tab.findChild<QLineEdit *>("clientToServerIpAddress")->setText("127.0.0.1"), tab.findChild<QLineEdit *>("clientToServerPort")->setText(QString::number(port));
        tab.findChild<QLineEdit *>("testDuration")->setText(QString::number(duration)), tab.findChild<QComboBox *>("statsInterval")->setCurrentIndex(0), button->click();
    };
    const auto clients = [&] { // the command lines of the live iperf3 clients aimed at our port
        QStringList lines;
        for (const TestEnvironment::Process &p : TestEnvironment::liveProcesses())
            lines << (p.name == "iperf3" && p.arguments.contains("-p" + QByteArray::number(port)) ? QStringList{p.commandLine} : QStringList());
        return lines;
    };
    tab.findChild<QAbstractButton *>("serverToClientRadio")->click(), run(2);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !clients().isEmpty(); }, 5s));
    EXPECT_EQ(clients(), QStringList{QStringLiteral("/usr/bin/iperf3 -c 127.0.0.1 -p%1 -R -t2 -i1 --get-server-output --forceflush --format k").arg(port)});
    const PerfResultTableModel *rows = tab.testInfoView()->resultModel();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return rows->rowCount() >= 1; }, 10s) && button->text() == "Stop Test"); // results while it runs
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Run Test" && rows->rowCount() == tab.perfHelper()->resultss.size(); }, 15s));
    // Newest first: the summary from 0 on top, then the intervals (the first one may share a chunk with the connection line).
    const PerfResultList results = tab.perfHelper()->resultss;
    ASSERT_TRUE(results.size() == 2 || results.size() == 3) << results.size();
    EXPECT_TRUE(results.first()->startTime == "0.00" && qAbs(results.first()->endTime.toDouble() + results.at(1)->endTime.toDouble() - 4.0) < 0.2);
    EXPECT_TRUE(std::all_of(results.begin(), results.end(), [](const PerfResultPtr &r) { return r->sentBandwidth > 1e6f; }));
    EXPECT_EQ(messages.texts.join("|") + QString::number(tab.testInfoView()->graph()->pointCount() - results.size()), "1");
    EXPECT_TRUE(TestEnvironment::waitUntil([&] { return clients().isEmpty(); }, 5s));

    run(30); // stopped mid-run, the tool goes
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return clients().size() == 1 && rows->rowCount() >= 1; }, 10s) && (button->click(), true));
    EXPECT_TRUE(button->text() == "Run Test" && TestEnvironment::waitUntil([&] { return clients().isEmpty(); }, 5s));
    server.kill(), server.waitForFinished(5000), run(2);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Run Test"; }, 10s));
    EXPECT_TRUE(messages.texts.last().startsWith("Unable to perform test..iperf3: error - unable to connect to server")) << messages.texts.last().toStdString();
}

} // namespace
