#include "PerfHelper/TidewaveUtils.h"

#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

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

void TidewaveUtils::copyiPerfExecutableToAppSupportDir()
{
    copyiPerfExecutableToAppSupportDir(resourcePath(QStringLiteral("mac-native-iperf")), getiPerfExecutablePath());
}

void TidewaveUtils::copyiPerfExecutableToAppSupportDir(const QString &resourcePath, const QString &toolPath)
{
    namespace fs = std::filesystem;
    const fs::path tool(QFile::encodeName(toolPath).toStdString());
    const fs::path folder = tool.parent_path();
    std::error_code error;
    if (!fs::exists(folder, error)) {
        fs::create_directories(folder, error);
        if (error) {
            TW_LOG(QStringLiteral("Application Support //macTidewave folder not created :%1 ")
                       .arg(QStringLiteral("cannot create \"%1\": %2")
                                .arg(QFile::decodeName(folder.c_str()), QString::fromStdString(error.message()))));
        }
    }
    TW_LOG(QStringLiteral("TDWBaseModel: iPerf Executable Path is %1").arg(toolPath));

    // A stale or foreign file (or folder, or link) never survives a start.
    fs::remove_all(tool, error);

    QString failure;
    if (resourcePath.isEmpty()) {
        failure = QStringLiteral("the tool resource \"mac-native-iperf\" was not found beside the application "
                                 "or in %1")
                      .arg(QStringLiteral(TIDEWAVE_LIBEXEC_DIR));
    } else {
        // copy_file keeps the resource's permission bits, so the copy stays executable.
        fs::copy_file(fs::path(QFile::encodeName(resourcePath).toStdString()), tool, error);
        if (error) {
            failure = QStringLiteral("cannot copy \"%1\" to \"%2\": %3")
                          .arg(resourcePath, toolPath, QString::fromStdString(error.message()));
        }
    }
    if (!failure.isEmpty())
        TW_LOG(QStringLiteral("TDWBaseModel: can't copy iPerf executable file at above path..%1.").arg(failure));
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
