#include "common/TestEnvironment.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TEAutoTextSizeTextField.h"

#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

TEST(Notice, SitsHighInTheMiddleWidensOnlyForTextsWiderThanItsFrameAndFitsItsText)
{
    ProgressWindow *window = ProgressWindowController::sharedPrgoressWindowController()->window();
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry(), home = window->initialRect;
    EXPECT_EQ(home.topLeft(), QPoint(screen.center().x() - home.width() / 2, screen.top() + screen.height() / 4));
    EXPECT_EQ(window->windowFlags() & (Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    for (const QString &message : {QString(), QStringLiteral("Saved"), QStringLiteral("Unable to start the server. Please try another port."), QStringLiteral("OK")}) {
        window->showWindowWithImage(QIcon(), message, 5.0);
        const double textWidth = ProgressWindow::getTextSize(message).width();
        const bool wide = message.size() > 10;
        ASSERT_EQ(textWidth >= home.width(), wide) << "fixture text no longer fits its case";
        EXPECT_EQ(window->geometry(), QRect(home.topLeft(), QSize(wide ? int(std::ceil(textWidth)) + 20 : 250, home.height())));
        EXPECT_EQ(window->messageToShow->stringValue() + QString::number(window->messageToShow->minFontSize), message + (wide ? "20" : "-1"));
    }
    QWidget *panel = window->findChild<QWidget *>("contentView"); // dark grey at 90 %, corners rounded off
    QImage image(panel->size(), QImage::Format_ARGB32);
    image.fill(Qt::transparent), panel->render(&image, {}, {}, QWidget::DrawChildren);
    EXPECT_EQ(image.pixelColor(panel->width() / 2, 2).name(QColor::HexArgb) + QString::number(image.pixelColor(0, 0).alpha() < 100), "#e62d2d2d1");
    // Unless told a size, the message takes the largest that fits its frame less twenty.
    for (const auto &[text, frame] : {std::pair{"Server started on port 5201", QSizeF(230, 200)}, {"OK", {230, 28}}, {"x", {20, 100}}}) {
        const int size = (window->messageToShow->setStringValue(text), window->messageToShow->minFontSize = 0, window->messageToShow->fontSizeForFrame(frame));
        const auto fits = [&](int px) { return TEAutoTextSizeTextField::textSize(text, px).width() <= frame.width() - 20 && TEAutoTextSizeTextField::textSize(text, px).height() <= frame.height(); };
        EXPECT_TRUE((size == 0 || fits(size)) && !fits(size + 1) && TEAutoTextSizeTextField::messageFont(size + 0.6).pixelSize() == size + 1) << text;
    }
}

TEST(Notice, FadesInWithItsIconClosesAfterItsDelayOrOnAClickThatCancelsEveryPendingClose)
{
    ProgressWindow *window = ProgressWindowController::sharedPrgoressWindowController()->window();
    window->closeWindowOnMouseDown(); // nothing left pending from earlier notices
    window->showWindowWithImage(ProgressWindow::informationImage(), "Server started on port 5201", 1.0);
    EXPECT_TRUE(window->isVisible() && window->iconToShow->isVisible() && !window->iconToShow->pixmap().isNull() && !window->closeButton->isVisible());
    const double opacity = window->windowOpacity();
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 400ms));
    EXPECT_TRUE(opacity < 0.5 && window->windowOpacity() > 0.5);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 2s));
    window->showWindowWithImage(QIcon(), "first", 0.2), window->showWindowWithImage(QIcon(), "stays", ProgressWindow::kNoAutoClose);
    EXPECT_TRUE(window->closeButton->isVisible() && !window->iconToShow->isVisible());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 2s)); // the earlier close still applies
    window->showWindowWithImage(QIcon(), "first", 0.2); // a press on the message lands on the panel behind it
    const QPoint inWindow = window->messageToShow->mapTo(window, window->messageToShow->rect().center());
    QTest::mouseClick(window->childAt(inWindow), Qt::LeftButton, {}, window->childAt(inWindow)->mapFrom(window, inWindow));
    EXPECT_TRUE(!window->isVisible() && !window->hasPendingAutoClose());
    window->showWindowWithImage(QIcon(), "second", ProgressWindow::kNoAutoClose);
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 400ms));
    QTest::mouseClick(window->closeButton, Qt::LeftButton);
    EXPECT_FALSE(window->isVisible());
}

} // namespace
