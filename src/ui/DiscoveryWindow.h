#pragma once

#include <QWidget>

#include <memory>

class QAbstractItemModel;
class QTableView;

namespace Ui {
class DiscoveryWindow;
}

// The window that lists the Tidewave servers found on the local network. It
// shows whatever discovery model it is given and reports the selected row;
// what a selection means is the model owner's business.
class DiscoveryWindow : public QWidget
{
    Q_OBJECT

public:
    explicit DiscoveryWindow(QWidget *parent = nullptr);
    ~DiscoveryWindow() override;

    void setModel(QAbstractItemModel *model);
    QTableView *tableView() const;
    // A line saying why no server can be found, shown instead of the list;
    // "" shows the list again.
    void showUnavailable(const QString &line);

signals:
    // The selected row after every selection change; -1 when none is selected.
    void selectedRowChanged(int row);

private:
    void reportSelection();

    std::unique_ptr<Ui::DiscoveryWindow> m_ui;
};
