#include "ui/ProgressWindow.h"

#include "ui/ProgressWindowContentView.h"
#include "ui/TEAutoTextSizeTextField.h"
#include "ui_ProgressWindowController.h"

#include <QApplication>
#include <QGuiApplication>
#include <QLabel>
#include <QPropertyAnimation>
#include <QScreen>
#include <QStyle>
#include <QTimer>
#include <QToolButton>

#include <cmath>

ProgressWindow::ProgressWindow(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , m_ui(std::make_unique<Ui::ProgressWindowController>())
{
    m_ui->setupUi(this);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setAutoFillBackground(false);

    iconToShow = m_ui->iconToShow;
    messageToShow = m_ui->messageToShow;
    closeButton = m_ui->closeButton;
    // Drawn in white on the dark panel whatever the desktop theme.
    closeButton->setText(QStringLiteral("\u2715"));
    closeButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    closeButton->setStyleSheet(QStringLiteral("QToolButton { color: white; border: none; background: transparent; }"));
    // The icon stays centred whether or not the close button shows.
    QSizePolicy keepSpace = closeButton->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    closeButton->setSizePolicy(keepSpace);
    connect(closeButton, &QToolButton::clicked, this, &ProgressWindow::closeMe);
    connect(m_ui->contentView, &ProgressWindowContentView::pressed, this,
            &ProgressWindow::closeWindowOnMouseDown);

    messageToShow->minFontSize = kMeasuringFontSize;

    // Laid out centred in the upper part of the primary screen.
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        move(area.center().x() - width() / 2, area.top() + area.height() / 4);
    }
    initialRect = geometry();

    m_fadeIn = new QPropertyAnimation(this, "windowOpacity", this);
    m_fadeIn->setDuration(kFadeInMilliseconds);
    m_fadeIn->setStartValue(0.0);
    m_fadeIn->setEndValue(1.0);
}

ProgressWindow::~ProgressWindow() = default;

void ProgressWindow::showWindowWithImage(const QIcon &image, const QString &message, double delay)
{
    if (!image.isNull()) {
        iconToShow->setPixmap(image.pixmap(iconToShow->size(), devicePixelRatio()));
        iconToShow->show();
    } else {
        iconToShow->clear();
        iconToShow->hide();
    }
    const QString text = message.isNull() ? QString() : message;
    messageToShow->setStringValue(text);

    setGeometry(initialRect);
    update();

    const QSizeF textSize = getTextSize(text);
    int newWidth = kDefaultWidth;
    if (textSize.width() >= initialRect.width()) {
        messageToShow->minFontSize = kMeasuringFontSize;
        newWidth = static_cast<int>(std::ceil(textSize.width())) + 20;
    } else {
        messageToShow->minFontSize = -1;
    }
    setGeometry(QRect(initialRect.topLeft(), QSize(newWidth, initialRect.height())));

    showMe();

    if (delay != kNoAutoClose) {
        closeButton->hide();
        auto *timer = new QTimer(this);
        timer->setSingleShot(true);
        connect(timer, &QTimer::timeout, this, [this, timer] {
            m_autoCloses.removeAll(timer);
            timer->deleteLater();
            closeMe();
        });
        m_autoCloses.append(timer);
        timer->start(static_cast<int>(std::llround(std::max(0.0, delay) * 1000.0)));
    } else {
        closeButton->show();
    }
}

void ProgressWindow::showMe()
{
    m_fadeIn->stop();
    setWindowOpacity(0.0);
    show();
    raise();
    activateWindow();
    m_fadeIn->start();
}

void ProgressWindow::closeMe()
{
    // Never a child of the main window here (it is a top-level tool window),
    // so there is nothing to detach; just order it out.
    if (isVisible()) {
        m_fadeIn->stop();
        hide();
    }
}

void ProgressWindow::closeWindowOnMouseDown()
{
    for (const QPointer<QTimer> &timer : std::as_const(m_autoCloses)) {
        if (timer) {
            timer->stop();
            timer->deleteLater();
        }
    }
    m_autoCloses.clear();
    closeMe();
}

QSizeF ProgressWindow::getTextSize(const QString &text)
{
    return TEAutoTextSizeTextField::textSize(text, kMeasuringFontSize);
}

QIcon ProgressWindow::informationImage()
{
    return QApplication::style()->standardIcon(QStyle::SP_MessageBoxInformation);
}

QIcon ProgressWindow::cautionImage()
{
    return QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning);
}

bool ProgressWindow::hasPendingAutoClose() const
{
    for (const QPointer<QTimer> &timer : m_autoCloses) {
        if (timer && timer->isActive())
            return true;
    }
    return false;
}
