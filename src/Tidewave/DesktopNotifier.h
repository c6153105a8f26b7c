#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <QWidget>

// Tells the desktop that a test has ended, through the freedesktop.org
// notification service on the session bus, when the person is looking at
// another window. The call never waits: without a bus or a notification
// service nothing is shown and nothing else changes.
class DesktopNotifier : public QObject
{
    Q_OBJECT

public:
    DesktopNotifier(QWidget *window, QDBusConnection bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);

    // `label` names the test; `outcome` is its final rate or why it failed.
    // Both are plain text.
    void testEnded(const QString &label, const QString &outcome);

private:
    QPointer<QWidget> m_window;
    QDBusConnection m_bus;
    bool m_failureLogged = false;
};
