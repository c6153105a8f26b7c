#include <QApplication>
#include <QLabel>
#include <QMainWindow>

#include <csignal>

int main(int argc, char **argv)
{
    // Writes to a vanished peer must not end the application.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGSEGV, SIG_IGN);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tidewave"));
    QApplication::setApplicationVersion(QStringLiteral(TIDEWAVE_VERSION));

    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Tidewave"));
    auto *label = new QLabel(QStringLiteral("Tidewave %1").arg(QStringLiteral(TIDEWAVE_VERSION)), &window);
    label->setAlignment(Qt::AlignCenter);
    window.setCentralWidget(label);
    window.resize(640, 420);
    window.show();
    return QApplication::exec();
}
