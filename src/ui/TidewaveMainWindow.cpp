#include "ui/TidewaveMainWindow.h"

#include "ui/TidewaveMainView.h"
#include "ui_TidewaveMainWindow.h"

#include <QCloseEvent>
#include <QMessageBox>

TidewaveMainWindow::TidewaveMainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_ui(std::make_unique<Ui::TidewaveMainWindow>())
{
    m_ui->setupUi(this);
    m_ui->actionQuit->setShortcut(QKeySequence::Quit);
    connect(m_ui->actionQuit, &QAction::triggered, this, &TidewaveMainWindow::quitRequested);
    connect(m_ui->actionDiscoveredServers, &QAction::triggered, this,
            &TidewaveMainWindow::discoveryWindowRequested);
    connect(m_ui->actionAbout, &QAction::triggered, this, &TidewaveMainWindow::showAbout);
}

TidewaveMainWindow::~TidewaveMainWindow() = default;

TidewaveMainView *TidewaveMainWindow::mainView() const
{
    return m_ui->mainView;
}

void TidewaveMainWindow::addFileActions(const QList<QAction *> &actions)
{
    m_ui->menuFile->insertActions(m_ui->actionQuit, actions);
    m_ui->menuFile->insertSeparator(m_ui->actionQuit);
}

void TidewaveMainWindow::closeEvent(QCloseEvent *event)
{
    QMainWindow::closeEvent(event);
    if (event->isAccepted())
        emit closed();
}

void TidewaveMainWindow::showAbout()
{
    QMessageBox::about(this, tr("About Tidewave"),
                       tr("<b>Tidewave %1</b> (build %2)<p>Measures network throughput between two "
                          "computers with iperf3, for judging Wi-Fi links.</p>")
                           .arg(QStringLiteral(TIDEWAVE_VERSION), QStringLiteral(TIDEWAVE_BUILD_NUMBER)));
}
