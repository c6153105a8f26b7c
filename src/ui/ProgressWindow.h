#pragma once

#include <QIcon>
#include <QList>
#include <QPointer>
#include <QRect>
#include <QSizeF>
#include <QWidget>

#include <memory>

class QLabel;
class QPropertyAnimation;
class QTimer;
class QToolButton;
class TEAutoTextSizeTextField;

namespace Ui {
class ProgressWindowController;
}

// The floating notice: a frameless, translucent, rounded dark panel above
// every other window, with an optional icon, a one-line white message and a
// close button for notices that do not close by themselves. One instance
// serves the whole application (see ProgressWindowController); a closed
// notice window is kept for the next notice.
class ProgressWindow : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kDefaultWidth = 250;
    static constexpr int kMeasuringFontSize = 20;
    static constexpr int kFadeInMilliseconds = 500;
    // The delay that keeps a notice open until it is clicked.
    static constexpr double kNoAutoClose = -1.0;

    explicit ProgressWindow(QWidget *parent = nullptr);
    ~ProgressWindow() override;

    // Shows the notice: icon (a null icon hides it), message (null shows
    // nothing), and a delay in seconds after which it closes, or -1.
    void showWindowWithImage(const QIcon &image, const QString &message, double delay);
    void showMe();
    void closeMe();
    // Cancels every pending auto-close of this window and closes it now.
    void closeWindowOnMouseDown();
    // Single-line size of the text in the message font at the measuring size.
    static QSizeF getTextSize(const QString &text);

    // Stand-ins for the notice images: the style's information and caution icons.
    static QIcon informationImage();
    static QIcon cautionImage();

    bool hasPendingAutoClose() const;

    QLabel *iconToShow = nullptr;
    TEAutoTextSizeTextField *messageToShow = nullptr;
    QToolButton *closeButton = nullptr;
    // The frame as laid out when loaded; every notice starts from it.
    QRect initialRect;

private:
    std::unique_ptr<Ui::ProgressWindowController> m_ui;
    QPropertyAnimation *m_fadeIn = nullptr;
    // Auto-closes stay scheduled when a newer notice replaces the text, so an
    // earlier one may close a later notice early; only a click cancels them.
    QList<QPointer<QTimer>> m_autoCloses;
};
