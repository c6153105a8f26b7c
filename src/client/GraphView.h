#pragma once

#include <QList>
#include <QVariantMap>
#include <QWidget>

class SpeedGraph;
class SettingsStore;

// A self-contained speed chart over its own point list, "plotData" (entries
// with the keys "x" and "y"). Nothing fills that list today, so it shows the
// axes for the stored duration and graph maximum.
class GraphView : public QWidget
{
    Q_OBJECT

public:
    explicit GraphView(QWidget *parent = nullptr, SettingsStore *store = nullptr);

    QList<QVariantMap> plotData;

    // Ranges and titles from the settings store; runs before every show.
    void viewWillDraw();
    // Re-reads plotData.
    void reloadData();

    SpeedGraph *graph() const { return m_graph; }

    qsizetype numberOfRecordsForPlot() const;
    double numberForPlot(int field, qsizetype index) const;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void viewDidLoad();

    SettingsStore *m_store;
    SpeedGraph *m_graph = nullptr;
};
