#include "client_tab/ClientTestSupport.h"
#include "common/TestEnvironment.h"
#include "fakes/ClientFakeAlerts.h"
#include "fakes/ClientManualScheduler.h"
#include "fakes/FakeWiFiInterface.h"

#include "client/ClientTab.h"
#include "client/GraphView.h"
#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/SpeedPlotItem.h"
#include "client/TestFileActions.h"
#include "client/TestInformationView.h"
#include "client/TestDeleteButtonDelegate.h"
#include "client/TestListController.h"
#include "client/TestListModel.h"
#include "discovery/ServerDiscoveryList.h"
#include "shell/Logger.h"

#include <QAbstractItemModelTester>
#include <QChart>
#include <QComboBox>
#include <QHeaderView>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLegend>
#include <QLineEdit>
#include <QLineSeries>
#include <QPlainTextEdit>
#include <QProcess>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>
#include <QValueAxis>

#include <gtest/gtest.h>

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

PerfResultPtr record(const QString &start, const QString &end, float bytes, float bitsPerSecond, qint64 format = 0, const QString &interfaceName = {})
{
    const auto r = std::make_shared<PerfResult>();
    return r->startTime = start, r->endTime = end, r->sentBytes = bytes, r->sentBandwidth = bitsPerSecond, r->bandwidthformat = format, r->interfaceName = interfaceName, r;
}

PerfResultPtr over(const QString &interfaceName, qint64 format = 0) { return record("0.00", "1.00", 1000, 93456789.0f, format, interfaceName); }

// A finished 10 s TCP test against 10.0.0.5 with these records, newest first.
PerfHelperPtr test(SettingsStore &store, const PerfResultList &newestFirst = {})
{
    const auto t = std::make_shared<PerfHelper>(store);
    return t->serverIP = "10.0.0.5", t->serverPort = 5201, t->duration = 10, t->stats_interval = 1, t->testLabel = "TCP Test", t->resultss = newestFirst, t;
}

// What the coordinator is handed when a run starts.
QString describe(const PerfHelper &t)
{
    return QStringLiteral("%1:%2 %3s/%4 %5 %6K max%7 fmt%8 rev%9 type%10 send%11 run%12 row%13 sel%14 inv%15")
        .arg(t.serverIP).arg(t.serverPort).arg(t.duration).arg(t.stats_interval).arg(t.testLabel).arg(t.bufferLength).arg(t.graphMaxSpeed)
        .arg(t.bandwidthformat).arg(t.reverse).arg(t.testType).arg(t.sendBandwidth).arg(t.isTestRunning).arg(t.index).arg(t.isSelected).arg(t.invalidTestDuration);
}

// The detail view's settings labels as the user reads them, top to bottom.
QString labels(const TestInformationView &view)
{
    QStringList texts;
    for (const char *name : {"testLabel", "serverAddress", "serverPort", "testType", "transferDirection", "testDuration", "statsInterval", "sendBandwidth", "datagramSize", "graphMaxSpeed"})
        texts << view.findChild<QLabel *>(name)->text();
    return texts.join(u'|');
}

QString points(const SpeedGraph &graph)
{
    QString out;
    for (qsizetype i = 0; i < graph.pointCount(); ++i)
        out += QStringLiteral(" %1,%2").arg(graph.pointAt(i).x()).arg(graph.pointAt(i).y());
    return out.mid(1);
}

const char *const kKeys[] = {"clientToServerIpAddress", "clientToServerPort", "testDuration", "statsInterval", "transfer_Direction", "bandwidthformat",
                             "testType", "sendBandwidth", "graphMaxSpeed", "bufferLength", "audioAlert"};

// A client tab over its own store, with fakes for time, alerts, the inventory, the radio, speech and
// the tool runs. Its set-up (the first delayed call) is left to the test.
class ClientTabTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        settings.store.registerDefaults({{"clientToServerPort", "5201"}, {"testDuration", 10}, {"statsInterval", 1}, {"testType", "0"}, {"graphMaxSpeed", 100}});
        interfaces << std::make_shared<PIFCInterfaceInfo>(), interfaces.first()->BSDName = "wlp2s0";
        tab = std::make_unique<ClientTab>(nullptr, ClientTabServices{
            &settings.store, &alerts, &scheduler, [this] { return interfaces; },
            [this](const QString &name) { return opened << name, std::static_pointer_cast<WiFiInterface>(wifi); },
            [this](const QString &command) { spoken << command; }, [this](PerfHelper &t) { started << describe(t); },
            [this](PerfHelper &t) { stopped << &t; }, nullptr});
    }
    template <typename T = QAbstractButton> T *w(const char *name) const { return tab->findChild<T *>(name); }
    QLineEdit *field(const char *name) const { return w<QLineEdit>(name); }
    void choose(const char *name, int index) const { w<QComboBox>(name)->setCurrentIndex(index), emit w<QComboBox>(name)->activated(index); }
    void start(const QString &address = "127.0.0.1", const QString &port = "5201", const QString &duration = "10", int stats = 1, bool udp = false, const QString &buffer = "") const
    {
        field("clientToServerIpAddress")->setText(address), field("clientToServerPort")->setText(port), field("testDuration")->setText(duration);
        field("lengthOFBuffers")->setText(buffer), w<QComboBox>("statsInterval")->setCurrentIndex(stats - 1), choose("testType", udp), w("runClient")->click();
    }
    // The form as the user sees it: fields, pop-ups, ticks (C>S, S>C, Mbps, Kbps, spoken rates), caption units.
    QString form() const
    {
        QStringList out;
        for (const char *name : {"clientToServerIpAddress", "clientToServerPort", "testDuration", "sendBandwidth", "graphMaxSpeed", "lengthOFBuffers"})
            out << field(name)->text();
        out << w<QComboBox>("statsInterval")->currentText() << w<QComboBox>("testType")->currentText() << "";
        for (const char *name : {"clientToServerRadio", "serverToClientRadio", "mbpsRadio", "kbpsRadio", "audioAlert"})
            out.last() += QString::number(w(name)->isChecked());
        return out.join(u'|') + u'|' + w<QLabel>("sendBandwidthLabel")->text().mid(16, 4) + w<QLabel>("graphMaxSpeedLabel")->text().mid(17);
    }
    static QString stored(const SettingsStore &store)
    {
        QStringList values;
        for (const char *key : kKeys)
            values << store.objectForKey(key).toString();
        return values.join(u'|');
    }
    // The run button, whether the form can be used, whether the spinner shows.
    QString state() const
    {
        return w("runClient")->text() + QStringLiteral("%1%2%3").arg(field("testDuration")->isEnabled()).arg(w("kbpsRadio")->isEnabled()).arg(w<QWidget>("progressIndicator")->isVisibleTo(tab.get()));
    }

    TempStore settings;
    ClientFakeAlerts alerts;
    ClientManualScheduler scheduler;
    InfoMessages messages;
    PIFCInterfaceInfoList interfaces;
    std::shared_ptr<FakeWiFiInterface> wifi = std::make_shared<FakeWiFiInterface>("wlp2s0");
    QStringList opened, spoken, started;
    QList<PerfHelper *> stopped;
    std::unique_ptr<ClientTab> tab;
};

