#include "common/TestEnvironment.h"
#include "fakes/ServerTabFakeInventory.h"
#include "network/GetPIFInterfaceinfo.h"
#include "PerfHelper/PerfServer.h"
#include "server/ServerIntervalTableModel.h"
#include "server/ServerTabVIew.h"
#include "server/TestFinishedResultCellView.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TEAutoTextSizeTextField.h"

#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

inline void PrintTo(const QString &text, std::ostream *os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using Inventory = QList<ServerTabFakeInventory::Interface>;

// A server-side line from 10.0.0.5: interval, bytes, rate, jitter, loss, type.
PerfResultPtr line(const QString &interval, float bytes = 1, float rate = 1, const QString &jitter = "-", const QString &lost = "-", const QString &type = "receiver")
{
    const auto r = std::make_shared<PerfResult>();
    return r->intervals = interval, r->receivedBytes = bytes, r->receivedBandwidth = rate, r->jitter = jitter, r->lostTotalDataGrams = lost, r->typeName = type, r->ip = "10.0.0.5",
           r->currentDate = "22:15:0" + QString::number(interval.size() % 10), r;
}

iPerfServerResultsPtr testWith(const PerfResultList &intervals, const PerfResultList &finals = {})
{
    const auto test = std::make_shared<iPerfServerResults>();
    return test->intervalResults = intervals, test->finalResults = finals, test;
}

// A server tab with a recording shell, a hand-set clock and a fake inventory. No tool is placed in the test's
// private folders, so a "running" server is a shell that fails and is retried.
class ServerTab : public ::testing::Test
{
protected:
    void SetUp() override
    {
        store.removeObjectForKey("serverPort");
        GetPIFInterfaceinfo::setProvider(std::make_shared<ServerTabFakeInventory>(Inventory{{"eth0", "Ethernet", "10.0.0.7", 1}, {"wlan0", "Wi-Fi", "192.168.1.20", 0}}));
        for (const QString name : {"stopBonjour", "updateBonjour", "showInfoMessage"})
            NotificationCenter::defaultCenter().addObserver(this, name, [=, this](const QVariantMap &info) { posts << name + ":" + info.value("message").toString(); });
        tab = std::make_unique<ServerTabVIew>(nullptr, ServerTabEnvironment{[this](const QString &command) { posts << command; }, [this] { return now; }, 20});
    }
    void TearDown() override { tab.reset(), NotificationCenter::defaultCenter().removeObserver(this), GetPIFInterfaceinfo::setProvider(nullptr), notice->closeWindowOnMouseDown(); }
    QString controls() const { return tab->runServerButton->text() + QString::number(tab->stopServerButton->isEnabled()) + tab->serverRunningLabel->text() + QString::number(tab->isRunning); }

    SettingsStore &store = SettingsStore::standard();
    ProgressWindow *notice = ProgressWindowController::sharedPrgoressWindowController()->window();
    std::unique_ptr<ServerTabVIew> tab;
    double now = 1'700'000'000.0;
    QStringList posts; // notifications as "name:message", shell commands as they are
};

TEST_F(ServerTab, LoadingKillsStrayToolsOnceAndRunStopAndErrorsFollowTheTypedPort)
{
    const QTableView *table = (tab->awakeFromNib(), tab->serverResultsTableView);
    EXPECT_EQ(posts.join("") + controls() + QStringLiteral("%1%2%3%4").arg(table->horizontalHeader()->isHidden()).arg(table->verticalHeader()->isHidden())
                  .arg(table->horizontalHeader()->sectionResizeMode(0)).arg(table->verticalHeader()->minimumSectionSize()), "/usr/bin/killall mac-native-iperfRun Server001111");
    for (const auto &[typed, runsOn] : {std::pair{"80", 0}, {"999", 0}, {"", 5201}, {"1000", 1000}}) {
        posts.clear(), tab->serverPort->setText(typed), QTest::mouseClick(tab->runServerButton, Qt::LeftButton);
        EXPECT_EQ(notice->messageToShow->stringValue() + QString::number(notice->isVisible()) + QString::number(notice->closeButton->isVisible()),
                  (runsOn ? QStringLiteral("Server started on port %1").arg(runsOn) : "4 digit port is required to run the server") + "10");
        EXPECT_EQ(store.stringForKey("serverPort") + "|" + tab->serverPort->text() + "|" + controls(),
                  runsOn ? QStringLiteral("%1|%1|Running1Server running on %1 port1").arg(runsOn) : typed + QStringLiteral("|") + typed + "|Run Server00");
        QTest::mouseClick(tab->stopServerButton, Qt::LeftButton);
        EXPECT_EQ(controls() + QString::number(runsOn && tab->server->isStop() && tab->server->port() == runsOn), "Run Server00" + QString::number(runsOn != 0));
        EXPECT_EQ(posts.join("|"), runsOn ? "showInfoMessage:|stopBonjour:" : "showInfoMessage:") << typed;
    }
    QTest::keyClicks(tab->serverPort, "5a3-\r"); // digits only; Return stores the port
    tab->runServer(false), tab->stopServer(), tab->runServer(false); // a stopped server is replaced by a fresh one, a running one stays
    const PerfServer *fresh = tab->server.get();
    tab->runServer(false), posts.clear();
    EXPECT_TRUE(store.stringForKey("serverPort") == "100053" && tab->isRunning && !fresh->isStop() && tab->server.get() == fresh);
    tab->serverError(""), tab->serverError("not running: nothing to say"); // an error without text says what to try
    EXPECT_EQ(posts.join("|") + controls(), "stopBonjour:|showInfoMessage:Unable to start the server. Please try using different port number.Run Server00");
}

TEST_F(ServerTab, ReachabilityRestartsAtMostOncePerFiveSecondsAndPublishesTheAddresses)
{
    store.setObject(5204, "serverPort");
    tab->show(); // the field follows the store until the user types
    for (double step : {0.0, 3.0, 2.0, 0.5}) { // the first starts it; 3 s and exactly 5 s after it: ignored; 5.5 s: restarted
        const QPointer<PerfServer> before = tab->server.get();
        now += step, NotificationCenter::defaultCenter().post("InternetDidBecomeAvailableOnSystemNotification");
        EXPECT_EQ(tab->server.get(), before.data()) << "handled from the event loop, not during the post";
        QCoreApplication::processEvents();
        EXPECT_EQ(before.isNull() && tab->server, step == 0.0 || step == 0.5) << step;
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab->isRunning && tab->server->port() == 5204; }, std::chrono::seconds(5)));
    }
    const QString shown = "WiFi (Primary): 192.168.1.20, Ethernet: 10.0.0.7";
    EXPECT_EQ(QStringList({tab->serverPort->text(), store.stringForKey("IPAddresss"), tab->serverIpAddress->text(), store.stringForKey("PrimaryIPAddresss"),
                           store.stringForKey("PrimaryBSDName"), QString::number(posts.filter("updateBonjour").size() * 100 + tab->oldList.size() * 10 + ServerTabVIew::interfaceCount())}).join(u'|'),
              "5204|" + shown + "|" + shown + "|192.168.1.20|wlan0|202");
    // A cable plugged in: the new primary interface is shown, stored and published; the server stays.
    GetPIFInterfaceinfo::setProvider(std::make_shared<ServerTabFakeInventory>(Inventory{{"eth0", "Ethernet", "10.0.0.7", 0}, {"wlan0", "Wi-Fi", "192.168.1.20", 1}}));
    const PerfServer *server = tab->server.get();
    posts.clear(), NotificationCenter::defaultCenter().post("PrimaryInterfaceDidChangeNotification");
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !posts.filter("updateBonjour").isEmpty(); }, std::chrono::seconds(2)));
    EXPECT_EQ(QStringList({tab->serverIpAddress->text(), store.stringForKey("PrimaryBSDName"), QString::number(tab->server.get() == server)}).join(u'|'),
              "Ethernet (Primary): 10.0.0.7, WiFi: 192.168.1.20|eth0|1");
}

