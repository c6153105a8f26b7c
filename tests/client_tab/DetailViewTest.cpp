#include "client_tab/ClientTestSupport.h"

#include "client/PerfResultTableModel.h"
#include "client/TestInformationView.h"

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>

#include <gtest/gtest.h>

#include <functional>

using namespace ClientTestSupport;

namespace {

PerfResultPtr wifiRecord()
{
    auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 10485760, 93456789);
    r->interfaceName = QStringLiteral("WiFi");
    r->ssidField = QStringLiteral("Harbour");
    r->bssidField = QStringLiteral("0A:1B:2C:03:4D:5E");
    r->rssiField = -45;
    r->noiseField = -92;
    r->txRateField = 866;
    r->securityModeField = 4;
    r->phyModeField = 5;
    return r;
}

PerfResultPtr wiredRecord()
{
    auto r = wifiRecord();
    r->interfaceName = QStringLiteral(" Ethernet");
    r->ssidField = QStringLiteral("");
    r->bssidField = QStringLiteral("");
    return r;
}

struct CellCase
{
    const char *name;
    std::function<PerfResultPtr()> make;
    const char *identifier;
    QVariant expected;
    friend void PrintTo(const CellCase &c, std::ostream *os) { *os << c.name; }
};

class IntervalCell : public ::testing::TestWithParam<CellCase>
{
};

TEST_P(IntervalCell, ShowsTheRecordAsTheTableSays)
{
    const CellCase &c = GetParam();
    const PerfResultPtr r = c.make();
    EXPECT_EQ(PerfResultTableModel::cellValue(*r, QString::fromLatin1(c.identifier)), c.expected);
}

QVariant text(const char *s)
{
    return QVariant(QString::fromUtf8(s));
}

INSTANTIATE_TEST_SUITE_P(
    Cells, IntervalCell,
    ::testing::Values(
        CellCase{"interval", wifiRecord, "timeInterval", text("0.00-1.00 sec")},
        CellCase{"transferMega", wifiRecord, "dataTransfer", text("10.00 MB")},
        CellCase{"rateMega", wifiRecord, "srBandwidth", text("93.46 Mbps  ")},
        CellCase{"transferKilo",
                 [] {
                     auto r = wifiRecord();
                     r->bandwidthformat = 1;
                     r->sentBytes = 1536;
                     return r;
                 },
                 "dataTransfer", text("1.50 KB")},
        CellCase{"rateKilo",
                 [] {
                     auto r = wifiRecord();
                     r->bandwidthformat = 1;
                     return r;
                 },
                 "srBandwidth", text("93456.79 Kbps  ")},
        // Only exactly 1 means kilo.
        CellCase{"formatTwoIsMega",
                 [] {
                     auto r = wifiRecord();
                     r->bandwidthformat = 2;
                     return r;
                 },
                 "srBandwidth", text("93.46 Mbps  ")},
        CellCase{"wifiSsid", wifiRecord, "ssid", text("Harbour")},
        CellCase{"wifiBssid", wifiRecord, "bssid", text("0A:1B:2C:03:4D:5E")},
        CellCase{"wifiInterface", wifiRecord, "interface", text("WiFi")},
        CellCase{"wifiRssi", wifiRecord, "rssi", text("-45")},
        CellCase{"wifiNoise", wifiRecord, "noise", text("-92")},
        CellCase{"wifiRate", wifiRecord, "txRate", text("866")},
        CellCase{"wifiSignalToNoise", wifiRecord, "signalToNoise", text("47")},
        CellCase{"wifiSecurity", wifiRecord, "security", text("WPA2 Personal")},
        CellCase{"wifiPhy", wifiRecord, "phyMode", text("802.11ac")},
        CellCase{"wiredSsid", wiredRecord, "ssid", text("")},
        CellCase{"wiredInterface", wiredRecord, "interface", text(" Ethernet")},
        CellCase{"wiredRssi", wiredRecord, "rssi", text("")},
        CellCase{"wiredNoise", wiredRecord, "noise", text("")},
        CellCase{"wiredRate", wiredRecord, "txRate", text("")},
        CellCase{"wiredSignalToNoise", wiredRecord, "signalToNoise", text("")},
        CellCase{"wiredSecurity", wiredRecord, "security", text("")},
        CellCase{"wiredPhy", wiredRecord, "phyMode", text("")},
        CellCase{"unknownPhyShowsNull",
                 [] {
                     auto r = wifiRecord();
                     r->phyModeField = 0;
                     return r;
                 },
                 "phyMode", text("(null)")},
        CellCase{"mixedEnterpriseIsUnknown",
                 [] {
                     auto r = wifiRecord();
                     r->securityModeField = 8;
                     return r;
                 },
                 "security", text("Unknown")},
        // A record that was never stamped (no Wi-Fi handle) keeps nil texts.
        CellCase{"unstampedSsid",
                 [] {
                     auto r = wifiRecord();
                     r->ssidField = QString();
                     return r;
                 },
                 "ssid", text("(null)")},
        CellCase{"unstampedRssiIsShown",
                 [] {
                     auto r = wifiRecord();
                     r->ssidField = QString();
                     return r;
                 },
                 "rssi", text("-45")},
        CellCase{"tcpJitterEmpty", wifiRecord, "jitter", text("")},
        CellCase{"udpJitter",
                 [] {
                     auto r = wifiRecord();
                     r->jitter = QStringLiteral("0.021 ms");
                     r->lostTotalDataGrams = QStringLiteral("0/905 (0%)");
                     return r;
                 },
                 "jitter", text("0.021 ms")},
        CellCase{"udpLoss",
                 [] {
                     auto r = wifiRecord();
                     r->lostTotalDataGrams = QStringLiteral("0/905 (0%)");
                     return r;
                 },
                 "dataloss", text("0/905 (0%)")},
        CellCase{"unknownColumnIsEmpty", wifiRecord, "channel", QVariant()}),
    [](const auto &info) { return std::string(info.param.name); });