TEST_F(ClientTabTest, StoredValuesFillTheFormHalfASecondAfterLoadingAndEachControlStoresWhatItShows)
{
    settings.store.clearRegisteredDefaults();
    QTest::keyClicks(field("testDuration"), "9\r"); // before set-up an entry is dropped
    ASSERT_TRUE(!settings.store.objectForKey("testDuration").isValid() && scheduler.delays.at(0) == 500ms && scheduler.calls.at(0)());
    const std::pair<QVariantMap, const char *> rows[] = {
        {{{"clientToServerIpAddress", "192.168.7.9"}, {"clientToServerPort", "5302"}, {"testDuration", "25"}, {"statsInterval", "3"}, {"transfer_Direction", "1"},
          {"bandwidthformat", "1"}, {"testType", "1"}, {"sendBandwidth", "20"}, {"graphMaxSpeed", "300"}, {"audioAlert", "1"}},
         "192.168.7.9|5302|25|20|300||3|UDP|01011|KbpsKbps):"},
        {{{"statsInterval", "60"}, {"testType", "0"}, {"audioAlert", "0"}}, "|0|0|0|0||60|TCP|10100|MbpsMbps):"},
        {{{"statsInterval", "61"}}, "|0|0|0|0|||TCP|10100|MbpsMbps):"}, // out of range: none chosen; no alert choice: stored as off
        {{{"statsInterval", "1"}, {"testType", "2"}, {"audioAlert", "1"}}, "|0|0|0|0||1|UDP|10101|MbpsMbps):"}};
    for (const auto &[values, expected] : rows) {
        for (const char *key : kKeys)
            values.contains(key) ? settings.store.setObject(values[key], key) : settings.store.removeObjectForKey(key);
        tab->setupMyValues();
        EXPECT_EQ(form() + settings.store.stringForKey("audioAlert"), expected + values.value("audioAlert", "0").toString());
    }
    choose("statsInterval", 6), choose("testType", 0), w("serverToClientRadio")->click(), w("audioAlert")->click(); // the stored buffer follows the type
    for (const char *name : {"testDuration", "clientToServerIpAddress", "clientToServerPort", "graphMaxSpeed", "sendBandwidth"})
        QTest::keyClicks(field(name), "7a-.5\r"); // digits only where numbers go
    EXPECT_EQ(stored(settings.store), "7a-.5|075|075|7|1||0|075|075|128|0");
    choose("testType", 1), w("clientToServerRadio")->click(), w("audioAlert")->click(), w("kbpsRadio")->click(); // forgets the send rate
    EXPECT_EQ(form(), "7a-.5|075|075|075|075||7|UDP|10011|KbpsKbps):");
    EXPECT_EQ(stored(SettingsStore(settings.path)), "7a-.5|075|075|7|0|1|1||075|8|1"); // on disk
    w("mbpsRadio")->click();
    EXPECT_EQ(w<QLabel>("sendBandwidthLabel")->text() + w<QLabel>("graphMaxSpeedLabel")->text() + settings.store.stringForKey("bandwidthformat"),
              "Send Bandwidth (Mbps):Graph Max Speed (Mbps):0");
}

TEST_F(ClientTabTest, RunChecksTheFormInOrderAndHandsTheCoordinatorTheStoredSettings)
{
    const QString tcp = "127.0.0.1:5301 10s/1 TCP Test 128K max100 fmt0 rev0 type0 send0 run1 row0 sel0 inv1", lo = "127.0.0.1", p = "5301";
    const QString udp = QString(tcp).replace("TCP Test 128K", "UDP Test 8K").replace("type0", "type1");
    const QString notIp = "Unable to perform test. Please check client settings or make sure server is running.";
    // {address, port, duration, stats interval, UDP, buffer, messages, run started (empty: refused), time-out seconds}
    const std::tuple<QString, QString, QString, int, bool, QString, QStringList, QString, int> rows[] = {
        {lo, p, "10", 1, false, "", {""}, tcp, 16}, {"10.0.0", p, "10", 1, false, "", {notIp}, "", 0}, {"127.0.0.1 $(touch /tmp/x)", p, "10", 1, false, "", {notIp}, "", 0},
        {"x", p, "10", 11, false, "", {notIp}, "", 0}, // the address is checked first, then the interval, before the buffer
        {lo, p, "10", 11, true, "9", {"Invalid stats interval. Stats interval should be less than or equal to Test Duration."}, "", 0},
        {lo, p, "10", 10, false, "", {""}, QString(tcp).replace("10s/1", "10s/10"), 15}, {lo, p, "10", 2, false, "", {""}, QString(tcp).replace("10s/1", "10s/2"), 7},
        {lo, "", "10", 1, false, "", {""}, QString(tcp).replace(p, "5201"), 16},
        {lo, p, "0", 20, false, "", {""}, QString(tcp).replace("10s/1", "30s/20"), 25}, // 0 s is 30 s, then compared
        {lo, p, "10", 1, true, "8", {""}, udp, 16}, {lo, p, "10", 1, true, "0", {""}, udp, 16}, {lo, p, "10", 1, true, "9", {"", "In UDP test Type, Maximum Buffer length is 8 KB"}, "", 0},
        {lo, p, "10", 1, false, "1024", {""}, QString(tcp).replace("128K", "1024K"), 16}, {lo, p, "10", 1, false, "0", {""}, tcp, 16},
        {lo, p, "10", 1, false, "1025", {"", "In TCP test Type, Maximum Buffer length is 1024 KB"}, "", 0}};
    ASSERT_TRUE(scheduler.calls.at(0)());
    for (const auto &[address, port, duration, stats, udp, buffer, shown, run, timeOut] : rows) {
        messages.texts.clear(), started.clear();
        const qsizetype before = tab->testResultsArray().size() + scheduler.delays.size();
        start(address, port, duration, stats, udp, buffer);
        EXPECT_EQ(messages.texts, shown) << address.toStdString() << buffer.toStdString();
        EXPECT_EQ(started.join("") + "|" + state(), run + (run.isEmpty() ? "|Run Test110" : "|Stop Test001")) << buffer.toStdString();
        EXPECT_EQ(tab->testResultsArray().size() + scheduler.delays.size(), before + 2 * !run.isEmpty());
        EXPECT_EQ(scheduler.delays.last(), run.isEmpty() ? scheduler.delays.last() : std::chrono::seconds(timeOut));
        tab->testFail("x");
    }
}

