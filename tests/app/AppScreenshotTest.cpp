#include "Tidewave/TidewaveAppDelegate.h"

#include "client/ClientTab.h"

#include "common/TestEnvironment.h"
#include "fakes/AppFakeReachabilitySource.h"
#include "server/TestFinishedResultCellView.h"
#include "shell/NotificationCenter.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QApplication>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLineEdit>
#include <QPalette>
#include <QPixmap>
#include <QScreen>
#include <QSet>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// Renders the main window (both tabs, light and dark palette) and a notice
// to PNG files in <build>/screenshots for a reviewer to look at. Run under
// Xvfb with the xcb platform, so the windows are real X11 windows.
namespace {

QString shotPath(const QString &name)
{
    const QString folder = QStringLiteral(TIDEWAVE_SCREENSHOT_DIR);
    QDir().mkpath(folder);
    return folder + QLatin1Char('/') + name;
}

// A picture with something drawn on it: more than a handful of colours.
int distinctColours(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4)
            colours.insert(image.pixel(x, y));
    return static_cast<int>(colours.size());
}

void save(const QPixmap &pixmap, const QString &name)
{
    const QImage image = pixmap.toImage();
    ASSERT_FALSE(image.isNull()) << name.toStdString();
    EXPECT_GT(distinctColours(image), 8) << name.toStdString() << " looks blank";
    ASSERT_TRUE(image.save(shotPath(name))) << name.toStdString();
}

PerfResultPtr line(const QString &interval, float bytes, float bits, const QString &type)
{
    auto r = std::make_shared<PerfResult>();
    r->intervals = interval;
    r->receivedBytes = bytes;
    r->receivedBandwidth = bits;
    r->jitter = QStringLiteral("-");
    r->lostTotalDataGrams = QStringLiteral("-");
    r->typeName = type;
    r->ip = QStringLiteral("192.168.1.34");
    r->currentDate = QStringLiteral("21/11/2026 22:15:04");
    return r;
}

class Screenshots : public ::testing::Test
{
protected:
    void SetUp() override
    {
        auto reachability = std::make_shared<AppFakeReachabilitySource::Control>();
        TidewaveAppDelegate::Environment environment;
        environment.reachabilitySource = std::make_unique<AppFakeReachabilitySource>(reachability);
        environment.runShellCommandAndWait = [](const QString &) {};
        environment.serverTab.runShellCommandAndWait = [](const QString &) {};
        environment.requestQuit = [] {};
        app = std::make_unique<TidewaveAppDelegate>(std::move(environment));
        app->launch();
        app->window()->resize(1100, 720);
        app->window()->move(40, 40);

        ServerTabVIew *tab = app->serverTab();
        auto finished = std::make_shared<iPerfServerResults>();
        for (int i = 0; i < 3; ++i)
            finished->intervalResults << line(QStringLiteral("%1.00-%2.00 sec").arg(i).arg(i + 1),
                                              1048576.0f * (110 + i), 9.2e8f + 1.0e7f * i, QStringLiteral("receiver"));
        finished->finalResults << line(QStringLiteral("0.00-3.00 sec"), 1048576.0f * 333, 9.31e8f,
                                       QStringLiteral("receiver"));
        tab->testDidFinished(finished);
        auto running = std::make_shared<iPerfServerResults>();
        running->intervalResults << line(QStringLiteral("0.00-1.00 sec"), 1048576.0f * 52, 4.4e8f,
                                         QStringLiteral("receiver"));
        tab->reportIntervalNew(running);
        tab->serverIpAddress->setText(QStringLiteral("WiFi (Primary): 192.168.1.20, Ethernet: 10.0.0.7"));
        NotificationCenter::defaultCenter().post(
            QStringLiteral("showInfoMessage"),
            {{QStringLiteral("message"), QStringLiteral("Server running; waiting for incoming tests.")}});
    }

    void TearDown() override
    {
        ProgressWindowController::sharedPrgoressWindowController()->window()->closeWindowOnMouseDown();
        app.reset();
    }

    // Lets the X server draw what was shown before the screen is grabbed
    // (widget grabs render by themselves and need no settling).
    static void letTheServerDraw() { QTest::qWait(300); }

    std::unique_ptr<TidewaveAppDelegate> app;
};

TEST_F(Screenshots, MainWindowBothTabsLightAndDark)
{
    TidewaveMainTabSet *tabs = app->window()->mainView()->tabSet();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));

    tabs->setCurrentIndex(TidewaveMainTabSet::kServerTabIndex);
    save(app->window()->grab(), QStringLiteral("main-window-server.png"));
    tabs->setCurrentIndex(TidewaveMainTabSet::kClientTabIndex);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app->clientTab()->isSetUp(); }, 5s));
    save(app->window()->grab(), QStringLiteral("main-window-client.png"));

    // A dark desktop palette, as a dark theme hands it to the application.
    const QPalette light = QApplication::palette();
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(45, 45, 48));
    dark.setColor(QPalette::WindowText, QColor(230, 230, 230));
    dark.setColor(QPalette::Base, QColor(30, 30, 32));
    dark.setColor(QPalette::AlternateBase, QColor(40, 40, 44));
    dark.setColor(QPalette::Text, QColor(230, 230, 230));
    dark.setColor(QPalette::Button, QColor(55, 55, 60));
    dark.setColor(QPalette::ButtonText, QColor(230, 230, 230));
    dark.setColor(QPalette::Highlight, QColor(53, 132, 228));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::Disabled, QPalette::WindowText, QColor(140, 140, 140));
    dark.setColor(QPalette::Disabled, QPalette::Text, QColor(140, 140, 140));
    dark.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(120, 120, 120));
    QApplication::setPalette(dark);
    QCoreApplication::processEvents();
    tabs->setCurrentIndex(TidewaveMainTabSet::kServerTabIndex);
    const QImage darkShot = app->window()->grab().toImage();
    save(QPixmap::fromImage(darkShot), QStringLiteral("main-window-server-dark.png"));
    // The window follows the palette: its background is the dark one.
    EXPECT_LT(qGray(darkShot.pixel(5, darkShot.height() - 5)), 100);
    QApplication::setPalette(light);
}

TEST_F(Screenshots, NoticeOverTheMainWindow)
{
    ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));
    app->window()->mainView()->tabSet()->setCurrentIndex(TidewaveMainTabSet::kServerTabIndex);
    ProgressWindowController::sharedPrgoressWindowController()->showWindowWithImage(
        ProgressWindow::informationImage(), QStringLiteral("Server started on port 5201"), ProgressWindow::kNoAutoClose);
    ProgressWindow *notice = ProgressWindowController::sharedPrgoressWindowController()->window();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return notice->windowOpacity() >= 1.0; }, 3s));
    save(notice->grab(), QStringLiteral("notice.png"));

    ProgressWindowController::sharedPrgoressWindowController()->showWindowWithImage(
        ProgressWindow::cautionImage(), QStringLiteral("4 digit port is required to run the server"), 5.0);
    notice->move(app->window()->geometry().center() - QPoint(notice->width() / 2, notice->height() / 2));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return notice->windowOpacity() >= 1.0; }, 3s));
    letTheServerDraw();
    QScreen *screen = QGuiApplication::primaryScreen();
    ASSERT_NE(screen, nullptr);
    save(screen->grabWindow(0), QStringLiteral("screen-with-notice.png"));
}

} // namespace
