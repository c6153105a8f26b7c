#pragma once

#include <QString>

class QWidget;

// Shows the client workspace's modal alerts. The tab and its list go through
// this interface so that tests can answer alerts without a blocking dialog.
class AlertPresenter
{
public:
    virtual ~AlertPresenter() = default;

    // An alert with a title, no further text and the default button only.
    virtual void showAlert(QWidget *parent, const QString &title) = 0;

    // An alert with a title, a default and an other button; answers whether
    // the default button was chosen.
    virtual bool confirm(QWidget *parent, const QString &title, const QString &defaultButton,
                         const QString &otherButton) = 0;
};

// The real alerts: application-modal QMessageBox dialogs.
class MessageBoxAlertPresenter : public AlertPresenter
{
public:
    void showAlert(QWidget *parent, const QString &title) override;
    bool confirm(QWidget *parent, const QString &title, const QString &defaultButton,
                 const QString &otherButton) override;
};