TEST_F(ClientTabTest, ARunShowsItsSettingsStampsWiFiResultsAndFillsListTableAndGraph)
{
    WiFiLinkState link;
    link.ssid = "Harbour", link.bssid = "0:1b:2c:3:4d:e", link.rssiValue = -45, link.noiseMeasurement = -92, link.transmitRate = 866.7;
    wifi->setLinkState(link);
    ASSERT_TRUE(scheduler.calls.at(0)());
    w("kbpsRadio")->click(), w("serverToClientRadio")->click(), w("audioAlert")->click(), field("sendBandwidth")->setText("20"), field("graphMaxSpeed")->setText("300"), start();
    EXPECT_EQ(started.join("") + opened.join(""), "127.0.0.1:5201 10s/1 TCP Test 128K max300 fmt1 rev1 type0 send20 run1 row0 sel0 inv1wlp2s0");
    TestInformationView *detail = tab->testInfoView();
    const SpeedGraph *graph = detail->graph();
    EXPECT_EQ(labels(*detail) + graph->graphTitle() + graph->xAxisTitle() + graph->yAxisTitle() + QString::number(graph->xRangeLength() * graph->yRangeLength()),
              "|127.0.0.1|5201|TCP|Server To Client|10 sec|1 sec|20|128|300TCP Test,  From This Computer To 127.0.0.1Test Duration (10)\nStats Interval = None"
              "Speed (Kbps)3300");
    TestListModel *list = tab->listModel();
    EXPECT_TRUE(list->index(0, 0).data(Qt::CheckStateRole) == Qt::Checked && !list->setData(list->index(0, 1), "Kitchen"));
    EXPECT_EQ(alerts.seen, QStringList{TestListModel::kRunningEditRefusal + " @ClientTab"}); // over the tab

    const PerfResultPtr overWiFi = over("WiFi"), wired = over(" Ethernet"), lowerCase = over("wifi"), final = over(" Ethernet", 1);
    for (const PerfResultPtr &r : {overWiFi, wired, lowerCase, PerfResultPtr()})
        tab->reportIntervalResults(r);
    EXPECT_EQ(overWiFi->ssidField + overWiFi->bssidField + QString::number(overWiFi->txRateField * 10 + wifi->reads()), "Harbour00:1B:2C:03:4D:0E8661");
    for (const PerfResultPtr &r : {wired, lowerCase}) // names emptied, other link figures kept
        EXPECT_TRUE(r->ssidField == "" && !r->ssidField.isNull() && r->bssidField == "" && !r->bssidField.isNull() && r->rssiField == 0);
    const PerfResultTableModel *table = detail->resultModel(); // follows through the event loop, newest row first
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return table->rowCount() == 3; }, 5s));
    EXPECT_EQ(table->index(2, 9).data().toString() + table->index(2, 3).data().toString() + table->index(0, 3).data().toString() + QString::number(graph->pointCount()), "47Harbour4");
    QSignalSpy ended(tab.get(), &ClientTab::testEnded);
    tab->testFinished(PerfResultPtr()); // a finish without a record is no end
    const QString during = state() + w<QLabel>("progressText")->text();
    tab->testFinished(final);
    EXPECT_EQ(during + (ended.size() == 1 ? ended.first().at(0).toString() + "|" + ended.first().at(1).toString() : QString::number(ended.size())) + QString::number(w<QLabel>("progressText")->isVisibleTo(tab.get())),
              "Stop Test0010 of 10 sTCP Test|93456.79 Kbps0");
    EXPECT_TRUE(final->ssidField == "" && !final->ssidField.isNull() && list->index(0, 0).data(Qt::CheckStateRole) == Qt::Unchecked);
    EXPECT_EQ(spoken, QStringList(3, "espeak-ng 93.46 Mbps") << "espeak-ng 93456.79 Kbps");
    EXPECT_EQ(state() + QString::number(tab->perfHelper()->resultss.size()), "Run Test1103"); // the final record is no interval
    QSignalSpy redrawn(list, &QAbstractItemModel::dataChanged); // with tests listed, a unit change redraws
    w("mbpsRadio")->click(), tab->removeTest(0); // deleting the shown test empties the detail view
    EXPECT_EQ(alerts.seen.last() + labels(*detail) + QString::number(list->rowCount() * 10 + redrawn.count()),
              "Are you sure you want to delete? [Yes/Cancel] @ClientTab|||||||||3001");
}

TEST_F(ClientTabTest, TimeOutStopsOnlyARunStillWithoutDataAndStopAndFailuresEndTheRun)
{
    ASSERT_TRUE(scheduler.calls.at(0)());
    start(), scheduler.calls.at(1)();
    EXPECT_EQ(messages.texts.join("|") + state() + QString::number(stopped == QList{tab->perfHelper().get()} && !tab->perfHelper()->isTestRunning),
              "|Please make sure client and server are connected with same network.Run Test1101");
    start(), tab->reportIntervalResults(over("WiFi")), scheduler.calls.at(2)(); // data arrived: nothing to do, nothing spoken with the alert off
    messages.texts.clear(), w("runClient")->click(); // stops the newest test without a word
    EXPECT_EQ(state() + messages.texts.join("") + QString::number(stopped.size() + spoken.size()) + QString::number(stopped.last() == tab->perfHelper().get()), "Run Test11021");
    start(), scheduler.calls.at(2)(); // never withdrawn: an old time-out stops a later run still waiting
    for (const QString &why : {QStringLiteral("iperf3: error - unable to connect to server"), QString()}) {
        start(), tab->testFail(why), tab->testFail("late"); // over already: shown once
        EXPECT_EQ(messages.texts.last() + state() + QString::number(tab->testResultsArray().first()->isTestRunning + stopped.size()),
                  "Unable to perform test.." + (why.isNull() ? "(null)" : why) + "Run Test1103");
    }
    // The list highlights the newest test, the one shown; deleting it leaves nothing shown or highlighted, though Qt
    // would move the selection to its neighbour.
    const QItemSelectionModel *highlight = w<QTableView>("listTestView")->selectionModel();
    EXPECT_EQ(highlight->selectedRows().value(0).row(), 0);
    tab->removeTest(0);
    EXPECT_EQ(labels(*tab->testInfoView()) + QString::number(highlight->selectedRows().size()), "|||||||||1000");
}

