#include "client/WiFiModeText.h"

namespace WiFiModeText {

QString stringForPHYMode(qint64 phyMode, float osxVersion)
{
    Q_UNUSED(osxVersion);
    switch (static_cast<qint32>(phyMode)) {
    case 1:
        return QStringLiteral("802.11a");
    case 2:
        return QStringLiteral("802.11b");
    case 3:
        return QStringLiteral("802.11g");
    case 4:
        return QStringLiteral("802.11n");
    case 5:
        return QStringLiteral("802.11ac");
    default:
        return QString();
    }
}

QString stringForSecurityMode(qint64 securityMode, float osxVersion)
{
    Q_UNUSED(osxVersion);
    // Compared as unsigned: negative codes fall through to "Unknown".
    switch (static_cast<quint32>(static_cast<qint32>(securityMode))) {
    case 0:
        return QStringLiteral("Open");
    case 1:
        return QStringLiteral("WEP");
    case 2:
        return QStringLiteral("WPA Personal");
    case 3:
        return QStringLiteral("WPA2 Personal Mixed");
    case 4:
        return QStringLiteral("WPA2 Personal");
    case 5:
        return QStringLiteral("Personal");
    case 6:
        return QStringLiteral("802.1X WEP");
    case 7:
        return QStringLiteral("WPA Enterprise");
    case 9:
        return QStringLiteral("WPA2 Enterprise");
    case 10:
        return QStringLiteral("Enterprise");
    default: // 8, the mixed enterprise mode, has no text of its own
        return QStringLiteral("Unknown");
    }
}

QString stringForOpMode(qint64 opMode, float osxVersion)
{
    Q_UNUSED(osxVersion);
    switch (static_cast<qint32>(opMode)) {
    case 0:
        return QStringLiteral("None");
    case 1:
        return QStringLiteral("Infrastructure");
    case 2:
        return QStringLiteral("IBSS");
    case 3:
        return QStringLiteral("Host Access Point");
    default:
        return QString();
    }
}

} // namespace WiFiModeText
