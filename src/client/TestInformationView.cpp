#include "client/TestInformationView.h"

#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestListModel.h"
#include "client/WiFiModeText.h"
#include "records/NumberUtilites.h"
#include "shell/SettingsStore.h"
#include "ui_TestInformationView.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QNetworkInterface>
#include <QPlainTextEdit>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QString objectText(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

} // namespace

TestInformationView::TestInformationView(QWidget *parent, SettingsStore *store)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::TestInformationView>())
    , m_store(store ? store : &SettingsStore::standard())
    , m_model(new PerfResultTableModel(this, m_store))
    , m_graph(nullptr)
    , m_columnMenu(nullptr)
{
    m_ui->setupUi(this);
    // The settings shown here include the user's label and the server's
    // address: text, never markup.
    for (QLabel *label : findChildren<QLabel *>())
        label->setTextFormat(Qt::PlainText);
    m_ui->perfResultView->setModel(m_model);
    // Rows are one line each; fixed heights keep long tests cheap to lay out.
    m_ui->perfResultView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_ui->perfResultView->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_ui->perfResultView->horizontalHeader()->setDefaultSectionSize(110);
    // Widths follow the rows in view, not every row of a long test.
    m_ui->perfResultView->horizontalHeader()->setResizeContentsPrecision(0);

    // The graph takes what the window gives; the settings and the table
    // below keep their height.
    m_ui->detailSplitter->setStretchFactor(0, 1);
    m_ui->detailSplitter->setStretchFactor(1, 0);
    auto *graphLayout = new QVBoxLayout(m_ui->graphHost);
    graphLayout->setContentsMargins(0, 0, 0, 0);
    m_graph = new SpeedGraph(SpeedGraph::Look::Detail, m_ui->graphHost);
    graphLayout->addWidget(m_graph);
    m_graph->setDataSource([this] { return numberOfRecordsForPlot(); },
                           [this](int field, qsizetype index) { return numberForPlot(field, index); });
    awakeFromNib();
    addNoteEditor();
}

TestInformationView::~TestInformationView() = default;

void TestInformationView::addNoteEditor()
{
    auto *caption = new QLabel(tr("Note:"), m_ui->settingsBox);
    caption->setTextFormat(Qt::PlainText);
    m_note = new QPlainTextEdit(m_ui->settingsBox);
    m_note->setObjectName(QStringLiteral("testNote"));
    m_note->setPlaceholderText(tr("Where, what changed, anything worth keeping"));
    m_note->setTabChangesFocus(true);
    m_note->setMaximumHeight(70);
    m_note->setEnabled(false);
    const int row = m_ui->settingsLayout->rowCount();
    m_ui->settingsLayout->addWidget(caption, row, 0, Qt::AlignTop);
    m_ui->settingsLayout->addWidget(m_note, row, 1, 1, 3);
    connect(m_note, &QPlainTextEdit::textChanged, this, [this] {
        if (m_list && m_perfHelper)
            m_list->setNote(m_perfHelper.get(), m_note->toPlainText());
    });
}

void TestInformationView::setTestList(TestListModel *list)
{
    m_list = list;
}

const QStringList &TestInformationView::initiallyHiddenColumns()
{
    static const QStringList hidden{QStringLiteral("jitter"),    QStringLiteral("dataloss"),
                                    QStringLiteral("interface"), QStringLiteral("bssid"),
                                    QStringLiteral("phyMode"),   QStringLiteral("security"),
                                    // link health: in the chooser, the usual table as it was
                                    QStringLiteral("direction"), QStringLiteral("retransmits"),
                                    QStringLiteral("roundTrip"), QStringLiteral("congestionWindow"),
                                    QStringLiteral("linkJitter"), QStringLiteral("linkLoss"),
                                    QStringLiteral("roam")};
    return hidden;
}

