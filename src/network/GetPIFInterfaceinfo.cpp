#include "network/GetPIFInterfaceinfo.h"

#include "network/LinuxInventoryProvider.h"
#include "shell/Logger.h"
#include "shell/PropertyList.h"

#include <QVariantList>

#include <algorithm>
#include <climits>
#include <mutex>
#include <optional>

namespace {

std::mutex providerMutex;
std::shared_ptr<NetworkInventoryProvider> currentProvider;

// An empty text that is not "none": parsers start from "" like the records do.
const QString kEmpty = QStringLiteral("");

QString providerText(const ProviderOutput &result)
{
    if (!result.error.isEmpty())
        TW_LOG(QStringLiteral("error is %1").arg(result.error));
    return result.output;
}

// Everything after the first blank of the line; none when there is no blank.
std::optional<QString> afterFirstBlank(const QString &line)
{
    const qsizetype blank = line.indexOf(QLatin1Char(' '));
    if (blank < 0)
        return std::nullopt;
    return line.mid(blank + 1);
}

// The text starting two characters after the first ":"; none when that
// position lies beyond the end of the line.
std::optional<QString> afterFirstColon(const QString &line)
{
    const qsizetype colon = line.indexOf(QLatin1Char(':'));
    if (colon < 0 || colon + 2 > line.size())
        return std::nullopt;
    return line.mid(colon + 2);
}

QString stringValue(const QVariant &value)
{
    return value.isValid() ? value.toString() : QString();
}

// A number's integer value, or the leading integer of a text (0 when none).
qint64 integerValue(const QVariant &value)
{
    if (value.typeId() != QMetaType::QString)
        return value.toLongLong();
    const QString text = value.toString().trimmed();
    qsizetype end = 0;
    if (end < text.size() && (text[end] == QLatin1Char('-') || text[end] == QLatin1Char('+')))
        ++end;
    while (end < text.size() && text[end].isDigit())
        ++end;
    return text.left(end).toLongLong();
}

void storeInterface(InterfaceMap &map, const QString &name, const QString &mac, const QString &ip,
                    const QString &status)
{
    auto record = std::make_shared<PIFCInterfaceInfo>();
    record->MacAdress = mac;
    record->IPAdress = ip;
    record->BSDName = name;
    record->status = status;
    record->type = kEmpty;
    map.insert(name, record);
}

} // namespace

std::shared_ptr<NetworkInventoryProvider> GetPIFInterfaceinfo::setProvider(std::shared_ptr<NetworkInventoryProvider> provider)
{
    std::lock_guard lock(providerMutex);
    std::shared_ptr<NetworkInventoryProvider> previous = currentProvider;
    currentProvider = std::move(provider);
    return previous;
}

std::shared_ptr<NetworkInventoryProvider> GetPIFInterfaceinfo::provider()
{
    std::lock_guard lock(providerMutex);
    if (!currentProvider)
        currentProvider = std::make_shared<LinuxInventoryProvider>();
    return currentProvider;
}

InterfaceMap GetPIFInterfaceinfo::parseIfconfigOutput(const QString &output)
{
    InterfaceMap interfaces;
    QString name;
    QString status = kEmpty;
    QString mac = kEmpty;
    QString ip = kEmpty;
    const auto nameOf = [](const QString &line) { return line.section(QLatin1Char(':'), 0, 0); };

    for (const QString &line : output.split(QLatin1Char('\n'))) {
        if (line.contains(QLatin1String("flags="))) {
            if (name.isNull()) {
                name = nameOf(line);
                continue;
            }
            if (!ip.isEmpty() && !ip.startsWith(QLatin1String("127")))
                storeInterface(interfaces, name, mac, ip, status);
            name = nameOf(line);
            status = mac = ip = kEmpty;
            continue;
        }
        const bool isEther = line.contains(QLatin1String("ether"));
        const bool isStatus = !isEther && line.contains(QLatin1String("status:"));
        const bool isInet = !isEther && !isStatus && line.contains(QLatin1String("inet "));
        if (!isEther && !isStatus && !isInet)
            continue;
        const std::optional<QString> rest = afterFirstBlank(line);
        if (!rest) {
            TW_LOG(QStringLiteral("Unable to load adapter list: no blank in the line \"%1\"").arg(line));
            continue;
        }
        if (isEther) {
            mac = *rest;
        } else if (isStatus) {
            status = *rest;
        } else {
            const qsizetype blank = rest->indexOf(QLatin1Char(' '));
            ip = blank < 0 ? *rest : rest->left(blank);
        }
    }
    // The last interface is stored without the loopback test.
    if (!name.isNull() && !ip.isEmpty())
        storeInterface(interfaces, name, mac, ip, status);
    return interfaces;
}

