#pragma once

#include "client/AlertPresenter.h"

#include <QStringList>

// Answers the client workspace's alerts without showing a dialog: records
// every title and answers confirmations with a scripted choice.
class ClientFakeAlerts : public AlertPresenter
{
public:
    void showAlert(QWidget *, const QString &title) override { shown.append(title); }

    bool confirm(QWidget *, const QString &title, const QString &defaultButton, const QString &otherButton) override
    {
        confirmations.append(title);
        buttons.append(defaultButton + QLatin1Char('/') + otherButton);
        return answerYes;
    }

    bool answerYes = true;    // the button the "user" picks in confirmations
    QStringList shown;        // titles of the plain alerts, in order
    QStringList confirmations; // titles of the confirmations, in order
    QStringList buttons;      // "default/other" of each confirmation
};
