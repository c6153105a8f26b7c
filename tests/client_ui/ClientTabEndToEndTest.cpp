#include "client_tab/ClientTestSupport.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/TidewaveUtils.h"
#include "shell/PlainText.h"
#include "client/ClientTab.h"
#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestFileActions.h"
#include "client/TestInformationView.h"
#include "client/TestListModel.h"
#include "network/WiFiInterface.h"

#include <QComboBox>
#include <QDir>
#include <QAction>
#include <QLineEdit>
#include <QLineSeries>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

// The real launcher where the engine looks for it, and a stock iperf3 server on a free loopback port.
class ClientTabEndToEnd : public testing::Test
{
protected:
    void SetUp() override
    {
        const QString launcher = TidewaveUtils::getiPerfExecutablePath();
        ASSERT_TRUE(QDir().mkpath(QFileInfo(launcher).path()) && (QFile::exists(launcher) || QFile::copy(TestEnvironment::binDir() + "/mac-native-iperf", launcher)));
        server.start("iperf3", {"-s", "-B", "127.0.0.1", "-p", QString::number(port), "--forceflush"});
        ASSERT_TRUE(TestEnvironment::waitUntil([&, out = QByteArray()]() mutable { return (out += server.readAllStandardOutput()).contains("Server listening"); }, 10s));
    }
    void TearDown() override { server.kill(), server.waitForFinished(5000); }

    const quint16 port = TestEnvironment::freeTcpPort();
    QProcess server;
};

// The client tab with its real services, the real launcher and a stock iperf3 server on loopback.
TEST_F(ClientTabEndToEnd, AReverseTestRunsTheToolFillsTableAndGraphAndAStopOrAClosedPortEndsARun)
{
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

// Every cell of a test's records as the interval table shows them, newest first, then its final record's.
QStringList cells(const TestListModel &list, const PerfHelperPtr &test)
{
    QStringList out;
    const auto add = [&](const PerfResult &r) {
        for (const QString &identifier : PerfResultTableModel::defaultColumnIdentifiers())
            out << PerfResultTableModel::cellValue(r, identifier).toString();
    };
    for (const PerfResultPtr &r : test->resultss)
        add(*r);
    if (const PerfResultPtr last = list.extras(test.get()).finalResult)
        out << "final", add(*last);
    return out;
}

// Two tests against a stock iperf3 server, saved; a new client tab (the application started again) opens and compares them.
TEST_F(ClientTabEndToEnd, TwoTestsSavedAreOpenedAfterARestartAsTheyRanAndCompared)
{
    TempStore settings;
    QTemporaryDir dir;
    const QString path = dir.filePath("two.tidewave.json");
    QStringList before;
    {
        ClientTab tab(nullptr, [&] { ClientTabServices s; s.settings = &settings.store; return s; }());
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab.isSetUp(); }, 5s));
        QPushButton *button = tab.findChild<QPushButton *>("runClient");
        tab.findChild<QLineEdit *>("clientToServerIpAddress")->setText("127.0.0.1"), tab.findChild<QLineEdit *>("clientToServerPort")->setText(QString::number(port));
        tab.findChild<QLineEdit *>("testDuration")->setText("2"), tab.findChild<QComboBox *>("statsInterval")->setCurrentIndex(0);
        for (QAbstractButton *direction : {tab.findChild<QAbstractButton *>("clientToServerRadio"), tab.findChild<QAbstractButton *>("serverToClientRadio")}) {
            direction->click(), button->click();
            ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Stop Test"; }, 5s));
            ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Run Test"; }, 15s));
        }
        TestListModel &list = *tab.listModel();
        ASSERT_EQ(list.rowCount(), 2);
        list.setData(list.index(1, 1), "Upload, kitchen"), tab.testInfoView()->setPerfHelper(list.testAt(1)), tab.testInfoView()->noteEditor()->setPlainText("door shut");
        for (int row : {0, 1})
            list.setData(list.index(row, 0), Qt::Checked, Qt::CheckStateRole), before << list.testAt(row)->testLabel << cells(list, list.testAt(row));
        EXPECT_TRUE(list.extras(list.testAt(0).get()).finalResult && list.testAt(0)->resultss.size() >= 2);
        auto *files = qobject_cast<TestFileActions *>(tab.fileActions().first()->parent());
        ASSERT_TRUE(files && tab.fileActions().first()->text() == "Save Tests…");
        ASSERT_EQ(files->saveTests(path), QString());
    }
    ClientTab tab(nullptr, [&] { ClientTabServices s; s.settings = &settings.store; return s; }());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab.isSetUp(); }, 5s));
    ASSERT_EQ(qobject_cast<TestFileActions *>(tab.fileActions().first()->parent())->openTests(path), QString());
    TestListModel &list = *tab.listModel();
    QStringList after;
    for (int row : {0, 1})
        after << list.testAt(row)->testLabel << cells(list, list.testAt(row));
    EXPECT_EQ(after, before);
    EXPECT_EQ(list.extras(list.testAt(1).get()).note, "door shut");
    const QList<QLineSeries *> &series = tab.testInfoView()->graph()->comparedSeries();
    ASSERT_EQ(series.size(), 2); // saved ticked, opened ticked: compared at once
    EXPECT_EQ(series.at(1)->name(), PlainText::asRichText("Upload, kitchen"));
    EXPECT_EQ(series.at(0)->count(), list.testAt(0)->resultss.size() + 1);
}