TEST_F(ServerTab, ResultsAreListedNewestFirstInRowsThatGrowWithTheirIntervalsAndSummariseTheWholeTest)
{
    auto older = testWith({line("0.00-1.00 sec", 1048576.0f * 2.5f, 8000000, "0.031 ms", "2/690")});
    tab->reportIntervalNew(older);
    older->intervalResults << line("1.00-2.00 sec");
    tab->reportIntervalNew(older), tab->testDidFinished(testWith({})), tab->testDidFinished(older); // each test listed once
    older->intervalResults << line("2.00-3.00 sec");
    tab->reportIntervalNew(older);
    PerfResultList log{line("0.00-1.00 sec")};
    log.first()->ip = "10.0.0.9";
    tab->testDidFinishedWithServerLog(log), tab->reportInterval(log); // a whole log goes last
    QStringList rows{QString::number(tab->serverLogsArray.size())};
    for (int row = -1; row <= 3; ++row) {
        const TestFinishedResultCellView *cell = tab->cellForRow(row);
        rows << (cell ? QStringLiteral("%1 %2/%3").arg(cell->textField->text()).arg(tab->rowHeight(row)).arg(cell->intervalModel()->rowCount()) : "-");
    }
    EXPECT_EQ(rows.join(u'|'), "1|-|From - 95/0|From 10.0.0.5 To This Computer 125/3|From 10.0.0.9 To This Computer 105/1|-");
    const ServerIntervalTableModel *intervals = tab->cellForRow(1)->intervalModel();
    QStringList cells;
    for (int c = 0; c <= intervals->columnCount(); ++c)
        cells << intervals->index(0, c).data().toString() + "/" + intervals->headerData(c, Qt::Horizontal).toString() + "/" + intervals->headerData(c, Qt::Horizontal, Qt::UserRole).toString();
    EXPECT_EQ(cells.join(u'|') + QString::number(int(intervals->index(0, 0).data(Qt::TextAlignmentRole).value<Qt::Alignment>())),
              "0.00-1.00 sec/Interval/interval|8.00 Mbps/Bandwidth/bandwidth|2.50 MB/Transfer/transfer|0.031 ms/Jitter/jitter|2/690/Lost/Total Datagrams/lost/totalDataGram|//129");

    // The summary: the last interval while the test runs, then the last whole-test line (from 0.00) that carried
    // data; a UDP receiver line that carried nothing is passed over.
    TestFinishedResultCellView *cell = tab->cellForRow(1);
    const auto summary = [&](const PerfResultList &finals) {
        older->finalResults = finals, cell->updateUI();
        QStringList texts;
        for (const QLabel *label : {cell->textField, cell->intervalTextField, cell->transferTextField, cell->bandwidthTextField, cell->jitterTextField,
                                    cell->lostTotalDatagramTextField, cell->typeName, cell->createdDateTextField})
            texts << label->text();
        return texts.join(u'|');
    };
    EXPECT_EQ(summary({}), "From 10.0.0.5 To This Computer|-|-|-|-|-|Server is receiver|22:15:03");
    EXPECT_EQ(summary({line("0.00-10.00 sec", 1.1e9f, 9.4e8f, "-", "-", "sender"), line("0.00-10.04 sec", 1048576.0f * 1125, 943210000), line("1.00-2.00 sec")}),
              "From 10.0.0.5 To This Computer|0.00-10.04 sec|1125.00 MB|943.21 Mbps|-|-|Server is receiver|22:15:04");
    EXPECT_EQ(summary({line("0.00-10.00 sec", 0, 0, "1.250 ms", "856/856", "sender"), line("0.00-10.00 sec", 1048576, 8e6f, "0.000 ms", "0/9"), line("0.00-10.00 sec", 0, 0, "0.000 ms", "0/0")}),
              "From 10.0.0.5 To This Computer|0.00-10.00 sec|1.00 MB|8.00 Mbps|0.000 ms|0/9|Server is receiver|22:15:04");
    const QTableView *table = cell->intervalResultsTable; // plain text; small, one fixed line per interval
    const QHeaderView *lines = table->verticalHeader(), *columns = table->horizontalHeader();
    EXPECT_EQ(QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10").arg(cell->typeName->textFormat()).arg(lines->isHidden()).arg(lines->defaultSectionSize())
                  .arg(lines->minimumSectionSize()).arg(lines->sectionResizeMode(0)).arg(columns->sectionResizeMode(0)).arg(columns->highlightSections())
                  .arg(columns->height()).arg(table->viewport()->autoFillBackground()).arg(table->font().pixelSize()), "0 1 10 10 2 1 0 14 0 9");
    QTest::mouseClick(tab->findChild<QPushButton *>("clearButton"), Qt::LeftButton);
    EXPECT_EQ(tab->serverTestResultsArray.size() + tab->serverResultsTableView->model()->rowCount(), 0);
}

} // namespace