struct CodeCase
{
    const char *name;
    std::function<QString(qint64, float)> mapping;
    qint64 code;
    QString expected; // null: no text
    friend void PrintTo(const CodeCase &c, std::ostream *os) { *os << c.name; }
};

class WiFiCodeText : public ::testing::TestWithParam<CodeCase>
{
};

TEST_P(WiFiCodeText, MapsCodesToTheSystemsTexts)
{
    const CodeCase &c = GetParam();
    const QString got = c.mapping(c.code, 10.9f);
    EXPECT_EQ(got, c.expected);
    EXPECT_EQ(got.isNull(), c.expected.isNull());
}

const auto phy = &TestInformationView::stringForPHYMode;
const auto security = &TestInformationView::stringForSecurityMode;
const auto op = &TestInformationView::stringForOpMode;

INSTANTIATE_TEST_SUITE_P(
    Codes, WiFiCodeText,
    ::testing::Values(CodeCase{"phyA", phy, 1, QStringLiteral("802.11a")},
                      CodeCase{"phyB", phy, 2, QStringLiteral("802.11b")},
                      CodeCase{"phyG", phy, 3, QStringLiteral("802.11g")},
                      CodeCase{"phyN", phy, 4, QStringLiteral("802.11n")},
                      CodeCase{"phyAc", phy, 5, QStringLiteral("802.11ac")},
                      CodeCase{"phyNone", phy, 0, QString()}, CodeCase{"phyAx", phy, 6, QString()},
                      // Read as 32 bits: 2^32 + 1 is code 1.
                      CodeCase{"phyWraps", phy, (qint64(1) << 32) + 1, QStringLiteral("802.11a")},
                      CodeCase{"open", security, 0, QStringLiteral("Open")},
                      CodeCase{"wep", security, 1, QStringLiteral("WEP")},
                      CodeCase{"wpa", security, 2, QStringLiteral("WPA Personal")},
                      CodeCase{"mixedPersonal", security, 3, QStringLiteral("WPA2 Personal Mixed")},
                      CodeCase{"wpa2", security, 4, QStringLiteral("WPA2 Personal")},
                      CodeCase{"personal", security, 5, QStringLiteral("Personal")},
                      CodeCase{"dynamicWep", security, 6, QStringLiteral("802.1X WEP")},
                      CodeCase{"wpaEnterprise", security, 7, QStringLiteral("WPA Enterprise")},
                      CodeCase{"mixedEnterprise", security, 8, QStringLiteral("Unknown")},
                      CodeCase{"wpa2Enterprise", security, 9, QStringLiteral("WPA2 Enterprise")},
                      CodeCase{"enterprise", security, 10, QStringLiteral("Enterprise")},
                      CodeCase{"wpa3", security, 11, QStringLiteral("Unknown")},
                      CodeCase{"negativeSecurity", security, -1, QStringLiteral("Unknown")},
                      CodeCase{"opNone", op, 0, QStringLiteral("None")},
                      CodeCase{"opStation", op, 1, QStringLiteral("Infrastructure")},
                      CodeCase{"opIbss", op, 2, QStringLiteral("IBSS")},
                      CodeCase{"opAp", op, 3, QStringLiteral("Host Access Point")},
                      CodeCase{"opOther", op, 4, QString()}),
    [](const auto &info) { return std::string(info.param.name); });