ProfileMap GetPIFInterfaceinfo::parseSystemProfilerOutput(const QString &output)
{
    ProfileMap profile;
    const std::optional<QVariant> root = PropertyList::fromXml(output.toUtf8());
    if (!root) {
        TW_LOG(QStringLiteral("Error: %1").arg(QStringLiteral("the network profile is not a valid property list")));
        return profile;
    }
    const QVariantList rootList = root->toList();
    if (rootList.isEmpty())
        return profile;
    const QVariantList items = rootList.first().toMap().value(QStringLiteral("_items")).toList();
    for (const QVariant &entry : items) {
        const QVariantMap item = entry.toMap();
        const QVariant interface = item.value(QStringLiteral("interface"));
        if (interface.isValid())
            profile.insert(interface.toString(), item);
    }
    return profile;
}

InterfaceMap GetPIFInterfaceinfo::parseNetworksetupOutput(const QString &output, const InterfaceMap &ifconfigInterfaces,
                                                          const ProfileMap &systemProfilerInterfaces)
{
    InterfaceMap merged;
    QString port;
    QString device = kEmpty;
    QString address = kEmpty;
    const auto completeBlock = [&](bool fillMac) {
        const PIFCInterfaceInfoPtr record = ifconfigInterfaces.value(device);
        if (!record)
            return;
        record->displayName = port;
        if (fillMac && record->MacAdress == kEmpty)
            record->MacAdress = address;
        merged.insert(device, record);
    };

    for (const QString &line : output.split(QLatin1Char('\n'))) {
        const bool isPort = line.contains(QLatin1String("Hardware Port:"));
        const bool isDevice = !isPort && line.contains(QLatin1String("Device:"));
        const bool isAddress = !isPort && !isDevice && line.contains(QLatin1String("Ethernet Address:"));
        if (!isPort && !isDevice && !isAddress)
            continue;
        const std::optional<QString> value = afterFirstColon(line);
        if (!value) {
            TW_LOG(QStringLiteral("Networksetup Command failed: no value after the colon in \"%1\"").arg(line));
            continue;
        }
        if (isPort) {
            if (!port.isNull()) {
                completeBlock(true);
                device = kEmpty; // the address deliberately carries into the next block
            }
            port = *value;
        } else if (isDevice) {
            device = *value;
        } else {
            address = *value;
        }
    }
    completeBlock(false);

    for (auto it = ifconfigInterfaces.cbegin(); it != ifconfigInterfaces.cend(); ++it) {
        const QVariantMap profile = systemProfilerInterfaces.value(it.key());
        const PIFCInterfaceInfoPtr existing = merged.value(it.key());
        if (existing) {
            existing->serviceOrder = integerValue(profile.value(QStringLiteral("spnetwork_service_order")));
            existing->type = stringValue(profile.value(QStringLiteral("type")));
            continue;
        }
        const PIFCInterfaceInfoPtr &record = it.value();
        record->type = stringValue(profile.value(QStringLiteral("type")));
        record->displayName = stringValue(profile.value(QStringLiteral("_name")));
        record->serviceOrder = integerValue(profile.value(QStringLiteral("spnetwork_service_order")));
        record->status = QStringLiteral("active");
        merged.insert(it.key(), record);
    }
    return merged;
}

