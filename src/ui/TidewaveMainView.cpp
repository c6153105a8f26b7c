#include "ui/TidewaveMainView.h"

#include "shell/NotificationCenter.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui_TidewaveMainView.h"

#include <QThread>

TidewaveMainView::TidewaveMainView(QWidget *parent)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::TidewaveMainView>())
{
    m_ui->setupUi(this);
    messageLabel = m_ui->messageLabel;
    // Messages carry the tool's own output: shown as text, never as markup.
    messageLabel->setTextFormat(Qt::PlainText);
    messageLabel->clear();
    NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showInfoMessage"),
                                                    [this](const QVariantMap &userInfo) { showInfoMessage(userInfo); });
}

TidewaveMainView::~TidewaveMainView()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void TidewaveMainView::showInfoMessage(const QVariantMap &userInfo)
{
    sohwMessage(userInfo.value(QStringLiteral("message")).toString());
}

void TidewaveMainView::sohwMessage(const QString &message)
{
    // Observers run on the posting thread; a label only changes on its own.
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, [this, message] { messageLabel->setText(message); }, Qt::QueuedConnection);
        return;
    }
    messageLabel->setText(message);
}

TidewaveMainTabSet *TidewaveMainView::tabSet() const
{
    return m_ui->tabSet;
}
