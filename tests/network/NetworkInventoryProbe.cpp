// Prints what the inventory sees in the namespace it runs in: the configuration listing, "--", the records.
// With --follow: "ready", then the primary interface's name each time the primary changes (8 s at most).
#include "network/GetPIFInterfaceinfo.h"
#include "network/LinuxInventoryProvider.h"
#include "network/PrimaryRouteWatcher.h"
#include "shell/NotificationCenter.h"

#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    if (app.arguments().contains("--follow")) {
        PrimaryRouteWatcher watcher;
        NotificationCenter::defaultCenter().addObserver(&app, PrimaryRouteWatcher::ChangedNotification, [&](const QVariantMap &) {
            out << "primary " << GetPIFInterfaceinfo::getAllNetworksDetails().value(0)->BSDName << Qt::endl;
        });
        out << (watcher.start() ? "ready" : "cannot watch") << Qt::endl;
        QTimer::singleShot(8000, &app, &QCoreApplication::quit);
        return app.exec();
    }
    out << LinuxInventoryProvider().configurationListing().output << "--\n";
    for (const PIFCInterfaceInfoPtr &record : GetPIFInterfaceinfo::getAllNetworksDetails())
        out << record->toString() << '\n';
}
