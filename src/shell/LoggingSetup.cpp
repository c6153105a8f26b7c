#include "shell/LoggingSetup.h"

#include "shell/DDTTYLogger.h"

#include <mutex>

namespace {
std::mutex g_installedMutex;
std::shared_ptr<DDFileLogger> g_installedFileLogger;
} // namespace

std::shared_ptr<DDFileLogger> LoggingSetup::setupLogging(const QString &logsFolder)
{
    std::lock_guard lock(g_installedMutex);
    Logger &logger = Logger::shared();
    logger.removeSink(DDTTYLogger::sharedInstance());
    if (g_installedFileLogger)
        logger.removeSink(g_installedFileLogger);

    auto manager = std::make_shared<DDLogFileManagerDefault>(logsFolder);
    manager->setMaximumNumberOfLogFiles(kMaximumNumberOfLogFiles);
    g_installedFileLogger = std::make_shared<DDFileLogger>(std::move(manager));

    logger.addSink(DDTTYLogger::sharedInstance());
    logger.addSink(g_installedFileLogger);
    return g_installedFileLogger;
}

QStringList LoggingSetup::startBannerLines(const QString &shortVersion, const QString &buildVersion,
                                           const QString &osVersion)
{
    return {QString(60, QLatin1Char('-')),
            QStringLiteral("Starting Mac Tidewave Version %1.%2").arg(shortVersion, buildVersion),
            QStringLiteral("OS Version %1").arg(osVersion)};
}
