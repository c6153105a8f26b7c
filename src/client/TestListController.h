#pragma once

#include <QObject>
#include <QPointer>

class AlertPresenter;
class QTableView;
class QWidget;
class TestFileActions;
class TestInformationView;
class TestListModel;

// What the test list does on the user's selection and delete clicks: show
// the selected test in the detail view, and delete a test after asking. It
// also has the graph compare the ticked tests, and holds the list's file
// actions.
class TestListController : public QObject
{
    Q_OBJECT

public:
    static inline const QString kDeleteQuestion = QStringLiteral("Are you sure you want to delete?");
    static inline const QString kRunningDeleteRefusal = QStringLiteral("You cannot delete currently running test.");

    TestListController(TestListModel &model, TestInformationView &detailView, AlertPresenter &alerts,
                       QWidget *alertParent, QObject *parent = nullptr);

    // Puts the model and the column delegates on the table and follows its
    // selection and delete buttons.
    void attach(QTableView *table);

    // The selected row, -1 for none.
    void tableViewSelectionDidChange(int selectedRow);
    // The delete button of a row was clicked.
    void removeTest(int clickedRow);

    TestFileActions *fileActions() const { return m_files; }

    // Selects the row as a click would (the view follows).
    void selectRow(int row);

private:
    // Two or more ticked tests are compared in the graph; fewer end it.
    void updateComparison();

    TestListModel &m_model;
    TestInformationView &m_detailView;
    AlertPresenter &m_alerts;
    QPointer<QWidget> m_alertParent;
    QPointer<QTableView> m_table;
    TestFileActions *m_files;
    bool m_removing = false; // a removal's own selection changes are not the person's
};