struct AddressCase
{
    const char *name;
    QStringList addresses;
    QString expected;
    friend void PrintTo(const AddressCase &c, std::ostream *os) { *os << c.name; }
};

class SystemIP : public ::testing::TestWithParam<AddressCase>
{
};

TEST_P(SystemIP, PicksTheFirstNonLoopbackDottedQuad)
{
    EXPECT_EQ(TestInformationView::systemIPFromAddresses(GetParam().addresses), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, SystemIP,
    ::testing::Values(AddressCase{"noAddresses", {}, QStringLiteral("")},
                      AddressCase{"onlyLoopback",
                                  {QStringLiteral("127.0.0.1"), QStringLiteral("::1")},
                                  QStringLiteral("IPv4 address not available")},
                      AddressCase{"firstQualifying",
                                  {QStringLiteral("127.0.1.1"), QStringLiteral("fe80::1"), QStringLiteral("192.168.1.5"),
                                   QStringLiteral("10.0.0.2")},
                                  QStringLiteral("192.168.1.5")},
                      AddressCase{"fivePartsSkipped",
                                  {QStringLiteral("1.2.3.4.5"), QStringLiteral("10.1.1.1")},
                                  QStringLiteral("10.1.1.1")}),
    [](const auto &info) { return std::string(info.param.name); });

class DetailView : public ::testing::Test
{
protected:
    TempStore settings;
    TestInformationView view{nullptr, &settings.store};

    QString label(const char *name) const { return view.findChild<QLabel *>(QLatin1String(name))->text(); }
    QString cell(int row, const char *identifier) const
    {
        const auto *model = view.resultModel();
        return model->index(row, model->columnForIdentifier(QLatin1String(identifier))).data().toString();
    }
};

TEST_F(DetailView, UpdateViewFillsTheLabelsFromTheShownTest)
{
    auto t = test(settings.store);
    t->testType = 1;
    t->reverse = 1;
    t->graphMaxSpeed = 50;
    t->sendBandwidth = 0;
    t->bufferLength = 0;
    view.setPerfHelper(t);
    view.updateView();
    EXPECT_EQ(label("serverAddress"), QStringLiteral("10.0.0.5"));
    EXPECT_EQ(label("serverPort"), QStringLiteral("5201"));
    EXPECT_EQ(label("testDuration"), QStringLiteral("10 sec"));
    EXPECT_EQ(label("statsInterval"), QStringLiteral("1 sec"));
    EXPECT_EQ(label("graphMaxSpeed"), QStringLiteral("50"));
    EXPECT_EQ(label("sendBandwidth"), QStringLiteral(""));
    EXPECT_EQ(label("datagramSize"), QStringLiteral(""));
    EXPECT_EQ(label("testType"), QStringLiteral("UDP"));
    EXPECT_EQ(label("transferDirection"), QStringLiteral("Server To Client"));

    t->testType = 0;
    t->reverse = 0;
    t->sendBandwidth = 20;
    t->bufferLength = 8;
    view.updateView();
    EXPECT_EQ(label("sendBandwidth"), QStringLiteral("20"));
    EXPECT_EQ(label("datagramSize"), QStringLiteral("8"));
    EXPECT_EQ(label("testType"), QStringLiteral("TCP"));
    EXPECT_EQ(label("transferDirection"), QStringLiteral("Client To Server"));
}

TEST_F(DetailView, ClearViewEmptiesAllButTheGraphMaximum)
{
    auto t = test(settings.store, {record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1, 1)});
    t->graphMaxSpeed = 75;
    view.setPerfHelper(t);
    view.updateView();
    view.resetGraph();
    view.clearView();
    for (const char *name : {"serverAddress", "serverPort", "testDuration", "statsInterval", "testLabel", "testType",
                             "transferDirection", "datagramSize", "sendBandwidth"})
        EXPECT_EQ(label(name), QString()) << name;
    EXPECT_EQ(label("graphMaxSpeed"), QStringLiteral("75"));
    EXPECT_EQ(view.perfHelper(), nullptr);
    EXPECT_EQ(view.resultModel()->rowCount(), 0);
    EXPECT_EQ(view.numberOfRecordsForPlot(), 0);
}

