#pragma once

#include <QObject>
#include <QString>

class QSocketNotifier;
class QTimer;

// Follows which interface the kernel would reach the internet through (the
// primary one): rtnetlink wakes it on link, address and route changes, and
// after a short settling time it asks the kernel again. Posts
// "PrimaryInterfaceDidChangeNotification" when the answer (interface and
// source address) differs from the last one. Lives on the main thread.
class PrimaryRouteWatcher : public QObject
{
    Q_OBJECT

public:
    static inline const QString ChangedNotification = QStringLiteral("PrimaryInterfaceDidChangeNotification");

    explicit PrimaryRouteWatcher(QObject *parent = nullptr);
    ~PrimaryRouteWatcher() override;

    // Subscribes to rtnetlink and takes the present answer as the first;
    // false when the socket cannot be had.
    bool start();

    // The present answer: "<interface index> <source address>", "" when the
    // kernel has no route to the internet.
    static QString currentPrimary();

private:
    void drain();
    void settle();

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QTimer *m_settleTimer = nullptr; // one look-up per burst of changes
    QString m_primary;
};
