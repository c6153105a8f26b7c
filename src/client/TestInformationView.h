#pragma once

#include "PerfHelper/PerfHelper.h"
#include "client/ResultListWatermark.h"
#include "records/PerfResult.h"

#include <QPointF>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <memory>

class PerfResultTableModel;
class QAction;
class QMenu;
class QPlainTextEdit;
class QTableView;
class TestListModel;
class SettingsStore;
class SpeedGraph;

namespace Ui {
class TestInformationView;
}

// The detail view of the client workspace: the settings of the shown test,
// its interval table and its speed graph. It owns no test data: it keeps a
// reference to one test and reads that test's result list whenever it draws.
class TestInformationView : public QWidget
{
    Q_OBJECT

public:
    explicit TestInformationView(QWidget *parent = nullptr, SettingsStore *store = nullptr);
    ~TestInformationView() override;

    // The shown test (null: none). Follow with updateView().
    void setPerfHelper(PerfHelperPtr perfHelper);
    const PerfHelperPtr &perfHelper() const { return m_perfHelper; }

    // The list that keeps each test's note (not owned); the note editor
    // shows and edits the shown test's note there.
    void setTestList(TestListModel *list);
    QPlainTextEdit *noteEditor() const { return m_note; }

    // Two or more tests overlay in the graph, one line each with its label in
    // the legend, over one y range for the fastest of them and the x range of
    // the longest; fewer return the graph to the shown test.
    void setComparedTests(const QList<PerfHelperPtr> &tests);
    const QList<PerfHelperPtr> &comparedTests() const { return m_compared; }

    // Labels from the shown test, then graph axes, table and graph.
    void updateView();
    // Empties the labels (all but the graph maximum), forgets the test and
    // redraws the table and graph empty.
    void clearView();

    // Speed graph.
    void loadGraph();
    void resetGraph();
    void updateGraphAxis();
    // Points of the plot: 0 without a test, else one per record plus the origin.
    qsizetype numberOfRecordsForPlot() const;
    // Field 0 x, field 1 y, of the point at the index (oldest interval first).
    double numberForPlot(int field, qsizetype index) const;
    SpeedGraph *graph() const { return m_graph; }
    SettingsStore &settingsStore() const { return *m_store; }

    // Interval table and its column chooser.
    QTableView *perfResultView() const;
    PerfResultTableModel *resultModel() const { return m_model; }
    QMenu *columnMenu() const { return m_columnMenu; }
    // Flips the hidden flag of the menu item's column.
    void toggleColumn(QAction *item);
    // Sets each item's check mark to whether its column is visible.
    void menuWillOpen();

    // This computer's IPv4 address, asked once and then kept.
    QString getSystemIP();
    // The rule behind getSystemIP over a host's address texts, in order.
    static QString systemIPFromAddresses(const QStringList &addresses);

    // Wi-Fi code-to-text mappings; a code without text gives a null QString.
    static QString stringForPHYMode(qint64 phyMode, float osxVersion);
    static QString stringForSecurityMode(qint64 securityMode, float osxVersion);
    static QString stringForOpMode(qint64 opMode, float osxVersion);

    // The columns hidden whenever the view is set up.
    static const QStringList &initiallyHiddenColumns();

private:
    void widenColumnsToContents(int newRows);
    void showLinkOverTime();
    static double plottedRate(const PerfResult &record);
    void awakeFromNib();
    void addNoteEditor();
    void showComparison();
    void reloadGraphData();
    // Largest sentBandwidth of the shown test's records; kept up to date
    // incrementally while the list only grows at its front.
    float maximumSentBandwidth();

    std::unique_ptr<Ui::TestInformationView> m_ui;
    SettingsStore *m_store;
    PerfHelperPtr m_perfHelper;
    PerfResultTableModel *m_model;
    SpeedGraph *m_graph;
    QMenu *m_columnMenu;
    QString m_ipAddress;
    QPlainTextEdit *m_note = nullptr;
    TestListModel *m_list = nullptr;
    QList<PerfHelperPtr> m_compared;
    QStringList m_comparedLabels; // the labels the legend shows
    bool m_twoWayShown = false;   // the graph shows a two-way test's two lines
    struct LinkLines              // what the graph shows of the link, kept between refreshes
    {
        QList<QPointF> up{QPointF(0, 0)}, down{QPointF(0, 0)}, signal;
        QList<double> roams;
        bool sent = false, received = false;
        PerfResultPtr lastInterval; // for the next roam
        bool changed = true;        // drawn afresh even without new records
    };
    LinkLines m_link;
    const PerfHelper *m_widenedFor = nullptr; // the test whose rows the columns were widened for
    ResultListWatermark m_linked;

    // What the plot and the maximum were last computed from.
    ResultListWatermark m_plotted;
    ResultListWatermark m_maxScanned;
    float m_maxBandwidth = 0;
};