TEST_F(DetailView, EachRowFollowsItsOwnRecordsUnits)
{
    auto kilo = record(QStringLiteral("1.00"), QStringLiteral("2.00"), 1536, 93456789, 1);
    auto mega = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 10485760, 93456789, 0);
    view.setPerfHelper(test(settings.store, {kilo, mega}));
    view.updateView();
    EXPECT_EQ(cell(0, "timeInterval"), QStringLiteral("1.00-2.00 sec"));
    EXPECT_EQ(cell(0, "dataTransfer"), QStringLiteral("1.50 KB"));
    EXPECT_EQ(cell(0, "srBandwidth"), QStringLiteral("93456.79 Kbps  "));
    EXPECT_EQ(cell(1, "dataTransfer"), QStringLiteral("10.00 MB"));
    EXPECT_EQ(cell(1, "srBandwidth"), QStringLiteral("93.46 Mbps  "));
}

TEST_F(DetailView, ColumnMenuStartsWithTheSixColumnsHiddenAndToggles)
{
    QTableView *table = view.perfResultView();
    const auto *model = view.resultModel();
    QMenu *menu = view.columnMenu();
    ASSERT_EQ(menu->actions().size(), model->columnCount());
    for (int column = 0; column < model->columnCount(); ++column) {
        const QString id = model->columnIdentifier(column);
        const bool hidden = TestInformationView::initiallyHiddenColumns().contains(id);
        EXPECT_EQ(table->isColumnHidden(column), hidden) << id.toStdString();
        QAction *item = menu->actions().at(column);
        EXPECT_EQ(item->text(), model->headerData(column, Qt::Horizontal).toString());
        EXPECT_EQ(item->isChecked(), !hidden) << id.toStdString();
    }
    EXPECT_EQ(TestInformationView::initiallyHiddenColumns().size(), 6);
    EXPECT_EQ(table->horizontalHeader()->contextMenuPolicy(), Qt::CustomContextMenu);

    const int jitter = model->columnForIdentifier(QStringLiteral("jitter"));
    const int ssid = model->columnForIdentifier(QStringLiteral("ssid"));
    view.toggleColumn(menu->actions().at(jitter));
    view.toggleColumn(menu->actions().at(ssid));
    EXPECT_FALSE(table->isColumnHidden(jitter));
    EXPECT_TRUE(table->isColumnHidden(ssid));

    // Marks follow the table, whoever changed it, when the menu opens.
    table->setColumnHidden(ssid, false);
    emit menu->aboutToShow();
    EXPECT_TRUE(menu->actions().at(jitter)->isChecked());
    EXPECT_TRUE(menu->actions().at(ssid)->isChecked());
}

TEST_F(DetailView, TableGrowsAtTheTopWhileTheTestRuns)
{
    PerfResultTableModel *model = view.resultModel();
    QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::Warning);
    auto t = test(settings.store);
    view.setPerfHelper(t);
    view.updateView();
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(model, &QAbstractItemModel::modelReset);
    for (int i = 0; i < 5; ++i) {
        t->resultss.prepend(record(QString::number(i) + QStringLiteral(".00"), QString::number(i + 1) + QStringLiteral(".00"),
                                   1000, float(i + 1) * 1e6f));
        view.updateView();
        ASSERT_EQ(model->rowCount(), i + 1);
        EXPECT_EQ(cell(0, "timeInterval"), QStringLiteral("%1.00-%2.00 sec").arg(i).arg(i + 1));
        EXPECT_EQ(cell(i, "timeInterval"), QStringLiteral("0.00-1.00 sec"));
    }
    EXPECT_EQ(inserted.count(), 5);
    EXPECT_EQ(reset.count(), 0);

    // Another test replaces the rows; so does a list changed behind its back.
    auto other = test(settings.store, {record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1, 1)});
    view.setPerfHelper(other);
    view.updateView();
    EXPECT_EQ(model->rowCount(), 1);
    other->resultss = {record(QStringLiteral("5.00"), QStringLiteral("6.00"), 1, 1),
                       record(QStringLiteral("4.00"), QStringLiteral("5.00"), 1, 1)};
    view.updateView();
    EXPECT_EQ(model->rowCount(), 2);
    EXPECT_EQ(cell(1, "timeInterval"), QStringLiteral("4.00-5.00 sec"));
}

} // namespace
