// Prints the inventory of the network namespace it runs in, one record per
// line as "BSDName|IPAdress|displayName|serviceOrder|status|type|MacAdress",
// then "addresses:" and the unsorted address list.
#include "network/GetPIFInterfaceinfo.h"

#include <QTextStream>

int main()
{
    QTextStream out(stdout);
    for (const PIFCInterfaceInfoPtr &record : GetPIFInterfaceinfo::getAllNetworksDetails()) {
        out << QStringList{record->BSDName, record->IPAdress, record->displayName,
                           QString::number(record->serviceOrder), record->status,
                           record->type.isNull() ? QStringLiteral("(null)") : record->type, record->MacAdress}
                   .join(u'|')
            << '\n';
    }
    QStringList addresses = GetPIFInterfaceinfo::getListOfNetworksDetails();
    addresses.sort();
    out << "addresses:" << addresses.join(u',') << '\n';
    return 0;
}
