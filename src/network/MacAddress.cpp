#include "network/MacAddress.h"

#include <QByteArray>
#include <QRegularExpression>
#include <QStringList>

#include <cstdio>

#include <arpa/inet.h>
#include <sys/utsname.h>

QString MacAddress::convertToValidMacAddress(const QString &mac)
{
    const QStringList parts = mac.toUpper().split(QLatin1Char(':'));
    QString result;
    for (qsizetype i = 0; i < parts.size(); ++i) {
        if (i > 0)
            result += QLatin1Char('-');
        if (parts[i].size() < 2)
            result += QLatin1Char('0');
        result += parts[i];
    }
    return result;
}

bool MacAddress::isIp(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    // A NUL would end the C string early and hide whatever follows it.
    if (bytes.isEmpty() || bytes.contains('\0'))
        return false;
    int part[4] = {0, 0, 0, 0};
    int consumed = -1;
    const int matched = std::sscanf(bytes.constData(), "%d.%d.%d.%d%n", &part[0], &part[1], &part[2],
                                    &part[3], &consumed);
    if (matched != 4 || consumed != bytes.size())
        return false;
    for (int value : part) {
        if (static_cast<unsigned>(value) > 255u)
            return false;
    }
    in_addr address{};
    return ::inet_aton(bytes.constData(), &address) != 0;
}

float MacAddress::versionFromRelease(const QString &release)
{
    static const QRegularExpression pattern(QStringLiteral("^(\\d+)(?:\\.(\\d+))?"));
    const QRegularExpressionMatch match = pattern.match(release);
    if (!match.hasMatch())
        return 0.0f;
    const int major = match.captured(1).toInt();
    const int minor = match.captured(2).toInt();
    return QStringLiteral("%1.%2").arg(major).arg(minor).toFloat();
}

float MacAddress::GetOSVersion()
{
    utsname name{};
    if (::uname(&name) != 0)
        return 0.0f;
    return versionFromRelease(QString::fromUtf8(name.release));
}
