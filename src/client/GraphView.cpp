#include "client/GraphView.h"

#include "client/SpeedGraph.h"
#include "shell/SettingsStore.h"

#include <QVBoxLayout>

GraphView::GraphView(QWidget *parent, SettingsStore *store)
    : QWidget(parent)
    , m_store(store ? store : &SettingsStore::standard())
{
    viewDidLoad();
}

void GraphView::viewDidLoad()
{
    // The hosting view covers the whole of this view.
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_graph = new SpeedGraph(SpeedGraph::Look::Standalone, this);
    layout->addWidget(m_graph);
    m_graph->setDataSource([this] { return numberOfRecordsForPlot(); },
                           [this](int field, qsizetype index) { return numberForPlot(field, index); });
}

void GraphView::viewWillDraw()
{
    m_graph->setXRange(0, double(m_store->integerForKey(QStringLiteral("testDuration")) + 1));
    m_graph->setYRange(0, double(m_store->integerForKey(QStringLiteral("graphMaxSpeed"))));
    const QString duration = m_store->stringForKey(QStringLiteral("testDuration"));
    const QString interval = m_store->stringForKey(QStringLiteral("statsInterval"));
    m_graph->setXAxisTitle(QStringLiteral("Test Duration (%1), (Stats Interval = %2)")
                               .arg(duration.isNull() ? QStringLiteral("(null)") : duration,
                                    interval.isNull() ? QStringLiteral("(null)") : interval));
    m_graph->setXMinorTicksPerInterval(m_store->integerForKey(QStringLiteral("statsInterval")));
    m_graph->setGraphTitle(QString());
}

void GraphView::reloadData()
{
    m_graph->reloadData();
}

qsizetype GraphView::numberOfRecordsForPlot() const
{
    return plotData.size();
}

double GraphView::numberForPlot(int field, qsizetype index) const
{
    const QVariantMap &entry = plotData.at(index);
    return entry.value(field == 0 ? QStringLiteral("x") : QStringLiteral("y")).toDouble();
}

void GraphView::showEvent(QShowEvent *event)
{
    viewWillDraw();
    reloadData();
    QWidget::showEvent(event);
}
