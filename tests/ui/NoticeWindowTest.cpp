#include "common/TestEnvironment.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TEAutoTextSizeTextField.h"

#include <QLabel>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <cmath>

using namespace std::chrono_literals;

namespace {

// The self-fitting rule, checked against its definition for frames of
// different shapes: the chosen size fits, one more does not.
struct FitCase
{
    const char *name;
    QString text;
    QSizeF frame;
};

class AutoTextSizeFit : public ::testing::TestWithParam<FitCase>
{
};

bool fits(const QString &text, int size, const QSizeF &frame)
{
    const QSizeF needed = TEAutoTextSizeTextField::textSize(text, size);
    return needed.width() <= frame.width() - 20 && needed.height() <= frame.height();
}

TEST_P(AutoTextSizeFit, LargestSizeThatFitsIsChosen)
{
    const FitCase &c = GetParam();
    const int size = TEAutoTextSizeTextField::fittedFontSize(c.text, c.frame);
    ASSERT_GE(size, 1);
    EXPECT_TRUE(fits(c.text, size, c.frame));
    EXPECT_FALSE(fits(c.text, size + 1, c.frame));
}

INSTANTIATE_TEST_SUITE_P(
    Frames, AutoTextSizeFit,
    ::testing::Values(FitCase{"WidthBound", QStringLiteral("Server started on port 5201"), QSizeF(230, 200)},
                      FitCase{"HeightBound", QStringLiteral("OK"), QSizeF(230, 28)},
                      FitCase{"EmptyTextGrowsToHeight", QString(), QSizeF(230, 40)},
                      FitCase{"NarrowFrame", QStringLiteral("4 digit port is required to run the server"),
                              QSizeF(120, 60)}),
    [](const ::testing::TestParamInfo<FitCase> &info) { return std::string(info.param.name); });

TEST(AutoTextSizeField, NothingFitsGivesZeroAndAFixedSizeWins)
{
    // The text area is the frame minus 20, so a 20-wide frame has no room.
    EXPECT_EQ(TEAutoTextSizeTextField::fittedFontSize(QStringLiteral("x"), QSizeF(20, 100)), 0);

    TEAutoTextSizeTextField field;
    field.setStringValue(QStringLiteral("a long line of text that would shrink"));
    field.minFontSize = 20;
    EXPECT_EQ(field.fontSizeForFrame(QSizeF(60, 10)), 20);
    field.minFontSize = -1;
    EXPECT_LT(field.fontSizeForFrame(QSizeF(60, 10)), 20);
}

class NoticeWindow : public ::testing::Test
{
protected:
    void SetUp() override
    {
        window = ProgressWindowController::sharedPrgoressWindowController()->window();
        window->closeWindowOnMouseDown();
    }
    void TearDown() override { window->closeWindowOnMouseDown(); }

