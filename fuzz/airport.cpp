// The Wi-Fi status text reader on arbitrary text.
#include "FuzzSupport.h"
#include "network/WiFiLinkInformation.h"

#include <QSet>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    static const QSet<QString> markers = {
        QStringLiteral("MCS:"),        QStringLiteral("agrCtlNoise:"), QStringLiteral("agrCtlRSSI:"),
        QStringLiteral("lastTxRate:"), QStringLiteral("SSID:"),        QStringLiteral("BSSID:"),
        QStringLiteral("link auth:"),  QStringLiteral("channel:")};
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString output = QString::fromUtf8(bytes);
    const QMap<QString, QString> values = WiFiLinkInformation::parseAirPortOutput(output);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        FUZZ_CHECK(markers.contains(it.key()), it.key());
        // Values are trimmed, and no value spans a line.
        FUZZ_CHECK(it.value() == it.value().trimmed(), it.key() + QLatin1Char('=') + it.value());
        FUZZ_CHECK(!it.value().contains(QLatin1Char('\n')), it.key() + QLatin1Char('=') + it.value());
    }
    return 0;
}