TEST(IntervalTable, EachColumnShowsTheRecordInItsOwnUnits)
{
    const std::pair<std::function<void(PerfResult &)>, const char *> rows[] = {
        {[](PerfResult &) {}, "0.00-1.00 sec|10.00 MB|93.46 Mbps  |Harbour|(null)|WiFi|-45|-92|866|47|WPA2 Personal|802.11ac|||||||||"},
        {[](PerfResult &r) { r.bandwidthformat = 1, r.sentBytes = 1536; }, "0.00-1.00 sec|1.50 KB|93456.79 Kbps  |Harbour|(null)|WiFi|-45|-92|866|47|WPA2 Personal|802.11ac|||||||||"},
        {[](PerfResult &r) { r.bandwidthformat = 2, r.ssidField = QString(), r.phyModeField = 0, r.securityModeField = 8; }, // unstamped
         "0.00-1.00 sec|10.00 MB|93.46 Mbps  |(null)|(null)|WiFi|-45|-92|866|47|Unknown|(null)|||||||||"},
        {[](PerfResult &r) { r.interfaceName = " Ethernet", r.ssidField = r.bssidField = "", r.startTime = QString(), r.jitter = "0.012 ms", r.lostTotalDataGrams = "0/9"; },
         "(null)-1.00 sec|10.00 MB|93.46 Mbps  ||| Ethernet|||||||0.012 ms|0/9|||||||"}, // wired: names stay, Wi-Fi figures go
        {[](PerfResult &r) { r.direction = 1, r.retransmits = 3, r.roundTripMs = 41.26, r.congestionWindow = 65536, r.udpJitterMs = 0.0123, r.udpLostDatagrams = 5, r.udpTotalDatagrams = 250, r.bssidField = "b"; },
         "0.00-1.00 sec|10.00 MB|93.46 Mbps  |Harbour|b|WiFi|-45|-92|866|47|WPA2 Personal|802.11ac|||Down|3|41.3|64|0.012|5/250 (2.00%)|from a"}}; // link health
    for (const auto &[change, expected] : rows) {
        const PerfResultPtr r = record("0.00", "1.00", 10485760, 93456789.0f);
        r->interfaceName = "WiFi", r->ssidField = "Harbour", r->rssiField = -45, r->noiseField = -92, r->txRateField = 866, r->securityModeField = 4, r->phyModeField = 5;
        change(*r);
        QStringList cells;
        PerfResult earlier; // the interval before, on access point "a"
        earlier.bssidField = "a";
        for (const QString &identifier : PerfResultTableModel::defaultColumnIdentifiers())
            cells << PerfResultTableModel::cellValue(*r, identifier, &earlier).toString();
        EXPECT_EQ(cells.join(u'|'), expected);
    }
    EXPECT_FALSE(PerfResultTableModel::cellValue(PerfResult(), "channel").isValid());
    const auto texts = [](QString (*text)(qint64, float)) { // codes -1 to 11 ("~": none), then 2^32 + 1 read as 32 bits
        QStringList out;
        for (qint64 code = -1; code <= 11; ++code)
            out << (text(code, 0).isNull() ? "~" : text(code, 0));
        return out.join(u'|') + u'|' + text((qint64(1) << 32) + 1, 0);
    };
    EXPECT_EQ(texts(&TestInformationView::stringForPHYMode), "~|~|802.11a|802.11b|802.11g|802.11n|802.11ac|~|~|~|~|~|~|802.11a");
    EXPECT_EQ(texts(&TestInformationView::stringForSecurityMode), "Unknown|Open|WEP|WPA Personal|WPA2 Personal Mixed|WPA2 Personal|Personal|802.1X WEP|"
                                                                  "WPA Enterprise|Unknown|WPA2 Enterprise|Enterprise|Unknown|WEP");
    EXPECT_EQ(texts(&TestInformationView::stringForOpMode), "~|None|Infrastructure|IBSS|Host Access Point|~|~|~|~|~|~|~|~|Infrastructure");
    EXPECT_EQ(TestInformationView::systemIPFromAddresses({}) + "|" + TestInformationView::systemIPFromAddresses({"127.0.0.1", "::1"}) + "|"
                  + TestInformationView::systemIPFromAddresses({"127.0.1.1", "fe80::1", "1.2.3.4.5", "192.168.1.5"}), "|IPv4 address not available|192.168.1.5");
}

class DetailView : public ::testing::Test
{
protected:
    void SetUp() override { settings.store.setObject("10", "testDuration"), settings.store.setObject("1", "statsInterval"); }
    QString cell(int row) const { return view.resultModel()->index(row, 0).data().toString(); }

    TempStore settings;
    TestInformationView view{nullptr, &settings.store};
    SpeedGraph &graph = *view.graph();
};

