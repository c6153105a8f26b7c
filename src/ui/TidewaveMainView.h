#pragma once

#include <QVariantMap>
#include <QWidget>

#include <memory>

class QLabel;
class TidewaveMainTabSet;

namespace Ui {
class TidewaveMainView;
}

// The main window's content: the tab set above a one-line message label that
// shows what the workspaces post under "showInfoMessage".
class TidewaveMainView : public QWidget
{
    Q_OBJECT

public:
    explicit TidewaveMainView(QWidget *parent = nullptr);
    ~TidewaveMainView() override;

    // Observer of "showInfoMessage": the payload's "message" ("" clears).
    void showInfoMessage(const QVariantMap &userInfo);
    // Puts the text into the label directly.
    void sohwMessage(const QString &message);

    QLabel *messageLabel = nullptr;
    TidewaveMainTabSet *tabSet() const;

private:
    std::unique_ptr<Ui::TidewaveMainView> m_ui;
};
