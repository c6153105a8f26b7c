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

// A record taken over Wi-Fi, changed by the case.
PerfResultPtr wifi(const std::function<void(PerfResult &)> &change = {})
{
    auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 10485760, 93456789.0f);
    r->interfaceName = QStringLiteral("WiFi");
    r->ssidField = QStringLiteral("Harbour");
    r->rssiField = -45;
    r->noiseField = -92;
    r->txRateField = 866;
    r->securityModeField = 4;
    r->phyModeField = 5;
    if (change)
        change(*r);
    return r;
}

void wired(PerfResult &r)
{
    r.interfaceName = QStringLiteral(" Ethernet");
    r.ssidField = QStringLiteral("");
    r.bssidField = QStringLiteral("");
}

struct CellCase
{
    const char *name;
    std::function<void(PerfResult &)> change;
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
    EXPECT_EQ(PerfResultTableModel::cellValue(*wifi(c.change), QString::fromLatin1(c.identifier)), c.expected);
}

QVariant text(const char *s)
{
    return QString::fromUtf8(s);
}

INSTANTIATE_TEST_SUITE_P(
    Cells, IntervalCell,
    ::testing::Values(
        CellCase{"interval", {}, "timeInterval", text("0.00-1.00 sec")},
        CellCase{"transferMega", {}, "dataTransfer", text("10.00 MB")},
        CellCase{"rateMega", {}, "srBandwidth", text("93.46 Mbps  ")},
        CellCase{"transferKilo", [](PerfResult &r) {
                     r.bandwidthformat = 1;
                     r.sentBytes = 1536;
                 }, "dataTransfer",
                 text("1.50 KB")},
        CellCase{"rateKilo", [](PerfResult &r) { r.bandwidthformat = 1; }, "srBandwidth", text("93456.79 Kbps  ")},
        // Only exactly 1 means kilo.
        CellCase{"formatTwoIsMega", [](PerfResult &r) { r.bandwidthformat = 2; }, "srBandwidth", text("93.46 Mbps  ")},
        CellCase{"wifiSignalToNoise", {}, "signalToNoise", text("47")},
        CellCase{"wifiPhy", {}, "phyMode", text("802.11ac")},
        // Over a wired interface the names stay, the Wi-Fi figures go.
        CellCase{"wiredInterface", wired, "interface", text(" Ethernet")},
        CellCase{"wiredSsid", wired, "ssid", text("")},
        CellCase{"wiredRssi", wired, "rssi", text("")},
        CellCase{"unknownPhyShowsNull", [](PerfResult &r) { r.phyModeField = 0; }, "phyMode", text("(null)")},
        CellCase{"mixedEnterpriseIsUnknown", [](PerfResult &r) { r.securityModeField = 8; }, "security", text("Unknown")},
        CellCase{"negativeSecurityIsUnknown", [](PerfResult &r) { r.securityModeField = -1; }, "security",
                 text("Unknown")},
        // A record never stamped (no Wi-Fi handle) keeps nil texts and its figures.
        CellCase{"unstampedSsid", [](PerfResult &r) { r.ssidField = QString(); }, "ssid", text("(null)")},
        CellCase{"unstampedRssi", [](PerfResult &r) { r.ssidField = QString(); }, "rssi", text("-45")},
        CellCase{"udpLoss", [](PerfResult &r) { r.lostTotalDataGrams = QStringLiteral("0/905 (0%)"); }, "dataloss",
                 text("0/905 (0%)")},
        CellCase{"unknownColumnIsEmpty", {}, "channel", QVariant()}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(WiFiCodeText, IrregularTextsAndMissingOnes)
{
    EXPECT_EQ(TestInformationView::stringForSecurityMode(3, 0), QStringLiteral("WPA2 Personal Mixed"));
    EXPECT_EQ(TestInformationView::stringForSecurityMode(6, 0), QStringLiteral("802.1X WEP"));
    EXPECT_EQ(TestInformationView::stringForSecurityMode(11, 0), QStringLiteral("Unknown"));
    EXPECT_TRUE(TestInformationView::stringForPHYMode(6, 0).isNull());
    // Codes are read as 32 bits: 2^32 + 1 is 802.11a.
    EXPECT_EQ(TestInformationView::stringForPHYMode((qint64(1) << 32) + 1, 0), QStringLiteral("802.11a"));
    EXPECT_EQ(TestInformationView::stringForOpMode(3, 0), QStringLiteral("Host Access Point"));
    EXPECT_TRUE(TestInformationView::stringForOpMode(4, 0).isNull());
}

TEST(SystemIP, PicksTheFirstNonLoopbackDottedQuad)
{
    EXPECT_EQ(TestInformationView::systemIPFromAddresses({}), QStringLiteral(""));
    EXPECT_EQ(TestInformationView::systemIPFromAddresses({QStringLiteral("127.0.0.1"), QStringLiteral("::1")}),
              QStringLiteral("IPv4 address not available"));
    EXPECT_EQ(TestInformationView::systemIPFromAddresses({QStringLiteral("127.0.1.1"), QStringLiteral("fe80::1"),
                                                         QStringLiteral("1.2.3.4.5"), QStringLiteral("192.168.1.5"),
                                                         QStringLiteral("10.0.0.2")}),
              QStringLiteral("192.168.1.5"));
}

class DetailView : public ::testing::Test
{
protected:
    QString label(const char *name) const { return view.findChild<QLabel *>(QLatin1String(name))->text(); }
    QString cell(int row, const char *identifier) const
    {
        const auto *model = view.resultModel();
        return model->index(row, model->columnForIdentifier(QLatin1String(identifier))).data().toString();
    }

    TempStore settings;
    TestInformationView view{nullptr, &settings.store};
};

TEST_F(DetailView, LabelsShowTheTestAndClearViewEmptiesAllButTheGraphMaximum)
{
    auto t = test(settings.store, {record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1, 1)});
    t->testType = 1;
    t->reverse = 1;
    t->graphMaxSpeed = 50;
    view.setPerfHelper(t);
    view.updateView();
    const std::pair<const char *, const char *> shown[] = {
        {"serverAddress", "10.0.0.5"}, {"serverPort", "5201"},  {"testDuration", "10 sec"},
        {"statsInterval", "1 sec"},    {"graphMaxSpeed", "50"}, {"sendBandwidth", ""}, // 0 shows nothing
        {"datagramSize", ""},          {"testType", "UDP"},     {"transferDirection", "Server To Client"}};
    for (const auto &[name, expected] : shown)
        EXPECT_EQ(label(name), QString::fromLatin1(expected)) << name;

    t->reverse = 0;
    t->bufferLength = 8;
    view.updateView();
    EXPECT_EQ(label("transferDirection"), QStringLiteral("Client To Server"));
    EXPECT_EQ(label("datagramSize"), QStringLiteral("8"));

    view.clearView();
    for (const auto &[name, expected] : shown)
        EXPECT_EQ(label(name), QString::fromLatin1(name) == QLatin1String("graphMaxSpeed") ? QStringLiteral("50") : QString())
            << name;
    EXPECT_EQ(view.perfHelper(), nullptr);
    EXPECT_EQ(view.resultModel()->rowCount(), 0);
}

TEST_F(DetailView, EachRowFollowsItsOwnRecordsUnits)
{
    view.setPerfHelper(test(settings.store, {record(QStringLiteral("1.00"), QStringLiteral("2.00"), 1536, 93456789.0f, 1),
                                             record(QStringLiteral("0.00"), QStringLiteral("1.00"), 10485760, 93456789.0f)}));
    view.updateView();
    EXPECT_EQ(cell(0, "dataTransfer"), QStringLiteral("1.50 KB"));
    EXPECT_EQ(cell(0, "srBandwidth"), QStringLiteral("93456.79 Kbps  "));
    EXPECT_EQ(cell(1, "dataTransfer"), QStringLiteral("10.00 MB"));
    EXPECT_EQ(cell(1, "srBandwidth"), QStringLiteral("93.46 Mbps  "));
}

TEST_F(DetailView, ColumnMenuStartsWithSixColumnsHiddenAndToggles)
{
    QTableView *table = view.perfResultView();
    const auto *model = view.resultModel();
    QMenu *menu = view.columnMenu();
    ASSERT_EQ(menu->actions().size(), model->columnCount());
    QStringList hidden;
    for (int column = 0; column < model->columnCount(); ++column) {
        if (table->isColumnHidden(column))
            hidden.append(model->columnIdentifier(column));
        EXPECT_EQ(menu->actions().at(column)->text(), model->headerData(column, Qt::Horizontal).toString());
        EXPECT_EQ(menu->actions().at(column)->isChecked(), !table->isColumnHidden(column));
    }
    EXPECT_EQ(hidden, (QStringList{QStringLiteral("bssid"), QStringLiteral("interface"), QStringLiteral("security"),
                                   QStringLiteral("phyMode"), QStringLiteral("jitter"), QStringLiteral("dataloss")}));
    EXPECT_EQ(table->horizontalHeader()->contextMenuPolicy(), Qt::CustomContextMenu);

    const int jitter = model->columnForIdentifier(QStringLiteral("jitter"));
    const int ssid = model->columnForIdentifier(QStringLiteral("ssid"));
    view.toggleColumn(menu->actions().at(jitter));
    view.toggleColumn(menu->actions().at(ssid));
    EXPECT_FALSE(table->isColumnHidden(jitter));
    EXPECT_TRUE(table->isColumnHidden(ssid));
    // The marks follow the table, whoever changed it, when the menu opens.
    table->setColumnHidden(ssid, false);
    emit menu->aboutToShow();
    EXPECT_TRUE(menu->actions().at(jitter)->isChecked() && menu->actions().at(ssid)->isChecked());
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
        t->resultss.prepend(record(QStringLiteral("%1.00").arg(i), QStringLiteral("%1.00").arg(i + 1), 1, 1));
        view.updateView();
        ASSERT_EQ(model->rowCount(), i + 1);
        EXPECT_EQ(cell(0, "timeInterval"), QStringLiteral("%1.00-%2.00 sec").arg(i).arg(i + 1));
    }
    EXPECT_EQ(inserted.count(), 5);
    EXPECT_EQ(reset.count(), 0);
    // A list changed otherwise is read again from scratch.
    t->resultss = {record(QStringLiteral("5.00"), QStringLiteral("6.00"), 1, 1)};
    view.updateView();
    EXPECT_EQ(model->rowCount(), 1);
    EXPECT_EQ(cell(0, "timeInterval"), QStringLiteral("5.00-6.00 sec"));
}

} // namespace
