// Prints what the inventory sees in the namespace it runs in: the configuration listing, "--", the records.
#include "network/GetPIFInterfaceinfo.h"
#include "network/LinuxInventoryProvider.h"

#include <QTextStream>

int main()
{
    QTextStream out(stdout);
    out << LinuxInventoryProvider().configurationListing().output << "--\n";
    for (const PIFCInterfaceInfoPtr &record : GetPIFInterfaceinfo::getAllNetworksDetails())
        out << record->toString() << '\n';
}