TEST_F(DetailView, LabelsColumnsTableAndGraphFollowTheShownTestAsItRuns)
{
    auto t = test(settings.store, {record("0.00", "1.00", 1, 1)});
    t->testType = 1, t->reverse = 1, t->graphMaxSpeed = 50, t->sendBandwidth = 20, t->bufferLength = 8;
    view.setPerfHelper(t), view.updateView();
    const QString udp = labels(view);
    t->testType = 0, t->reverse = 2, t->sendBandwidth = 0, t->bufferLength = 0, view.updateView();
    EXPECT_EQ(udp + " " + labels(view), "|10.0.0.5|5201|UDP|Server To Client|10 sec|1 sec|20|8|50 |10.0.0.5|5201|TCP|Client To Server|10 sec|1 sec|||50");
    view.resetGraph(), view.clearView(); // clearing leaves only the graph maximum
    EXPECT_EQ(labels(view) + graph.graphTitle() + points(graph) + QString::number(view.resultModel()->rowCount()), "|||||||||500");

    QTableView *table = view.perfResultView(); // one chooser item per column; six (and the link's) start hidden; marks follow the table
    QStringList titles;
    for (QAction *item : view.columnMenu()->actions())
        titles << item->text() + (item->isChecked() && !table->isColumnHidden(item->data().toInt()) ? "+" : "");
    EXPECT_EQ(titles.join(u'|'), "Interval+|Transfer+|Bandwidth+|SSID+|BSSID|Interface|RSSI+|Noise+|Tx Rate+|SNR+|Security|PHY Mode|Jitter|Lost/Total Datagrams|"
                                 "Direction|Retransmits|RTT (ms)|Cwnd (KB)|Jitter (ms)|Lost/Total|Roam"); // link health: hidden until chosen
    QAction *jitter = view.columnMenu()->actions().at(12), *ssid = view.columnMenu()->actions().at(3);
    jitter->trigger(), ssid->trigger();
    table->setColumnHidden(3, false), emit view.columnMenu()->aboutToShow(); // the marks follow the table when the menu opens
    EXPECT_TRUE(!table->isColumnHidden(12) && ssid->isChecked() && jitter->isChecked() && table->horizontalHeader()->contextMenuPolicy() == Qt::CustomContextMenu);

    PerfResultTableModel *model = view.resultModel();
    QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    settings.store.setObject("40", "graphMaxSpeed"), settings.store.setObject("1", "bandwidthformat");
    view.loadGraph();
    const QString loaded = graph.xAxisTitle() + "|" + graph.yAxisTitle() + QString::number(graph.xRangeLength() * graph.yRangeLength());
    t = test(settings.store);
    t->duration = 30, t->stats_interval = 2, t->reverse = 1, t->testLabel = QString(); // the direction words stay
    view.setPerfHelper(t), view.resetGraph(), view.updateView();
    EXPECT_EQ(loaded + "|" + graph.graphTitle() + "|" + graph.xAxisTitle() + "|" + graph.yAxisTitle() + "|" + points(graph),
              "Test Duration (10) \nStats Interval = 1|Speed (Kbps)440|(null),  From This Computer To 10.0.0.5|Test Duration (30)\nStats Interval = 2|Speed (Mbps)|0,0");
    EXPECT_EQ(QString::number(graph.xRangeLength() * graph.yRangeLength()) + QString::number(graph.xMinorTicksPerInterval() * graph.xMajorIntervalLength()), "12404");
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted), reset(model, &QAbstractItemModel::modelReset);
    for (const auto &[end, rate, format] : {std::tuple{"1.00", 12345678.0f, 0}, {"2.50", 1234567.0f, 1}, {"10.00", 93456789.0f, 0}}) {
        t->resultss.prepend(record("0", end, 1, rate, format)), view.updateView();
        EXPECT_EQ(cell(0), QStringLiteral("0-%1 sec").arg(end));
    }
    t->resultss.prepend(record("9", "11", 1, 1)); // not announced yet: no row
    // Oldest first from the origin; kilo records plot Kbps; "2.50" counts as second 2. The range grew to the fastest + 5.
    EXPECT_EQ(cell(0) + " " + points(graph) + QStringLiteral(" %1/%2 %3").arg(inserted.count()).arg(reset.count()).arg(graph.yRangeStart() + graph.yRangeLength()),
              "0-10.00 sec 0,0 1,12.35 2,1234.57 10,93.46 3/0 98");
    QString ticks; // about eight intervals of 1, 2 or 5 times a power of ten, never below 1
    for (const double length : {0.0, 1.0, 8.0, 16.0, 17.0, 40.0, 41.0, 800.0})
        graph.setYRange(0, length), ticks += QString::number(static_cast<QValueAxis *>(graph.chart()->axes(Qt::Vertical).first())->tickInterval()) + " ";
    EXPECT_EQ(ticks, "1 1 1 2 5 5 10 100 ");
    t->resultss = {record("5", "6.00", 1, 2e6f)}; // changed otherwise: read afresh
    view.updateView();
    EXPECT_EQ(cell(0) + cell(1) + " " + points(graph) + QString::number(reset.count()), "5-6.00 sec 0,0 6,21");
}

// The look a user sees: colours, fonts, margins, grid and tick marks of chart, axes and plot.
QString look(const SpeedGraph &graph)
{
    const QChart *chart = graph.chart();
    const auto pen = [](const QPen &p) { return QStringLiteral("%1/%2%3").arg(p.color().name(QColor::HexArgb)).arg(p.widthF()).arg(p.isCosmetic() ? "c" : ""); };
    const QMargins m = chart->margins();
    QString out = QStringLiteral("%1 %2 %3 %4,%5,%6,%7 %8 %9").arg(chart->backgroundBrush().color().name(), chart->plotAreaBackgroundBrush().color().name())
                      .arg(chart->isPlotAreaBackgroundVisible()).arg(m.left()).arg(m.top()).arg(m.right()).arg(m.bottom())
                      .arg(chart->titleBrush().color().name()).arg(chart->titleFont().pixelSize())
                  + QStringLiteral(" %1 %2").arg(chart->legend()->isVisible()).arg(bool(graph.renderHints() & QPainter::Antialiasing));
    for (const QAbstractAxis *a : chart->axes()) {
        const auto *axis = static_cast<const QValueAxis *>(a);
        out += QStringLiteral(" [%1 %2 %3 %4 %5 %6").arg(pen(axis->gridLinePen()), pen(axis->minorGridLinePen()), pen(axis->linePen()),
                                                       axis->titleBrush().color().name(), axis->labelsBrush().color().name(), axis->labelFormat())
               + QStringLiteral(" %1 %2 %3 %4 %5 %6 %7 %8]").arg(axis->labelsFont().pixelSize()).arg(axis->titleFont().pixelSize()).arg(axis->minorTickCount())
                     .arg(axis->labelsAngle()).arg(axis->isMinorGridLineVisible()).arg(int(axis->tickType())).arg(axis->tickAnchor()).arg(axis->truncateLabels());
    }
    const QGradient *fill = graph.plotItem()->fillBrush().gradient();
    return out + QStringLiteral(" %1 %2 %3 %4").arg(pen(graph.plotItem()->linePen()), fill->stops().last().second.name(QColor::HexArgb))
                     .arg(fill->coordinateMode()).arg(graph.plotItem()->zValue());
}

