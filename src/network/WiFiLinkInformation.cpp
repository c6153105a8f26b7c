#include "network/WiFiLinkInformation.h"

#include "shell/Logger.h"

#include <QProcess>
#include <QStringList>

#include <cmath>

namespace {

const QString kAirPortCommand = QStringLiteral(
    "/System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport  /usr/sbin/airport -I");

} // namespace

PerfResult &WiFiLinkInformation::populateWiFiInterfaceInfo(PerfResult &result, WiFiInterface *currentInterface)
{
    if (!currentInterface)
        return result;
    const WiFiLinkState link = currentInterface->linkState();
    result.opModeField = link.interfaceMode;
    result.securityModeField = link.security;
    result.phyModeField = link.activePHYMode;
    result.ssidField = normalizeSSID(link.ssid);
    result.channeField = QString::number(link.channelNumber);
    result.bssidField = normalizeMAC(link.bssid);
    result.txRateField = qint64(std::trunc(link.transmitRate));
    result.rssiField = link.rssiValue;
    result.noiseField = link.noiseMeasurement;
    result.txPowerField = link.transmitPower;
    return result;
}

PerfResultPtr WiFiLinkInformation::populateWiFiInterfaceInfo(const PerfResultPtr &result, WiFiInterface *currentInterface)
{
    if (result)
        populateWiFiInterfaceInfo(*result, currentInterface);
    return result;
}

QString WiFiLinkInformation::normalizeSSID(const QString &ssid)
{
    return ssid.isNull() ? QStringLiteral("") : ssid;
}

QString WiFiLinkInformation::normalizeMAC(const QString &mac)
{
    if (mac.isNull())
        return QStringLiteral("");
    QStringList parts = mac.split(QLatin1Char(':'));
    for (QString &part : parts) {
        if (part.size() == 1)
            part.prepend(QLatin1Char('0'));
    }
    return parts.join(QLatin1Char(':')).toUpper();
}

QMap<QString, QString> WiFiLinkInformation::parseAirPortOutput(const QString &output)
{
    static const QString markers[] = {
        QStringLiteral("MCS:"),   QStringLiteral("agrCtlNoise:"), QStringLiteral("agrCtlRSSI:"),
        QStringLiteral("lastTxRate:"), QStringLiteral("SSID:"),   QStringLiteral("BSSID:"),
        QStringLiteral("link auth:"),  QStringLiteral("channel:"),
    };
    QMap<QString, QString> values;
    const QStringList lines = output.split(QLatin1Char('\n'));
    // Backwards, so the topmost occurrence is the one that stays; the first
    // line is never looked at.
    for (qsizetype i = lines.size() - 1; i >= 1; --i) {
        const QString &line = lines[i];
        if (line.isEmpty())
            continue;
        const QString value = line.mid(line.indexOf(QLatin1Char(':')) + 1).trimmed();
        for (const QString &marker : markers) {
            if (!line.contains(marker))
                continue;
            if (marker == QLatin1String("SSID:") && line.contains(QLatin1String("BSSID:")))
                continue;
            values.insert(marker, value);
        }
    }
    return values;
}

void WiFiLinkInformation::executeAirPortCommand()
{
    QProcess process;
    process.setProgram(QStringLiteral("/bin/sh"));
    process.setArguments({QStringLiteral("-c"), kAirPortCommand});
    process.start();
    process.closeWriteChannel();
    if (!process.waitForFinished(-1) && process.state() != QProcess::NotRunning)
        process.kill();
    const QString output = QString::fromUtf8(process.readAllStandardOutput());
    const QString error = QString::fromUtf8(process.readAllStandardError());
    if (!error.isEmpty())
        TW_LOG(QStringLiteral("error is %1").arg(error));
    const QMap<QString, QString> values = parseAirPortOutput(output);
    Q_UNUSED(values);
}
