// The network-profile (property-list) parser of the interface inventory on
// arbitrary text.
#include "FuzzSupport.h"
#include "network/GetPIFInterfaceinfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const ProfileMap map = GetPIFInterfaceinfo::parseSystemProfilerOutput(QString::fromUtf8(bytes));
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        (void)it.value().size();
    return 0;
}