TEST(SpeedGraph, DetailIsLightStandaloneIsDarkAndLineAndAreaAreDrawnInTheirColours)
{
    EXPECT_EQ(look(SpeedGraph(SpeedGraph::Look::Detail)), "#ffffff #ffffff 1 8,30,8,15 #a0a0a4 14 0 1 [#bfa0a0a4/0c #1aa0a0a4/0c #ff808080/1.4 #808080 #808080 %d 14 14 9 0 1 0 0 0] "
                                                          "[#bfa0a0a4/0c #1aa0a0a4/0c #ff808080/1.4 #808080 #808080 %d 14 14 4 -54 1 0 0 0] #ff559dd9/2 #ffffffff 3 2.5");
    TempStore settings; // the standalone graph view: dark, with the stored axes and its own points on every show
    for (const auto &[key, value] : {std::pair{"testDuration", "20"}, {"statsInterval", "2"}, {"graphMaxSpeed", "300"}})
        settings.store.setObject(value, key);
    GraphView view(nullptr, &settings.store);
    view.plotData = {{{"x", 1}, {"y", 5.5}}, {{"x", 2}, {"y", 7}}};
    const SpeedGraph *standalone = (view.show(), view.graph());
    EXPECT_EQ(look(*standalone), "#000000 #000000 0 8,30,8,15 #ffffff -1 0 1 [#bfffffff/0.75c #1affffff/0.25c #ff86878c/2 #ffffff #ffffff %d -1 -1 2 0 1 0 0 0] "
                                 "[#bfffffff/0.75c #1affffff/0.25c #ff86878c/2 #ffffff #ffffff %d -1 -1 4 -45 1 0 0 0] #ff00ff00/2 #80ffffff 3 2.5");
    EXPECT_EQ(standalone->xAxisTitle() + "|" + standalone->yAxisTitle() + "|" + points(*standalone) + "|" + QString::number(standalone->xMinorTicksPerInterval())
                  + QString::number(standalone->xRangeLength() * standalone->yRangeLength()), "Test Duration (20), (Stats Interval = 2)|Speed (Mbps)|1,5.5 2,7|26300");
    for (const auto &[kind, lineColour] : {std::pair{SpeedGraph::Look::Detail, QColor::fromRgbF(0.3333f, 0.6157f, 0.8510f)},
                                           {SpeedGraph::Look::Standalone, QColor(Qt::green)}}) {
        SpeedGraph graph(kind);
        const QList<QPointF> line{{0, 5}, {10, 5}};
        graph.setDataSource([&] { return line.size(); }, [&](int field, qsizetype i) { return field ? line[i].y() : line[i].x(); });
        ASSERT_TRUE((graph.resize(500, 360), graph.setXRange(0, 10), graph.setYRange(0, 10), graph.reloadData(), graph.show(), QTest::qWaitForWindowExposed(&graph)));
        QImage image = graph.grab().toImage();
        const auto at = [&](double x, double y) { return image.pixelColor(graph.mapFromScene(graph.plotItem()->mapToPlot({x, y})) + graph.viewport()->pos()); };
        const int lighter = at(5.1, 2.6).lightness() - at(5.1, 7.4).lightness(); // below the line: white fill, half-transparent on dark
        const QString first = at(5.1, 5).name() + QString::number(kind == SpeedGraph::Look::Detail ? lighter == 0 : lighter > 40);
        graph.setYRange(0, 20), image = graph.grab().toImage(); // a new frame is drawn afresh
        EXPECT_EQ(first + at(5.1, 5).name(), lineColour.name() + "1" + lineColour.name());
    }
}

class TestList : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char *label : {"oldest", "middle", "newest"})
            model.insertTestAtFront(test(settings.store)), model.testAt(0)->testLabel = label;
    }

    TempStore settings;
    ClientFakeAlerts alerts;
    TestListModel model{alerts};
    QAbstractItemModelTester tester{&model, QAbstractItemModelTester::FailureReportingMode::Fatal};
    TestInformationView detail{nullptr, &settings.store};
    TestListController controller{model, detail, alerts, nullptr};
};

