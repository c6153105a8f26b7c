// The configuration-listing parser of the interface inventory on arbitrary text.
#include "FuzzSupport.h"
#include "network/GetPIFInterfaceinfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const InterfaceMap map = GetPIFInterfaceinfo::parseIfconfigOutput(QString::fromUtf8(bytes));
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        FUZZ_CHECK(it.value() != nullptr, it.key());
        // The map is keyed by the record's own name; the merge relies on it.
        FUZZ_CHECK(it.value()->BSDName == it.key(), it.key() + QStringLiteral(" vs ") + it.value()->BSDName);
    }
    return 0;
}
