#pragma once

#include "records/ResultsFile.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class AlertPresenter;
class QAction;
class QWidget;
class SettingsStore;
class TestInformationView;
class TestListModel;

// The File menu's work on the test list: save the ticked tests (the shown
// one when none is ticked) to a results file, open one, and export the
// shown test as CSV or its graph as PNG or SVG. Nothing is written unless
// the user asks. Each failure is one alert sentence naming the file.
class TestFileActions : public QObject
{
    Q_OBJECT

public:
    TestFileActions(TestListModel &model, TestInformationView &detailView, AlertPresenter &alerts,
                    SettingsStore &settings, QWidget *dialogParent, QObject *parent = nullptr);

    // "Save Tests…", "Open Tests…", "Export CSV…", "Export Graph as PNG…",
    // "Export Graph as SVG…", for the window's File menu.
    QList<QAction *> actions() const { return m_actions; }

    // The work behind each action once a path is chosen; each answers the
    // error sentence (already shown) or an empty string.
    QString saveTests(const QString &path);
    QString openTests(const QString &path);
    QString exportCsv(const QString &path);
    // PNG or SVG by the path's suffix, at the graph's size on screen.
    QString exportGraph(const QString &path);

    // The CSV of one test: a header row, one row per interval oldest first
    // with every column of the interval table (hidden ones too) as the table
    // shows it, then the final record as a row marked "final"; the note in
    // its own column of the first row.
    static QByteArray csv(const PerfHelper &test, const TestExtras &extras);

    static QString applicationName();

signals:
    // Tests were opened into the top rows of the list.
    void testsOpened(int count);

private:
    QString chooseSavePath(const QString &title, const QString &filter, const QString &suffix);
    QString failed(const QString &message);
    void postInfoMessage(const QString &message);

    TestListModel &m_model;
    TestInformationView &m_detailView;
    AlertPresenter &m_alerts;
    SettingsStore &m_settings;
    QPointer<QWidget> m_dialogParent;
    QList<QAction *> m_actions;
    QString m_folder; // where the last dialog was left
};
