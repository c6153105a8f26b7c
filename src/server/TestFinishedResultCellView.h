#pragma once

#include "records/iPerfServerResults.h"

#include <QWidget>

#include <memory>

class QLabel;
class QTableView;
class ServerIntervalTableModel;

namespace Ui {
class TestFinishedResultCellView;
}

// One row of the server tab's results: the heading "From <client> To This
// Computer", the whole-test summary, the "Server is …" line and the test's
// interval table.
class TestFinishedResultCellView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kIntervalRowHeight = 10;

    explicit TestFinishedResultCellView(QWidget *parent = nullptr);
    ~TestFinishedResultCellView() override;

    // Reloads the interval table and fills the heading and summary from the
    // test: the last interval while there are no final records, else the
    // last final record that covers the whole test.
    void updateUI();

    iPerfServerResultsPtr testResult;

    QLabel *textField = nullptr; // the heading line
    QLabel *intervalTextField = nullptr;
    QLabel *transferTextField = nullptr;
    QLabel *bandwidthTextField = nullptr;
    QLabel *jitterTextField = nullptr;
    QLabel *lostTotalDatagramTextField = nullptr;
    QLabel *createdDateTextField = nullptr;
    QLabel *typeName = nullptr;
    QTableView *intervalResultsTable = nullptr;

    ServerIntervalTableModel *intervalModel() const { return m_intervals; }

private:
    std::unique_ptr<Ui::TestFinishedResultCellView> m_ui;
    ServerIntervalTableModel *m_intervals = nullptr;
};
