#pragma once

#include <QTabWidget>

// The main window's tab view: the client tab first, the server tab second.
// The tabs are handed in by whoever wires the application, so each workspace
// is built and tested on its own; until then a tab shows a placeholder.
class TidewaveMainTabSet : public QTabWidget
{
    Q_OBJECT

public:
    static constexpr int kClientTabIndex = 0;
    static constexpr int kServerTabIndex = 1;

    explicit TidewaveMainTabSet(QWidget *parent = nullptr);

    // Takes ownership; replaces the placeholder (or the previous tab).
    void setClientTab(QWidget *tab);
    void setServerTab(QWidget *tab);

    QWidget *clientTab() const { return widget(kClientTabIndex); }
    QWidget *serverTab() const { return widget(kServerTabIndex); }

private:
    void replaceTab(int index, QWidget *tab, const QString &title);
};
