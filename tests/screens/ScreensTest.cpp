#include "app/AppHarness.h"

#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"
#include "ui/DiscoveryWindow.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QGraphicsTextItem>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <QSplitter>
#include <QTableView>
#include <QTest>
#include <QValueAxis>
#include <QWindow>

#include <gtest/gtest.h>

namespace {

// What a person would see wrong in the window, one line each: a control smaller than it needs (clipped text), two
// controls of one layout on top of each other, a chart text outside the chart or over another.
QStringList problems(QWidget *window)
{
    QStringList found;
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        bool scrolled = false; // inside a scroll area a control may be scrolled out of view
        for (QWidget *parent = widget->parentWidget(); parent && !scrolled; parent = parent->parentWidget())
            scrolled = qobject_cast<QAbstractScrollArea *>(parent) != nullptr;
        if (!widget->isVisible() || scrolled || widget->objectName().startsWith(u"qt_"_s))
            continue; // parts of Qt's own controls are sized by their control
        const QSize needed = widget->minimumSizeHint();
        const bool control = qobject_cast<QLabel *>(widget) || qobject_cast<QAbstractButton *>(widget) || widget->inherits("QLineEdit")
            || widget->inherits("QComboBox");
        if (control && (widget->width() < needed.width() || widget->height() < needed.height()))
            found << u"%1 is %2×%3, needs %4×%5"_s.arg(widget->objectName()).arg(widget->width()).arg(widget->height()).arg(needed.width()).arg(needed.height());
        if (QLayout *layout = widget->layout()) {
            QList<QWidget *> placed;
            for (int i = 0; i < layout->count(); ++i)
                if (QWidget *item = layout->itemAt(i)->widget(); item && item->isVisible())
                    placed << item;
            for (int i = 0; i < placed.size(); ++i)
                for (int j = i + 1; j < placed.size(); ++j)
                    if (placed[i]->geometry().intersects(placed[j]->geometry()))
                        found << placed[i]->objectName() + u" overlaps "_s + placed[j]->objectName();
        }
    }
    for (QTableView *table : window->findChildren<QTableView *>()) { // a column as wide as what it shows
        const QAbstractItemView *view = table;
        for (int column = 0; table->isVisible() && column < table->model()->columnCount(); ++column)
            if (!table->isColumnHidden(column) && table->columnWidth(column) < view->sizeHintForColumn(column))
                found << u"column %1 of %2 is %3 wide, its text %4"_s.arg(column).arg(table->objectName()).arg(table->columnWidth(column)).arg(view->sizeHintForColumn(column));
    }
    for (SpeedGraph *graph : window->findChildren<SpeedGraph *>()) {
        if (!graph->isVisible())
            continue;
        const QRectF shown = graph->mapToScene(graph->viewport()->rect()).boundingRect();
        QList<QGraphicsItem *> texts;
        for (QGraphicsItem *item : graph->scene()->items())
            if (item->isVisible() && (dynamic_cast<QGraphicsTextItem *>(item) || dynamic_cast<QGraphicsSimpleTextItem *>(item)))
                texts << item;
        const auto text = [](QGraphicsItem *item) {
            auto *rich = dynamic_cast<QGraphicsTextItem *>(item);
            return rich ? rich->toPlainText() : static_cast<QGraphicsSimpleTextItem *>(item)->text();
        };
        for (int i = 0; i < texts.size(); ++i) {
            const QRectF box = texts[i]->sceneBoundingRect();
            if (!text(texts[i]).isEmpty() && !shown.contains(box))
                found << u"chart text \"%1\" cut off"_s.arg(text(texts[i]));
            for (int j = i + 1; j < texts.size(); ++j) // turned labels: their turned outlines, not their bounds
                if (!text(texts[i]).isEmpty() && !text(texts[j]).isEmpty()
                    && texts[i]->mapToScene(texts[i]->shape()).intersects(texts[j]->mapToScene(texts[j]->shape())))
                    found << u"chart texts \"%1\" and \"%2\" overlap"_s.arg(text(texts[i]), text(texts[j]));
        }
        const QRectF plot = graph->chart()->plotArea();
        for (QAbstractAxis *shownAxis : graph->chart()->axes()) { // a label for every tick
            const auto *axis = static_cast<QValueAxis *>(shownAxis);
            const bool vertical = axis->orientation() == Qt::Vertical;
            const int ticks = int(std::floor((axis->max() - axis->min()) / axis->tickInterval() + 1e-6)) + 1;
            const auto labels = std::count_if(texts.begin(), texts.end(), [&](QGraphicsItem *item) {
                bool number = false;
                text(item).toDouble(&number);
                const QRectF box = item->sceneBoundingRect();
                return number && (vertical ? box.right() <= plot.left() + 1 : box.top() >= plot.bottom() - 1);
            });
            if (labels != ticks)
                found << u"%1 of %2 ticks labelled on the %3 axis"_s.arg(labels).arg(ticks).arg(vertical ? u"y"_s : u"x"_s);
        }
        const QStringList wanted{graph->xAxisTitle(), graph->yAxisTitle()};
        for (const QString &title : wanted)
            if (std::none_of(texts.begin(), texts.end(), [&](QGraphicsItem *item) { return text(item) == title; }))
                found << u"axis title \"%1\" not shown"_s.arg(title);
    }
    return found;
}

