#include "client/AlertPresenter.h"

#include <QMessageBox>
#include <QPushButton>

void MessageBoxAlertPresenter::showAlert(QWidget *parent, const QString &title)
{
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Warning);
    // Alerts carry tool output and peer text: never markup.
    box.setTextFormat(Qt::PlainText);
    box.setText(title);
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
}

bool MessageBoxAlertPresenter::confirm(QWidget *parent, const QString &title, const QString &defaultButton,
                                       const QString &otherButton)
{
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Question);
    box.setTextFormat(Qt::PlainText);
    box.setText(title);
    QPushButton *yes = box.addButton(defaultButton, QMessageBox::AcceptRole);
    box.addButton(otherButton, QMessageBox::RejectRole);
    box.setDefaultButton(yes);
    box.exec();
    return box.clickedButton() == yes;
}
