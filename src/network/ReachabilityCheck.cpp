#include "network/ReachabilityCheck.h"

#include "shell/Logger.h"
#include "shell/NotificationCenter.h"

#include <QCoreApplication>

const QString ReachabilityCheck::kWatchedHost = QStringLiteral("www.google.com");
const QString ReachabilityCheck::kInternetDidBecomeAvailableOnSystemNotification =
    QStringLiteral("InternetDidBecomeAvailableOnSystemNotification");

std::shared_ptr<Reachability> ReachabilityCheck::checkReachability(std::unique_ptr<ReachabilitySource> source)
{
    const std::shared_ptr<Reachability> reachability = source
                                                           ? Reachability::reachabilityWithSource(std::move(source))
                                                           : Reachability::reachabilityWithHostname(kWatchedHost);
    if (!reachability)
        return nullptr;

    reachability->setReachableBlock([](Reachability *) {
        const auto announce = [] {
            TW_LOG(QStringLiteral("Internet is available on system!"));
            NotificationCenter::defaultCenter().post(kInternetDidBecomeAvailableOnSystemNotification);
        };
        if (QCoreApplication *app = QCoreApplication::instance())
            QMetaObject::invokeMethod(app, announce, Qt::QueuedConnection);
        else
            announce();
    });
    reachability->setUnreachableBlock(
        [](Reachability *) { TW_LOG(QStringLiteral("Internet is not available on system!")); });
    if (!reachability->startNotifier())
        return nullptr;
    return reachability;
}