void save(QWidget *widget, const QString &name)
{
    const QString folder = qEnvironmentVariable("TIDEWAVE_SCREENSHOTS", u"screenshots"_s);
    QDir().mkpath(folder);
    widget->grab().save(folder + u'/' + QGuiApplication::platformName() + u'-' + name + u".png"_s);
}

// The first screen after a real test, at the common desktop sizes and at the smallest the window allows: everything
// shown whole, nothing on top of anything. Images land in the screenshots folder for people to look at.
TEST(Screens, TheFirstScreenShowsEverythingAtEverySize)
{
    LocalApp app;
    app.reachability->setFlags(kReachabilityFlagReachable);
    app->launch();
    ASSERT_TRUE(waitUntil([&] { return app.serving(); }, 15s));
    ClientTab &tab = *app->clientTab();
    tab.findChild<QAbstractButton *>(u"kbpsRadio"_s)->click(); // the longest figures
    startClientTest(tab, u"127.0.0.1"_s, app.port, 5);
    const QLabel *progress = tab.findChild<QLabel *>(u"progressText"_s);
    EXPECT_TRUE(waitUntil([&] { return progress->text() == u"2 of 5 s"_s; }, 5s)) << progress->text().toStdString();
    save(app->window(), u"running"_s);
    ASSERT_TRUE(waitUntil([&] { return !clientRunning(tab); }, 20s));
    TidewaveMainWindow *window = app->window();
    window->mainView()->sohwMessage(u"iperf3: error - unable to start listener for connections: Address already in use\niperf3: exiting"_s);
    QTableView *rows = tab.testInfoView()->perfResultView();
    for (const QSize size : {window->minimumSize(), QSize(1280, 720), QSize(1366, 768), QSize(1920, 1080)}) {
        window->resize(size);
        waitUntil([&] { return window->size() == size; }, 2s);
        for (const int page : {1, 0}) { // the server tab lists the test that came in
            window->mainView()->tabSet()->setCurrentIndex(page);
            QStringList seen; // the chart lays out its texts a moment later
            waitUntil([&] { return (seen = problems(window)).isEmpty(); }, 1s);
            const QString name = u"%1-%2x%3"_s.arg(page ? u"server"_s : u"client"_s).arg(size.width()).arg(size.height());
            save(window, name);
            EXPECT_TRUE(seen.isEmpty()) << name.toStdString() << ":\n" << seen.join(u'\n').toStdString();
        }
        if (size.height() >= 768) {
            EXPECT_GE(rows->viewport()->height() / rows->verticalHeader()->defaultSectionSize(), 4) << size.height();
        }
    }
    QWidget *discovery = app->discoveryWindow(); // no avahi-daemon here: it says so
    discovery->show();
    ASSERT_TRUE(waitUntil([&] { return discovery->windowHandle() && discovery->windowHandle()->isExposed(); }, 3s));
    save(discovery, u"discovery"_s);
    EXPECT_EQ(problems(discovery).join(u'\n').toStdString(), "");
}

// What the person left is what the next start shows: window size, splitter positions, column widths, the tab.
TEST(Screens, TheNextStartShowsTheWindowAsItWasLeft)
{
    const auto shape = [](TidewaveAppDelegate &app) {
        QStringList parts{u"%1x%2"_s.arg(app.window()->width()).arg(app.window()->height())};
        for (const QSplitter *splitter : app.window()->findChildren<QSplitter *>())
            parts << splitter->objectName() + u'=' + QString::number(splitter->sizes().value(0));
        const QTableView *rows = app.clientTab()->testInfoView()->perfResultView();
        return parts << QString::number(rows->columnWidth(1)) << QString::number(app.window()->mainView()->tabSet()->currentIndex());
    };
    QStringList left;
    {
        LocalApp app;
        app->launch();
        app->window()->resize(1400, 800);
        waitUntil([&] { return app->window()->width() == 1400; }, 2s);
        for (QSplitter *splitter : app->window()->findChildren<QSplitter *>())
            splitter->setSizes({splitter->sizes().value(0) - 30, splitter->sizes().value(1) + 30});
        app->clientTab()->testInfoView()->perfResultView()->setColumnWidth(1, 230);
        app->window()->mainView()->tabSet()->setCurrentIndex(1);
        left = shape(*app.delegate);
        app->applicationWillTerminateNotification();
    }
    LocalApp again;
    again->launch();
    waitUntil([&] { return shape(*again.delegate) == left; }, 2s);
    EXPECT_EQ(shape(*again.delegate).join(u' ').toStdString(), left.join(u' ').toStdString());
}

// A notice is put on screen by the display server in use (exposed, not only shown), and closes by itself.
TEST(Screens, ANoticeAppearsAndClosesByItself)
{
    ProgressWindow *notice = ProgressWindowController::sharedPrgoressWindowController()->window();
    notice->showWindowWithImage(ProgressWindow::informationImage(), u"Server started on port 5201"_s, 1.5);
    ASSERT_TRUE(waitUntil([&] { return notice->windowHandle() && notice->windowHandle()->isExposed(); }, 3s));
    save(notice, u"notice"_s);
    EXPECT_TRUE(waitUntil([&] { return !notice->isVisible(); }, 4s));
}

} // namespace
