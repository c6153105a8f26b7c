// Peer service names, which come from anyone on the local network, through
// the discovery list: each piece of the input is a name a browser reports
// (a piece starting with "-" withdraws the name after it), the table shows
// them, and the last row is picked, which stores its port and address.
#include "FuzzSupport.h"
#include "discovery/ServerDiscoveryList.h"
#include "discovery/ServiceName.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>
#include <QEvent>

namespace {

NetServicePtr service(const QString &name)
{
    auto peer = std::make_shared<NetService>();
    peer->name = name;
    peer->type = QStringLiteral("_TidewaveServer._tcp");
    peer->domain = QStringLiteral("local");
    return peer;
}

void checkShortening(const QString &name)
{
    const QString fitted = ServiceName::fitToLimit(name);
    if (fitted == name)
        return;
    // Always within the limit; the port and address fields stay whenever
    // they fit on their own.
    FUZZ_CHECK(fitted.toUtf8().size() <= ServiceName::MaxInstanceNameBytes, name + QStringLiteral(" -> ") + fitted);
    const QString portAndAddress = name.section(QLatin1Char(','), 1, 2, QString::SectionIncludeLeadingSep);
    if (name.contains(QLatin1Char(',')) && portAndAddress.toUtf8().size() + 1 < ServiceName::MaxInstanceNameBytes / 2)
        FUZZ_CHECK(fitted.section(QLatin1Char(','), 1, 2, QString::SectionIncludeLeadingSep) == portAndAddress,
                   name + QStringLiteral(" -> ") + fitted);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    ServerDiscoveryList list;
    const QList<QByteArray> names = FuzzSupport::pieces(data, size);
    for (qsizetype i = 0; i < names.size(); ++i) {
        const bool moreComing = i + 1 < names.size();
        if (names[i].startsWith('-'))
            list.serviceRemoved(service(QString::fromUtf8(names[i].mid(1))), moreComing);
        else
            list.serviceAdded(service(QString::fromUtf8(names[i])), moreComing);
    }
    // The table loads on a queued call; no event loop turns here.
    QCoreApplication::sendPostedEvents(&list, QEvent::MetaCall);
    FUZZ_CHECK(list.rowCount() == list.services().size(), QString::number(list.rowCount()));

    for (int row = 0; row < list.rowCount(); ++row) {
        const QString name = list.services().at(row)->name;
        checkShortening(name);
        for (int column = 0; column < list.columnCount(); ++column) {
            const QString shown = list.data(list.index(row, column)).toString();
            FUZZ_CHECK(shown == list.cellValue(row, ServerDiscoveryList::columnIdentifier(column)), name);
        }
        if (const auto target = ServiceName::target(name))
            FUZZ_CHECK(list.data(list.index(row, ServerDiscoveryList::ServicePortColumn)).toString() == target->port,
                       name);
    }

    if (list.rowCount() > 0) {
        const int row = list.rowCount() - 1;
        const QString name = list.services().at(row)->name;
        list.tableViewSelectionDidChange(row);
        if (const auto target = ServiceName::target(name)) {
            SettingsStore &store = SettingsStore::standard();
            FUZZ_CHECK(store.stringForKey(QStringLiteral("clientToServerPort")) == target->port, name);
            FUZZ_CHECK(store.stringForKey(QStringLiteral("clientToServerIpAddress")) == target->address, name);
        }
    }
    // What the event loop would have delivered (the settings' save requests,
    // one per stored selection): kept, they pile up and every later delivery
    // walks the whole pile.
    QCoreApplication::sendPostedEvents();
    return 0;
}
