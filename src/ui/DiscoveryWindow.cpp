#include "ui/DiscoveryWindow.h"

#include "ui_DiscoveryWindow.h"

#include <QHeaderView>
#include <QItemSelectionModel>

DiscoveryWindow::DiscoveryWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_ui(std::make_unique<Ui::DiscoveryWindow>())
{
    m_ui->setupUi(this);
    m_ui->tableView->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    m_ui->tableView->verticalHeader()->hide();
    connect(m_ui->closeButton, &QPushButton::clicked, this, &QWidget::close);
    showUnavailable(QString());
}

DiscoveryWindow::~DiscoveryWindow() = default;

void DiscoveryWindow::setModel(QAbstractItemModel *model)
{
    m_ui->tableView->setModel(model);
    if (QItemSelectionModel *selection = m_ui->tableView->selectionModel()) {
        connect(selection, &QItemSelectionModel::selectionChanged, this, &DiscoveryWindow::reportSelection);
    }
}

QTableView *DiscoveryWindow::tableView() const
{
    return m_ui->tableView;
}

void DiscoveryWindow::showUnavailable(const QString &line)
{
    m_ui->unavailableLabel->setText(line);
    m_ui->unavailableLabel->setVisible(!line.isEmpty());
    m_ui->tableView->setVisible(line.isEmpty());
}

void DiscoveryWindow::reportSelection()
{
    const QModelIndexList rows = m_ui->tableView->selectionModel()->selectedRows();
    emit selectedRowChanged(rows.isEmpty() ? -1 : rows.first().row());
}