    ProgressWindow *window = nullptr;
};

struct WidthCase
{
    const char *name;
    QString message;
    bool widened;
};

class NoticeWidth : public NoticeWindow, public ::testing::WithParamInterface<WidthCase>
{
};

TEST_P(NoticeWidth, FollowsTheMeasuredText)
{
    const WidthCase &c = GetParam();
    window->showWindowWithImage(QIcon(), c.message, 5.0);
    const double textWidth = ProgressWindow::getTextSize(c.message).width();
    ASSERT_EQ(textWidth >= window->initialRect.width(), c.widened) << "fixture text no longer fits its case";
    if (c.widened) {
        EXPECT_EQ(window->width(), static_cast<int>(std::ceil(textWidth)) + 20);
        EXPECT_EQ(window->messageToShow->minFontSize, 20);
    } else {
        EXPECT_EQ(window->width(), 250);
        EXPECT_LT(window->messageToShow->minFontSize, 1);
    }
    EXPECT_EQ(window->pos(), window->initialRect.topLeft());
    EXPECT_EQ(window->height(), window->initialRect.height());
    EXPECT_EQ(window->messageToShow->stringValue(), c.message.isNull() ? QString() : c.message);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, NoticeWidth,
    ::testing::Values(WidthCase{"Empty", QString(), false}, WidthCase{"Short", QStringLiteral("Saved"), false},
                      WidthCase{"WiderThanWindow",
                                QStringLiteral("4 digit port is required to run the server"), true}),
    [](const ::testing::TestParamInfo<WidthCase> &info) { return std::string(info.param.name); });

TEST_F(NoticeWindow, ALongNoticeThenAShortOneStartsAgainFromTheLaidOutFrame)
{
    window->showWindowWithImage(QIcon(), QStringLiteral("Unable to start the server. Please try using different port number."), 5.0);
    ASSERT_GT(window->width(), 250);
    window->showWindowWithImage(QIcon(), QStringLiteral("OK"), 5.0);
    EXPECT_EQ(window->width(), 250);
}

TEST_F(NoticeWindow, IconShowsOnlyWhenGiven)
{
    window->showWindowWithImage(ProgressWindow::cautionImage(), QStringLiteral("x"), 5.0);
    EXPECT_TRUE(window->iconToShow->isVisible());
    EXPECT_FALSE(window->iconToShow->pixmap().isNull());
    window->showWindowWithImage(QIcon(), QStringLiteral("x"), 5.0);
    EXPECT_FALSE(window->iconToShow->isVisible());
}

TEST_F(NoticeWindow, ClosesItselfAfterTheDelayAndFadesIn)
{
    window->showWindowWithImage(ProgressWindow::informationImage(), QStringLiteral("Server started on port 5201"), 0.8);
    ASSERT_TRUE(window->isVisible());
    EXPECT_FALSE(window->closeButton->isVisible());
    EXPECT_LT(window->windowOpacity(), 1.0);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return window->windowOpacity() >= 1.0; }, 2s));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 3s));
}

TEST_F(NoticeWindow, MinusOneWaitsForAClickAnywhere)
{
    window->showWindowWithImage(QIcon(), QStringLiteral("stays"), ProgressWindow::kNoAutoClose);
    EXPECT_TRUE(window->closeButton->isVisible());
    EXPECT_FALSE(window->hasPendingAutoClose());

    // A press on the message lands on the panel behind it and closes it.
    const QPoint inWindow = window->messageToShow->mapTo(window, window->messageToShow->rect().center());
    QWidget *target = window->childAt(inWindow);
    ASSERT_NE(target, nullptr);
    ASSERT_NE(target, window->messageToShow);
    QTest::mouseClick(target, Qt::LeftButton, {}, target->mapFrom(window, inWindow));
    EXPECT_FALSE(window->isVisible());

    window->showWindowWithImage(QIcon(), QStringLiteral("stays"), ProgressWindow::kNoAutoClose);
    QTest::mouseClick(window->closeButton, Qt::LeftButton);
    EXPECT_FALSE(window->isVisible());
}

TEST_F(NoticeWindow, AClickCancelsThePendingAutoClose)
{
    window->showWindowWithImage(QIcon(), QStringLiteral("first"), 0.3);
    ASSERT_TRUE(window->hasPendingAutoClose());
    QTest::mouseClick(window->findChild<QWidget *>(QStringLiteral("contentView")), Qt::LeftButton);
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(window->hasPendingAutoClose());

    // Had the first auto-close survived, it would close this one early.
    window->showWindowWithImage(QIcon(), QStringLiteral("second"), ProgressWindow::kNoAutoClose);
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 700ms));
}

TEST_F(NoticeWindow, AnEarlierAutoCloseStillClosesANewerNotice)
{
    window->showWindowWithImage(QIcon(), QStringLiteral("first"), 0.2);
    window->showWindowWithImage(QIcon(), QStringLiteral("second"), ProgressWindow::kNoAutoClose);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !window->isVisible(); }, 3s));
}

} // namespace