PIFCInterfaceInfoList GetPIFInterfaceinfo::orderedByServiceOrder(const InterfaceMap &merged)
{
    QMap<QString, PIFCInterfaceInfoPtr> byOrder;
    for (const PIFCInterfaceInfoPtr &record : merged) {
        if (record->displayName.isNull())
            record->displayName = QStringLiteral("VPN");
        if (record->serviceOrder == 0 && record->displayName == QLatin1String("VPN"))
            record->serviceOrder = 500;
        if (record->displayName == QLatin1String("Wi-Fi"))
            record->displayName = QStringLiteral("WiFi");
        // Equal orders share one key, so the later record replaces the earlier.
        byOrder.insert(QString::number(record->serviceOrder), record);
    }
    QList<PIFCInterfaceInfoPtr> ordered = byOrder.values();
    // Orders compare as 32-bit integers, as the keys' integer values did.
    const auto asInt32 = [](qint64 order) { return std::clamp<qint64>(order, INT_MIN, INT_MAX); };
    std::stable_sort(ordered.begin(), ordered.end(), [&](const PIFCInterfaceInfoPtr &a, const PIFCInterfaceInfoPtr &b) {
        return asInt32(a->serviceOrder) < asInt32(b->serviceOrder);
    });
    return ordered;
}

InterfaceMap GetPIFInterfaceinfo::executeAndParseIfconfigCommand(NetworkInventoryProvider &provider)
{
    return parseIfconfigOutput(providerText(provider.configurationListing()));
}

ProfileMap GetPIFInterfaceinfo::executeAndParseSystemProfilerCommand(NetworkInventoryProvider &provider)
{
    return parseSystemProfilerOutput(providerText(provider.networkProfile()));
}

InterfaceMap GetPIFInterfaceinfo::executeAndParseNetworksetupCommand(NetworkInventoryProvider &provider,
                                                                     const InterfaceMap &ifconfigInterfaces,
                                                                     const ProfileMap &systemProfilerInterfaces)
{
    return parseNetworksetupOutput(providerText(provider.hardwarePortListing()), ifconfigInterfaces,
                                   systemProfilerInterfaces);
}

InterfaceMap GetPIFInterfaceinfo::executeAndParseIfconfigCommand()
{
    return executeAndParseIfconfigCommand(*provider());
}

ProfileMap GetPIFInterfaceinfo::executeAndParseSystemProfilerCommand()
{
    return executeAndParseSystemProfilerCommand(*provider());
}

InterfaceMap GetPIFInterfaceinfo::executeAndParseNetworksetupCommand(const InterfaceMap &ifconfigInterfaces,
                                                                     const ProfileMap &systemProfilerInterfaces)
{
    return executeAndParseNetworksetupCommand(*provider(), ifconfigInterfaces, systemProfilerInterfaces);
}

PIFCInterfaceInfoList GetPIFInterfaceinfo::getAllNetworksDetails(NetworkInventoryProvider &provider)
{
    const InterfaceMap configuration = executeAndParseIfconfigCommand(provider);
    const ProfileMap profile = executeAndParseSystemProfilerCommand(provider);
    return orderedByServiceOrder(executeAndParseNetworksetupCommand(provider, configuration, profile));
}

PIFCInterfaceInfoList GetPIFInterfaceinfo::getAllNetworksDetails()
{
    return getAllNetworksDetails(*provider());
}

QStringList GetPIFInterfaceinfo::getListOfNetworksDetails(NetworkInventoryProvider &provider)
{
    const InterfaceMap configuration = executeAndParseIfconfigCommand(provider);
    const ProfileMap profile = executeAndParseSystemProfilerCommand(provider);
    QStringList addresses;
    for (const PIFCInterfaceInfoPtr &record : executeAndParseNetworksetupCommand(provider, configuration, profile))
        addresses.append(record->IPAdress);
    return addresses;
}

QStringList GetPIFInterfaceinfo::getListOfNetworksDetails()
{
    return getListOfNetworksDetails(*provider());
}
