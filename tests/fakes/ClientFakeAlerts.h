#pragma once

#include "client/AlertPresenter.h"

#include <QWidget>

// Answers the client workspace's alerts without a dialog: records each as "title @parent"
// or "title [default/other] @parent" and picks the scripted button.
class ClientFakeAlerts : public AlertPresenter
{
public:
    void showAlert(QWidget *parent, const QString &title) override { seen << title + over(parent); }
    bool confirm(QWidget *parent, const QString &title, const QString &yes, const QString &no) override
    {
        return seen << QStringLiteral("%1 [%2/%3]").arg(title, yes, no) + over(parent), answerYes;
    }
    static QString over(QWidget *parent) { return QStringLiteral(" @") + (parent ? parent->objectName() : QString()); }

    bool answerYes = true; // the button the "user" picks in confirmations
    QStringList seen;      // every alert, in order
};
