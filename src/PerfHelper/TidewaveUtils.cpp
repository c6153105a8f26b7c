#include "PerfHelper/TidewaveUtils.h"

#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

QString TidewaveUtils::getAppSupportDirPath()
{
    static const QString path = [] {
        QString base = qEnvironmentVariable("XDG_DATA_HOME");
        if (base.isEmpty() || !QDir::isAbsolutePath(base))
            base = QDir::homePath() + QStringLiteral("/.local/share");
        return QDir::cleanPath(base + QStringLiteral("/Tidewave"));
    }();
    return path;
}

QString TidewaveUtils::getiPerfExecutablePath()
{
    return getAppSupportDirPath() + QStringLiteral("/mac-native-iperf");
}

QString TidewaveUtils::getCurrentDate()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("dd/MM/yyyy HH:mm:ss"));
}

QString TidewaveUtils::getIPAddress()
{
    QString address = QStringLiteral("error");
    struct ifaddrs *list = nullptr;
    if (::getifaddrs(&list) == 0) {
        for (struct ifaddrs *entry = list; entry; entry = entry->ifa_next) {
            if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET)
                continue;
            const auto *in = reinterpret_cast<const struct sockaddr_in *>(entry->ifa_addr);
            char text[INET_ADDRSTRLEN] = {};
            if (::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text))
                address = QString::fromLatin1(text);
        }
        ::freeifaddrs(list);
    }
    TW_LOG(QStringLiteral("address:%1").arg(address));
    return address;
}

void TidewaveUtils::setUserSetting(const QVariant &value, const QString &key)
{
    SettingsStore &store = SettingsStore::standard();
    store.setObject(value, key);
    store.synchronize();
}

QString TidewaveUtils::resourcePath(const QString &name)
{
    QStringList folders;
    if (QCoreApplication::instance()) {
        const QString appDir = QCoreApplication::applicationDirPath();
        folders << appDir << appDir + QStringLiteral("/../libexec/tidewave")
                << appDir + QStringLiteral("/../share/tidewave");
    }
    folders << QStringLiteral(TIDEWAVE_LIBEXEC_DIR) << QStringLiteral(TIDEWAVE_DATA_DIR);
    for (const QString &folder : folders) {
        const QFileInfo candidate(folder + QLatin1Char('/') + name);
        if (candidate.isFile())
            return QDir::cleanPath(candidate.absoluteFilePath());
    }
    return {};
}