void TestInformationView::awakeFromNib()
{
    // The column chooser: one checkable item per column, on the header's
    // context menu. The choice is not remembered between starts.
    m_columnMenu = new QMenu(QString(), this);
    QHeaderView *header = m_ui->perfResultView->horizontalHeader();
    for (int column = 0; column < m_model->columnCount(); ++column) {
        const QString title = m_model->headerData(column, Qt::Horizontal).toString();
        QAction *item = m_columnMenu->addAction(title);
        item->setCheckable(true);
        item->setData(column);
        const bool hidden = initiallyHiddenColumns().contains(m_model->columnIdentifier(column));
        m_ui->perfResultView->setColumnHidden(column, hidden);
        item->setChecked(!hidden);
        connect(item, &QAction::triggered, this, [this, item] { toggleColumn(item); });
    }
    connect(m_columnMenu, &QMenu::aboutToShow, this, &TestInformationView::menuWillOpen);
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::customContextMenuRequested, this,
            [this, header](const QPoint &pos) { m_columnMenu->popup(header->mapToGlobal(pos)); });
}

void TestInformationView::toggleColumn(QAction *item)
{
    const int column = item->data().toInt();
    QTableView *table = m_ui->perfResultView;
    table->setColumnHidden(column, !table->isColumnHidden(column));
}

void TestInformationView::menuWillOpen()
{
    for (QAction *item : m_columnMenu->actions())
        item->setChecked(!m_ui->perfResultView->isColumnHidden(item->data().toInt()));
}

QTableView *TestInformationView::perfResultView() const
{
    return m_ui->perfResultView;
}

void TestInformationView::setPerfHelper(PerfHelperPtr perfHelper)
{
    if (perfHelper == m_perfHelper)
        return;
    m_perfHelper = std::move(perfHelper);
    m_model->setResults(m_perfHelper ? &m_perfHelper->resultss : nullptr);
    const QSignalBlocker quiet(m_note);
    m_note->setPlainText(m_list && m_perfHelper ? m_list->extras(m_perfHelper.get()).note : QString());
    m_note->setEnabled(m_list && m_perfHelper);
}

void TestInformationView::updateView()
{
    if (const PerfHelper *test = m_perfHelper.get()) {
        m_ui->serverAddress->setText(test->serverIP);
        m_ui->serverPort->setText(QString::number(test->serverPort));
        m_ui->testDuration->setText(QStringLiteral("%1 sec").arg(test->duration));
        m_ui->statsInterval->setText(QStringLiteral("%1 sec").arg(test->stats_interval));
        m_ui->graphMaxSpeed->setText(QString::number(test->graphMaxSpeed));
        m_ui->sendBandwidth->setText(test->sendBandwidth != 0 ? QString::number(test->sendBandwidth) : QString());
        m_ui->datagramSize->setText(test->bufferLength != 0 ? QString::number(test->bufferLength) : QString());
        m_ui->testType->setText(test->testType != 0 ? QStringLiteral("UDP") : QStringLiteral("TCP"));
        m_ui->transferDirection->setText(test->reverse == 1 ? QStringLiteral("Server To Client")
                                                            : QStringLiteral("Client To Server"));
    }
    updateGraphAxis();
    const int rowsBefore = m_model->rowCount();
    const PerfHelper *shownBefore = m_widenedFor;
    m_model->reloadData();
    // While a test runs its rows come in at the top one interval at a time:
    // only they are measured. Every row in view is measured for another
    // test, and once a test has ended (its last figures may change at the end).
    m_widenedFor = m_perfHelper.get();
    const bool running = m_perfHelper && m_perfHelper->isTestRunning != 0;
    widenColumnsToContents(shownBefore == m_widenedFor && running ? std::max(0, m_model->rowCount() - rowsBefore) : -1);
    reloadGraphData();
}

void TestInformationView::widenColumnsToContents(int newRows)
{
    // No column hides part of a figure (a rate in Kbps runs long); one the
    // user made wider stays so. -1: every row in view.
    if (newRows == 0)
        return;
    QTableView *table = m_ui->perfResultView;
    const QAbstractItemView *view = table; // where the width a text needs is public
    for (int column = 0; column < m_model->columnCount(); ++column) {
        if (table->isColumnHidden(column))
            continue;
        int needed = 0;
        if (newRows < 0)
            needed = view->sizeHintForColumn(column);
        for (int row = 0; row < newRows; ++row)
            needed = std::max(needed, view->sizeHintForIndex(m_model->index(row, column)).width());
        if (needed > table->columnWidth(column))
            table->setColumnWidth(column, needed);
    }
}

