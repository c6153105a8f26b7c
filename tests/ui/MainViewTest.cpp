#include "common/TestEnvironment.h"
#include "shell/NotificationCenter.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QLabel>
#include <QPointer>
#include <QSignalSpy>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>

using namespace std::chrono_literals;

namespace {

void postInfo(const QVariantMap &userInfo)
{
    NotificationCenter::defaultCenter().post(QStringLiteral("showInfoMessage"), userInfo);
}

TEST(MainView, ShowInfoMessageSetsAndClearsTheLabel)
{
    TidewaveMainView view;
    postInfo({{QStringLiteral("message"), QStringLiteral("iperf3: error - unable to start listener")}});
    EXPECT_EQ(view.messageLabel->text(), QStringLiteral("iperf3: error - unable to start listener"));
    postInfo({{QStringLiteral("message"), QString()}});
    EXPECT_TRUE(view.messageLabel->text().isEmpty());

    // The tool's words are shown as they are, never read as markup.
    view.sohwMessage(QStringLiteral("<b>direct</b>"));
    EXPECT_EQ(view.messageLabel->textFormat(), Qt::PlainText);
    view.sohwMessage(QStringLiteral("direct"));
    EXPECT_EQ(view.messageLabel->text(), QStringLiteral("direct"));
    postInfo({});
    EXPECT_TRUE(view.messageLabel->text().isEmpty());
}

TEST(MainView, APostFromAnotherThreadReachesTheLabelOnItsOwnThread)
{
    TidewaveMainView view;
    std::unique_ptr<QThread> poster(QThread::create(
        [] { postInfo({{QStringLiteral("message"), QStringLiteral("from a worker")}}); }));
    poster->start();
    ASSERT_TRUE(poster->wait(5000));
    ASSERT_TRUE(TestEnvironment::waitUntil(
        [&] { return view.messageLabel->text() == QStringLiteral("from a worker"); }, 5s));
}

TEST(MainTabSet, HandedInTabsReplaceThePlaceholdersInOrder)
{
    TidewaveMainTabSet tabs;
    ASSERT_EQ(tabs.count(), 2);
    QPointer<QWidget> clientPlaceholder = tabs.clientTab();
    auto *client = new QWidget;
    auto *server = new QWidget;
    tabs.setServerTab(server);
    tabs.setClientTab(client);
    EXPECT_EQ(tabs.count(), 2);
    EXPECT_EQ(tabs.widget(0), client);
    EXPECT_EQ(tabs.widget(1), server);
    EXPECT_EQ(tabs.tabText(0), QStringLiteral("Client"));
    EXPECT_EQ(tabs.tabText(1), QStringLiteral("Server"));
    EXPECT_TRUE(clientPlaceholder.isNull());
}

TEST(MainWindow, ClosingItAnnouncesTheQuit)
{
    TidewaveMainWindow window;
    window.show();
    QSignalSpy closed(&window, &TidewaveMainWindow::closed);
    ASSERT_TRUE(window.close());
    EXPECT_EQ(closed.count(), 1);
}

} // namespace
