// The hardware-port parser and the merge of the interface inventory: the
// input holds the hardware-port listing, the configuration listing and the
// network profile, separated by FuzzSupport::kSeparator (missing pieces are
// empty). The merged records are then named and ordered as the inventory
// hands them out.
#include "FuzzSupport.h"
#include "network/GetPIFInterfaceinfo.h"

#include <algorithm>
#include <climits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    QList<QByteArray> texts = FuzzSupport::pieces(data, size);
    while (texts.size() < 3)
        texts.append(QByteArray());
    const InterfaceMap configuration = GetPIFInterfaceinfo::parseIfconfigOutput(QString::fromUtf8(texts[1]));
    const ProfileMap profile = GetPIFInterfaceinfo::parseSystemProfilerOutput(QString::fromUtf8(texts[2]));
    const InterfaceMap merged =
        GetPIFInterfaceinfo::parseNetworksetupOutput(QString::fromUtf8(texts[0]), configuration, profile);
    // Exactly the configuration's interfaces, under their own names.
    FUZZ_CHECK(merged.keys() == configuration.keys(), QString::number(merged.size()));
    for (auto it = merged.cbegin(); it != merged.cend(); ++it)
        FUZZ_CHECK(it.value() != nullptr && it.value()->BSDName == it.key(), it.key());

    const PIFCInterfaceInfoList ordered = GetPIFInterfaceinfo::orderedByServiceOrder(merged);
    FUZZ_CHECK(ordered.size() <= merged.size(), QString());
    // Primary first: the list ascends by service order (compared as the
    // 32-bit values they were) and no two records share one.
    const auto asInt32 = [](qint64 order) { return std::clamp<qint64>(order, INT_MIN, INT_MAX); };
    for (qsizetype i = 0; i < ordered.size(); ++i) {
        FUZZ_CHECK(!ordered[i]->displayName.isNull(), ordered[i]->toString());
        FUZZ_CHECK(ordered[i]->displayName != QLatin1String("Wi-Fi"), ordered[i]->toString());
        if (i > 0)
            FUZZ_CHECK(asInt32(ordered[i - 1]->serviceOrder) <= asInt32(ordered[i]->serviceOrder),
                       ordered[i - 1]->toString() + QStringLiteral(" before ") + ordered[i]->toString());
    }
    return 0;
}