void TestInformationView::clearView()
{
    for (QLabel *label : {m_ui->serverAddress, m_ui->serverPort, m_ui->testDuration, m_ui->statsInterval,
                          m_ui->testLabel, m_ui->testType, m_ui->transferDirection, m_ui->datagramSize,
                          m_ui->sendBandwidth})
        label->clear();
    setPerfHelper(nullptr);
    m_model->reloadData();
    if (m_compared.isEmpty())
        m_graph->setGraphTitle(QString());
    reloadGraphData();
}

void TestInformationView::loadGraph()
{
    const qint64 duration = m_store->integerForKey(QStringLiteral("testDuration"));
    const qint64 statsInterval = m_store->integerForKey(QStringLiteral("statsInterval"));
    const qint64 graphMax = m_store->integerForKey(QStringLiteral("graphMaxSpeed"));
    const bool kilo = m_store->integerForKey(QStringLiteral("bandwidthformat")) == 1;

    m_graph->setGraphTitle(QString());
    m_graph->setXMajorIntervalLength(1);
    m_graph->setYAxisTitle(QStringLiteral("Speed (%1)").arg(kilo ? QStringLiteral("Kbps") : QStringLiteral("Mbps")));
    m_graph->setXRange(0, double(duration + 1));
    m_graph->setYRange(0, graphMax > 0 ? double(graphMax) : 10.0);
    m_graph->setXAxisTitle(QStringLiteral("Test Duration (%1) \nStats Interval = %2").arg(duration).arg(statsInterval));
    m_graph->setXMinorTicksPerInterval(statsInterval);
    m_store->synchronize();
}

void TestInformationView::setComparedTests(const QList<PerfHelperPtr> &tests)
{
    QStringList labels;
    for (const PerfHelperPtr &test : tests)
        labels << test->testLabel;
    const QList<PerfHelperPtr> compared = tests.size() >= 2 ? tests : QList<PerfHelperPtr>();
    if (compared == m_compared && (compared.isEmpty() || labels == m_comparedLabels))
        return;
    const bool wasComparing = !m_compared.isEmpty();
    m_compared = compared;
    m_comparedLabels = compared.isEmpty() ? QStringList() : labels;
    m_twoWayShown = false;
    m_link.changed = true;
    if (!m_compared.isEmpty()) {
        showComparison();
        return;
    }
    m_graph->setComparison({});
    if (wasComparing) {
        if (m_perfHelper) {
            resetGraph();
            updateGraphAxis();
        } else {
            m_graph->setGraphTitle(QString());
        }
    }
}

void TestInformationView::showComparison()
{
    // One unit for all: Kbps only when every test shows Kbps. Rates are bits
    // per second in every record, whatever unit it is shown in.
    const bool kilo = std::all_of(m_compared.cbegin(), m_compared.cend(),
                                  [](const PerfHelperPtr &test) { return test->bandwidthformat == 1; });
    QList<SpeedGraph::Series> series;
    float fastest = 0;
    qint64 longest = 0;
    qint64 yLength = 10;
    for (const PerfHelperPtr &test : std::as_const(m_compared)) {
        SpeedGraph::Series line{test->testLabel, {QPointF(0, 0)}};
        for (qsizetype i = test->resultss.size() - 1; i >= 0; --i) {
            const PerfResult &record = *test->resultss.at(i);
            fastest = std::max(fastest, record.sentBandwidth);
            const double y = kilo ? NumberUtilites::kbpsFormatWithoutString(NumberUtilites::longLongValue(record.sentBandwidth)).toDouble()
                                  : NumberUtilites::mbpsFormat(record.sentBandwidth).toDouble();
            line.points.append(QPointF(double(SettingsStore::leadingInteger(record.endTime)), y));
        }
        series.append(line);
        longest = std::max(longest, test->duration);
        yLength = std::max(yLength, test->graphMaxSpeed > 0 ? test->graphMaxSpeed : 10);
    }
    // The graph maximum's rule, applied to the fastest interval of all.
    const QString text = kilo ? NumberUtilites::kbpsFormat(fastest) : NumberUtilites::bitFormat(fastest);
    yLength = std::max({yLength, SettingsStore::leadingInteger(text) + 5,
                        m_store->integerForKey(QStringLiteral("graphMaxSpeed"))});
    m_graph->setComparison(series);
    m_graph->setXRange(0, double(longest + 1));
    m_graph->setYRange(0, double(yLength));
    m_graph->setXAxisTitle(QStringLiteral("Test Duration (%1)").arg(longest));
    m_graph->setYAxisTitle(QStringLiteral("Speed (%1)").arg(kilo ? QStringLiteral("Kbps") : QStringLiteral("Mbps")));
    m_graph->setGraphTitle(tr("%n tests compared", nullptr, int(m_compared.size())));
}