TEST_F(TestList, DeletingAsksAndClicksKeysAndEditsReachTheListThroughItsColumns)
{
    // A running test is not deleted; deleting a test empties the detail view if the test was last selected at that row.
    const QString ask = "Are you sure you want to delete? [Yes/Cancel] @";
    detail.setPerfHelper(model.testAt(1)), detail.updateView(), model.testAt(0)->isTestRunning = 1;
    const auto at = [&](int row, int column, int role) { return model.index(row, column).data(role).toString(); }; // the box shows the running state
    EXPECT_EQ(QStringList({at(0, 1, Qt::ToolTipRole), at(1, 1, Qt::ToolTipRole), at(0, 2, Qt::ToolTipRole), model.headerData(1, Qt::Horizontal).toString(),
                           at(0, 1, TestListModel::ObjectValueRole), at(0, 0, TestListModel::ObjectValueRole) + at(1, 0, Qt::CheckStateRole) + at(0, 1, Qt::CheckStateRole),
                           QString::number(model.index(0, 1).data(Qt::FontRole).value<QFont>().pointSize()), QString::number(int(model.flags(model.index(0, 1))) * 100 + int(model.flags(model.index(1, 1))))}).join(u'|'),
              "The test can be renamed once it is over.||Delete this test|Test|newest|10|15|3335"); // flags: 1 selectable, 2 editable, 32 enabled
    EXPECT_TRUE(model.setData(model.index(1, 0), 1, TestListModel::ObjectValueRole) && model.testAt(1)->isSelected && !model.setData(model.index(1, 2), 1));
    controller.removeTest(0);
    model.testAt(0)->isTestRunning = 0, model.testAt(0)->index = 2, controller.removeTest(0), controller.removeTest(7);
    const QString kept = labels(detail).left(9) + QString::number(model.rowCount());
    model.testAt(0)->index = 0, controller.removeTest(0);
    EXPECT_EQ(alerts.seen.join("") + kept + labels(detail).left(9) + QString::number(model.rowCount()),
              ask + "You cannot delete currently running test. @" + ask + ask + ask + "|10.0.0.52|||||||||1");
    model.insertTestAtFront(test(settings.store)), model.insertTestAtFront(test(settings.store)), alerts.answerYes = false;

    QTableView table;
    controller.attach(&table), table.resize(420, 200), table.horizontalHeader()->hide(), table.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));
    QWidget *viewport = table.viewport();
    EXPECT_EQ(QPoint(table.rowHeight(0), table.columnWidth(2)), QPoint(34, 44));
    EXPECT_EQ(table.columnWidth(0), table.style()->pixelMetric(QStyle::PM_IndicatorWidth) + 16 + 1); // and the grid line
    QTest::mouseClick(viewport, Qt::LeftButton, {}, table.visualRect(model.index(1, 1)).center()), table.clearSelection(); // nothing selected: the view stays
    EXPECT_EQ(labels(detail).left(9) + QString::number(model.testAt(1)->index), "|10.0.0.51"); // shown, its row recorded
    // The delete button: 22 px square, 6 px in from the cell's right edge, centred; {press, release, button}.
    const int r = table.visualRect(model.index(0, 2)).right(), y = table.visualRect(model.index(0, 2)).center().y();
    const std::tuple<QPoint, QPoint, Qt::MouseButton, QString> clicks[] = {
        {{r - 7, y - 11}, {r - 7, y - 11}, Qt::LeftButton, ask}, {{r - 28, y + 10}, {r - 28, y + 10}, Qt::LeftButton, ask}, {{r - 29, y}, {r - 29, y}, Qt::LeftButton, ""},
        {{r - 6, y}, {r - 6, y}, Qt::LeftButton, ""}, {{r - 15, y - 12}, {r - 15, y - 12}, Qt::LeftButton, ""}, {{r - 15, y + 11}, {r - 15, y + 11}, Qt::LeftButton, ""},
        {{r - 15, y}, {r - 15, y}, Qt::RightButton, ""}, {{r - 15, y}, {r - 15, y + 34}, Qt::LeftButton, ""}, // released over another row
        {{r - 15, y}, {r - 15, y}, Qt::RightButton, ""}}; // that press left nothing armed
    for (const auto &[press, release, button, seen] : clicks) {
        alerts.seen.clear(), QTest::mousePress(viewport, button, {}, press), QTest::mouseRelease(viewport, button, {}, release);
        EXPECT_EQ(alerts.seen.join(""), seen) << press.x() - r << "," << press.y() - y;
    }
    // The box: a click or the space bar ticks a finished test; a running one refuses. Then a rename in place.
    QTest::mouseClick(viewport, Qt::LeftButton, {}, table.visualRect(model.index(1, 0)).center());
    model.testAt(0)->isTestRunning = 1, table.setCurrentIndex(model.index(0, 0)), alerts.seen.clear();
    QTest::keyClick(viewport, Qt::Key_A);
    EXPECT_TRUE(alerts.seen.isEmpty() && model.testAt(1)->isSelected);
    QTest::keyClick(viewport, Qt::Key_Space);
    EXPECT_EQ(alerts.seen, QStringList{TestListModel::kRunningEditRefusal + " @"});
    table.edit(model.index(2, 1));
    auto *editor = viewport->findChild<QLineEdit *>();
    ASSERT_TRUE(editor && editor->text() == "oldest" && editor->alignment() == Qt::AlignCenter);
    editor->setText("Kitchen"), QTest::keyClick(editor, Qt::Key_Return);
    EXPECT_TRUE(TestEnvironment::waitUntil([&] { return model.testAt(2)->testLabel == "Kitchen"; }, 5s));
}

TEST_F(TestList, TickedTestsShareTheGraphAndTheShownTestIsExportedAsItsTableShowsIt)
{
    // Rows: 0 newest (kilo units, 30 s), 1 middle (20 s), 2 oldest (10 s, graph maximum 50).
    model.testAt(0)->resultss = {record("1.00", "2.00", 1, 2000000.0f, 1), record("0.00", "1.00", 1, 1000000.0f, 1)}, model.testAt(0)->bandwidthformat = 1, model.testAt(0)->duration = 30;
    model.testAt(1)->resultss = {record("1.00", "2.00", 5e7f, 93456789.0f), record("0.00", "1.00", 5e7f, 12345678.0f)}, model.testAt(1)->duration = 20;
    model.testAt(2)->resultss = {record("0.00", "1.00", 1, 40e6f)}, model.testAt(2)->graphMaxSpeed = 50;
    detail.setPerfHelper(model.testAt(2)), detail.resetGraph(), detail.updateView();
    SpeedGraph &graph = *detail.graph();
    const QString single = graph.graphTitle();
    const auto tick = [&](int row, bool on) { model.setData(model.index(row, 0), on ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole); };
    const auto shown = [&] { // series: name and points; then x and y range ends, titles
        QStringList out;
        for (QLineSeries *line : graph.comparedSeries()) {
            out << line->name().section('>', 1).section('<', 0, 0) + ":";
            for (const QPointF &p : line->points())
                out.last() += QStringLiteral(" %1,%2").arg(p.x()).arg(p.y());
        }
        return out.join(" | ") + QStringLiteral(" / x %1 y %2 / %3 / %4 / %5 / legend %6").arg(graph.xRangeLength()).arg(graph.yRangeLength())
            .arg(graph.graphTitle(), graph.xAxisTitle(), graph.yAxisTitle()).arg(graph.chart()->legend()->isVisible());
    };
    tick(2, true);
    EXPECT_TRUE(!graph.isComparing() && graph.graphTitle() == single && model.index(2, 0).data(Qt::CheckStateRole) == Qt::Checked);
    tick(1, true); // the fastest interval, 93.46 Mbps, sets y to 98 over the oldest's 50
    EXPECT_EQ(shown(), "middle: 0,0 1,12.35 2,93.46 | oldest: 0,0 1,40 / x 21 y 98 / 2 tests compared / Test Duration (20) / Speed (Mbps) / legend 1");
    tick(0, true), model.testAt(1)->testLabel = "Mid & <b>", model.reloadData(); // kilo and mega together are shown in Mbps; a rename reaches the legend
    EXPECT_EQ(shown(), "newest: 0,0 1,1 2,2 | Mid &amp; &lt;b&gt;: 0,0 1,12.35 2,93.46 | oldest: 0,0 1,40 / x 31 y 98 / 3 tests compared / Test Duration (30) / Speed (Mbps) / legend 1");
    tick(1, false), tick(2, false); // one left ticked: back to the shown test
    EXPECT_EQ(shown(), QStringLiteral(" / x 11 y 50 / %1 / Test Duration (10)\nStats Interval = None / Speed (Mbps) / legend 0").arg(single));
    EXPECT_TRUE(graph.plotItem()->isVisible() && graph.pointCount() == 2 && model.index(1, 0).data(Qt::CheckStateRole) == Qt::Unchecked);

    // The note is the shown test's: typed, kept in the list, back when the test is shown again.
    QPlainTextEdit *note = detail.noteEditor();
    const QString text = "Kitchen, door \"shut\"\nsecond line é";
    note->setPlainText(text), detail.setPerfHelper(model.testAt(1));
    EXPECT_TRUE(note->toPlainText().isEmpty() && model.extras(model.testAt(2).get()).note == text);
    detail.setPerfHelper(model.testAt(2)), detail.updateView();
    EXPECT_EQ(note->toPlainText(), text);

    // CSV read back by Python's csv module, cell by cell against the table (hidden columns too), oldest first, then the final record.
    model.testAt(2)->resultss.prepend(record("1.00", "2.00", 3, 4e6f, 0, "en,o1")), detail.updateView();
    const PerfResultPtr last = record("0.00", "2.00", 4, 5e6f, 1), wired = record("0.00", "1.00", 1, 1, 0, "x");
    model.setFinalResult(model.testAt(2).get(), last), last->jitter = "0.5 ms", last->lostTotalDataGrams = "1/20";
    QTemporaryDir dir;
    TestFileActions &files = *controller.fileActions();
    ASSERT_EQ(files.exportCsv(dir.filePath("a.csv")), QString());
    QProcess python;
    python.start("python3", {"-c", "import csv, json, sys; print(json.dumps(list(csv.reader(open(sys.argv[1], newline='', encoding='utf-8')))))", dir.filePath("a.csv")});
    ASSERT_TRUE(python.waitForFinished(10000));
    const QJsonArray rows = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    const PerfResultTableModel &table = *detail.resultModel();
    ASSERT_EQ(rows.size(), table.rowCount() + 2);
    QStringList header{"Record"}, mismatches;
    for (int c = 0; c < table.columnCount(); ++c)
        header << table.headerData(c, Qt::Horizontal).toString();
    EXPECT_EQ(rows.at(0).toVariant().toStringList(), header << "Note");
    for (int r = 1; r < rows.size(); ++r) {
        QStringList expected{r <= table.rowCount() ? "interval" : "final"};
        for (int c = 0; c < table.columnCount(); ++c)
            expected << (r <= table.rowCount() ? table.index(table.rowCount() - r, c).data().toString() : PerfResultTableModel::cellValue(*last, table.columnIdentifier(c)).toString());
        expected << (r == 1 ? text : "");
        if (rows.at(r).toVariant().toStringList() != expected)
            mismatches << rows.at(r).toVariant().toStringList().join('|') + " vs " + expected.join('|');
    }
    EXPECT_EQ(mismatches, QStringList());
    EXPECT_TRUE(rows.last().toArray().at(14).toString() == "1/20" && rows.at(2).toArray().at(6).toString() == "en,o1");

    // The graph as PNG and SVG at its size on screen.
    detail.resize(900, 700), detail.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&detail));
    ASSERT_EQ(files.exportGraph(dir.filePath("g.png")) + files.exportGraph(dir.filePath("g.svg")), QString());
    EXPECT_EQ(QImage(dir.filePath("g.png")).size(), graph.size());
    QFile svg(dir.filePath("g.svg"));
    ASSERT_TRUE(svg.open(QIODevice::ReadOnly) && !QImage(svg.fileName()).isNull());
    EXPECT_TRUE(svg.readAll().contains(QStringLiteral("viewBox=\"0 0 %1 %2\"").arg(graph.width()).arg(graph.height()).toUtf8()));
    const QString failure = files.exportCsv(dir.filePath("none/a.csv"));
    EXPECT_EQ(failure + "|" + alerts.seen.join(""), "Could not save \"a.csv\": No such file or directory.|Could not save \"a.csv\": No such file or directory. @");
}

