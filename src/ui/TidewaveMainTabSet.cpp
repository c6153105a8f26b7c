#include "ui/TidewaveMainTabSet.h"

#include <QLabel>

namespace {
QWidget *placeholder(const QString &text)
{
    auto *label = new QLabel(text);
    label->setAlignment(Qt::AlignCenter);
    label->setEnabled(false);
    return label;
}
} // namespace

TidewaveMainTabSet::TidewaveMainTabSet(QWidget *parent)
    : QTabWidget(parent)
{
    setDocumentMode(true);
    addTab(placeholder(tr("The client workspace is not available in this build.")), tr("Client"));
    addTab(placeholder(tr("The server workspace is not available in this build.")), tr("Server"));
}

void TidewaveMainTabSet::setClientTab(QWidget *tab)
{
    replaceTab(kClientTabIndex, tab, tr("Client"));
}

void TidewaveMainTabSet::setServerTab(QWidget *tab)
{
    replaceTab(kServerTabIndex, tab, tr("Server"));
}

void TidewaveMainTabSet::replaceTab(int index, QWidget *tab, const QString &title)
{
    if (!tab || widget(index) == tab)
        return;
    const bool wasCurrent = currentIndex() == index;
    QWidget *old = widget(index);
    removeTab(index);
    insertTab(index, tab, title);
    if (wasCurrent)
        setCurrentIndex(index);
    delete old;
}
