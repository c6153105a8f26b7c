#pragma once

#include <QMainWindow>

#include <memory>

class TidewaveMainView;

namespace Ui {
class TidewaveMainWindow;
}

// The application's one main window: the main view with its tabs and message
// line, and a small menu. Closing it is the user's way to quit (closed()).
class TidewaveMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit TidewaveMainWindow(QWidget *parent = nullptr);
    ~TidewaveMainWindow() override;

    TidewaveMainView *mainView() const;
    // Puts a workspace's file actions at the top of the File menu, above Quit.
    void addFileActions(const QList<QAction *> &actions);

signals:
    void closed();
    void quitRequested();
    void discoveryWindowRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void showAbout();

    std::unique_ptr<Ui::TidewaveMainWindow> m_ui;
};