TEST(DeleteButton, OrangeBadgeWithAWhiteCrossDarkerAndRingedWhileHeld)
{
    const auto pixels = [](const QIcon &icon, QIcon::Mode mode = QIcon::Normal) { // the cross, the fill between its arms, the edge, outside
        const QImage image = icon.pixmap(QSize(28, 28), mode).toImage();
        return image.pixelColor(13, 13).name(QColor::HexArgb) + image.pixelColor(14, 6).name(QColor::HexArgb) + image.pixelColor(14, 2).name(QColor::HexArgb) + image.pixelColor(1, 1).name(QColor::HexArgb);
    };
    EXPECT_EQ(pixels(TestDeleteButtonDelegate::deleteOrangeImage()) + pixels(TestDeleteButtonDelegate::deleteOrangeImage(), QIcon::Disabled),
              "#ffffffff#fff26b1d#f3f26b1d#00000000#ffffffff#66f36c1e#61f26c1d#00000000"); // the disabled fill at 40 %
    EXPECT_EQ(pixels(TestDeleteButtonDelegate::appbarCloseImage()), "#ffffffff#ffb84a0e#ff5a2306#00000000");
}

} // namespace

// Peer names, test labels and tool output are shown as the characters they hold wherever Qt would read
// markup (chart titles, tooltips, labels), and logged on one line whatever they hold.
TEST(OutsideText, ShownAsItIsAndLoggedOnOneLine)
{
    struct Sink : LogSink
    {
        QStringList lines;
        void write(const LogMessage &message) override { lines << message.message; }
    };
    const auto sink = std::make_shared<Sink>();
    Logger::shared().addSink(sink);
    SpeedGraph graph(SpeedGraph::Look::Detail);
    ServerDiscoveryList peers;
    TestInformationView view;
    for (const QString text : {"Lab <b>5 GHz</b>  two blanks", "<h1 style=\"color:red\">HACKED</h1>,5201,1_2_3_4,x", "a &amp; b\nforged line\x1b[2J"}) {
        graph.setGraphTitle(text);
        const auto peer = std::make_shared<NetService>();
        peer->name = text + ",5201,1_2_3_4,x", peer->type = "_TidewaveServer._tcp", peer->domain = "local";
        peers.serviceAdded(peer, false);
        QCoreApplication::processEvents(); // the table reloads once per turn of the event loop
        QTextDocument title, tip;
        title.setHtml(graph.chart()->title()), tip.setHtml(peers.data(peers.index(peers.rowCount() - 1, 0), Qt::ToolTipRole).toString());
        EXPECT_EQ(title.toPlainText() + "|" + tip.toPlainText(), text + "|" + text.section(',', 0, 0)) << text.toStdString();
        TW_LOG(text);
    }
    Logger::shared().removeSink(sink);
    EXPECT_EQ(sink->lines.last(), "a &amp; b\\nforged line\\x1b[2J");
    for (QLabel *label : view.findChildren<QLabel *>())
        EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->objectName().toStdString();
}