void TestInformationView::resetGraph()
{
    // A comparison keeps the graph until it ends.
    if (!m_compared.isEmpty()) {
        m_plotted.clear();
        reloadGraphData();
        return;
    }
    if (const PerfHelper *test = m_perfHelper.get()) {
        m_graph->setXRange(0, double(test->duration + 1));
        m_graph->setYRange(0, test->graphMaxSpeed > 0 ? double(test->graphMaxSpeed) : 10.0);
        const QString interval =
            test->stats_interval == 1 ? QStringLiteral("None") : QString::number(test->stats_interval);
        m_graph->setXAxisTitle(QStringLiteral("Test Duration (%1)\nStats Interval = %2").arg(test->duration).arg(interval));
        m_graph->setXMinorTicksPerInterval(test->stats_interval);
        m_graph->setXMajorIntervalLength(test->stats_interval);
        m_graph->setYAxisTitle(QStringLiteral("Speed (%1)")
                                   .arg(test->bandwidthformat == 1 ? QStringLiteral("Kbps") : QStringLiteral("Mbps")));
        m_graph->setGraphTitle(QStringLiteral("%1, ").arg(objectText(test->testLabel))
                               + QStringLiteral(" From %1 %2").arg(QStringLiteral("This Computer To"),
                                                                   objectText(test->serverIP)));
    }
    m_plotted.clear();
    reloadGraphData();
}

float TestInformationView::maximumSentBandwidth()
{
    const PerfResultList *list = m_perfHelper ? &m_perfHelper->resultss : nullptr;
    qsizetype added = m_maxScanned.newRecords(m_perfHelper.get(), list);
    if (added < 0) {
        m_maxBandwidth = 0;
        added = list ? list->size() : 0;
    }
    for (qsizetype i = 0; i < added; ++i)
        m_maxBandwidth = std::max(m_maxBandwidth, list->at(i)->sentBandwidth);
    m_maxScanned.mark(m_perfHelper.get(), list);
    return m_maxBandwidth;
}

void TestInformationView::updateGraphAxis()
{
    if (!m_perfHelper || !m_compared.isEmpty())
        return;
    const float fastest = maximumSentBandwidth();
    const QString text = m_perfHelper->bandwidthformat == 1 ? NumberUtilites::kbpsFormat(fastest)
                                                            : NumberUtilites::bitFormat(fastest);
    qint64 limit = SettingsStore::leadingInteger(text) + 5;
    limit = std::max(limit, m_store->integerForKey(QStringLiteral("graphMaxSpeed")));
    // The range only grows here; resetGraph and loadGraph may shrink it.
    if (m_graph->yRangeStart() + m_graph->yRangeLength() < double(limit))
        m_graph->setYRange(0, double(limit));
}

void TestInformationView::reloadGraphData()
{
    const PerfResultList *list = m_perfHelper ? &m_perfHelper->resultss : nullptr;
    // While the shown list only grows at its front, only the new points are
    // asked for; the older ones keep their place (oldest first).
    if (m_plotted.newRecords(m_perfHelper.get(), list) >= 0)
        m_graph->appendNewData();
    else
        m_graph->reloadData();
    m_plotted.mark(m_perfHelper.get(), list);
    showLinkOverTime();
}