// A Wi-Fi link that reads as the script says, one reading a record, the last repeating.
struct ScriptedLink : WiFiInterface
{
    QList<WiFiLinkState> script;
    std::atomic<int> read{0};
    QString interfaceName() const override { return "wlan0"; }
    WiFiLinkState linkState() override { return script.value(std::min<int>(read++, int(script.size()) - 1)); }
};

// The link over a real test: the signal of each interval on the graph as the link gave it, one roam marker where the
// access point changed. Then two streams both ways: the tool runs so, and the graph has a line each way.
TEST_F(ClientTabEndToEnd, TheLinkOverARealTestAndATwoWayTestWithStreams)
{
    auto link = std::make_shared<ScriptedLink>();
    for (const auto &[rssi, bssid] : {std::pair{-41, "02:00:00:00:00:0a"}, {-47, "02:00:00:00:00:0a"}, {-55, "02:00:00:00:00:0b"}, {-60, "02:00:00:00:00:0b"}}) {
        WiFiLinkState state;
        state.ssid = "Harbour", state.bssid = bssid, state.rssiValue = rssi, state.interfaceMode = 1;
        link->script << state;
    }
    TempStore settings;
    ClientTab tab(nullptr, [&] {
        ClientTabServices s;
        s.settings = &settings.store;
        s.networkDetails = [] { auto wlan = std::make_shared<PIFCInterfaceInfo>(); wlan->BSDName = "wlan0"; return PIFCInterfaceInfoList{wlan}; };
        s.openWiFiInterface = [&](const QString &) { return std::static_pointer_cast<WiFiInterface>(link); };
        return s;
    }());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab.isSetUp(); }, 5s));
    QPushButton *button = tab.findChild<QPushButton *>("runClient");
    tab.findChild<QLineEdit *>("clientToServerIpAddress")->setText("127.0.0.1"), tab.findChild<QLineEdit *>("clientToServerPort")->setText(QString::number(port));
    tab.findChild<QLineEdit *>("testDuration")->setText("3"), tab.findChild<QComboBox *>("statsInterval")->setCurrentIndex(0);
    const auto runToTheEnd = [&] {
        button->click();
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Stop Test"; }, 5s));
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return button->text() == "Run Test"; }, 20s));
    };
    runToTheEnd();
    const SpeedGraph *graph = tab.testInfoView()->graph();
    ASSERT_TRUE(graph->signalSeries());
    EXPECT_EQ(graph->signalSeries()->points(), (QList<QPointF>{{1, -41}, {2, -47}, {3, -55}}));
    EXPECT_EQ(graph->roamMarkers(), QList<double>{3});

    tab.findChild<QSpinBox *>("parallelStreams")->setValue(2), tab.findChild<QAbstractButton *>("twoWayTest")->click();
    QStringList commandLines;
    QObject watcher;
    QTimer sample; // the client's command line, read while it runs
    QObject::connect(&sample, &QTimer::timeout, &watcher, [&] {
        for (const TestEnvironment::Process &p : TestEnvironment::liveProcesses())
            if (p.name == "iperf3" && p.arguments.contains("-p" + QByteArray::number(port)) && !commandLines.contains(p.commandLine))
                commandLines << p.commandLine;
    });
    sample.start(100);
    runToTheEnd();
    EXPECT_EQ(commandLines, QStringList{QStringLiteral("/usr/bin/iperf3 -c 127.0.0.1 -p%1 -P2 --bidir -t3 -i1 --get-server-output --forceflush --format k").arg(port)});
    const QList<QLineSeries *> &lines = graph->comparedSeries();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0)->name() == PlainText::asRichText("Up") && lines.at(1)->name() == PlainText::asRichText("Down") && lines.at(0)->count() >= 4
                && lines.at(1)->count() >= 4) << lines.at(0)->count() << " " << lines.at(1)->count();
}

} // namespace