void TestInformationView::showLinkOverTime()
{
    // A comparison owns the graph until it ends.
    if (!m_compared.isEmpty()) {
        m_link = LinkLines();
        m_linked.clear();
        m_graph->setLink({}, {});
        return;
    }
    const PerfResultList *list = m_perfHelper ? &m_perfHelper->resultss : nullptr;
    // Only the records new since the last refresh are read: a day-long test
    // has 86,400 of them.
    qsizetype added = m_linked.newRecords(m_perfHelper.get(), list);
    if (added < 0) {
        m_link = LinkLines();
        added = list ? list->size() : 0;
    }
    m_linked.mark(m_perfHelper.get(), list);
    if (added == 0 && !m_link.changed)
        return;
    const qint64 interval = m_perfHelper ? std::max<qint64>(m_perfHelper->stats_interval, 1) : 1;
    for (qsizetype i = added - 1; i >= 0; --i) { // oldest of the new first
        const PerfResultPtr &record = list->at(i);
        const QPointF point(double(SettingsStore::leadingInteger(record->endTime)), plottedRate(*record));
        m_link.sent |= record->direction == 0;
        m_link.received |= record->direction == 1;
        (record->direction == 1 ? m_link.down : m_link.up).append(point);
        // The link of each interval: not of a summary over the whole test,
        // and once an interval (a two-way test's down records repeat it).
        const double length = point.x() - double(SettingsStore::leadingInteger(record->startTime));
        if (length > double(interval) || record->direction == 1)
            continue;
        if (!record->ssidField.isEmpty())
            m_link.signal.append(QPointF(point.x(), double(record->rssiField)));
        if (PerfResultTableModel::roamed(*record, m_link.lastInterval.get()))
            m_link.roams.append(point.x());
        m_link.lastInterval = record;
    }
    m_link.changed = false;
    // A two-way test: one line each way instead of one line zigzagging.
    const bool twoWay = m_link.sent && m_link.received;
    if (twoWay || m_twoWayShown)
        m_graph->setComparison(twoWay ? QList<SpeedGraph::Series>{{tr("Up"), m_link.up}, {tr("Down"), m_link.down}}
                                      : QList<SpeedGraph::Series>());
    m_twoWayShown = twoWay;
    if (!m_link.signal.isEmpty() || !m_link.roams.isEmpty() || m_graph->signalSeries())
        m_graph->setLink(m_link.signal, m_link.roams);
}

double TestInformationView::plottedRate(const PerfResult &record)
{
    if (record.bandwidthformat != 1)
        return NumberUtilites::mbpsFormat(record.sentBandwidth).toDouble();
    return NumberUtilites::kbpsFormatWithoutString(NumberUtilites::longLongValue(record.sentBandwidth)).toDouble();
}

qsizetype TestInformationView::numberOfRecordsForPlot() const
{
    return m_perfHelper ? m_perfHelper->resultss.size() + 1 : 0;
}

double TestInformationView::numberForPlot(int field, qsizetype index) const
{
    if (!m_perfHelper || index <= 0)
        return 0;
    const PerfResultList &list = m_perfHelper->resultss;
    const qsizetype position = list.size() - index;
    if (position < 0 || position >= list.size())
        return 0;
    const PerfResult &record = *list.at(position);
    if (field == 0)
        return double(SettingsStore::leadingInteger(record.endTime));
    return plottedRate(record);
}

QString TestInformationView::getSystemIP()
{
    if (!m_ipAddress.isNull())
        return m_ipAddress;
    QStringList addresses;
    for (const QHostAddress &address : QNetworkInterface::allAddresses())
        addresses.append(address.toString());
    m_ipAddress = systemIPFromAddresses(addresses);
    return m_ipAddress;
}

QString TestInformationView::systemIPFromAddresses(const QStringList &addresses)
{
    if (addresses.isEmpty())
        return QStringLiteral("");
    for (const QString &address : addresses) {
        if (address.startsWith(QLatin1String("127")))
            continue;
        if (address.split(QLatin1Char('.')).size() == 4)
            return address;
    }
    return QStringLiteral("IPv4 address not available");
}

QString TestInformationView::stringForPHYMode(qint64 phyMode, float osxVersion)
{
    return WiFiModeText::stringForPHYMode(phyMode, osxVersion);
}

QString TestInformationView::stringForSecurityMode(qint64 securityMode, float osxVersion)
{
    return WiFiModeText::stringForSecurityMode(securityMode, osxVersion);
}

QString TestInformationView::stringForOpMode(qint64 opMode, float osxVersion)
{
    return WiFiModeText::stringForOpMode(opMode, osxVersion);
}
