#pragma once

#include "shell/DDFileLogger.h"

#include <QString>
#include <QStringList>

#include <memory>

// The application's logging configuration, done once at start-up.
class LoggingSetup
{
public:
    // Archived log files kept besides the one being written.
    static constexpr int kMaximumNumberOfLogFiles = 7;

    // Installs the terminal logger, then a file logger over the folder
    // (normally TidewaveUtils::getAppSupportDirPath()) keeping 7 archived
    // files. A second call replaces what the first installed. Answers the
    // file logger.
    static std::shared_ptr<DDFileLogger> setupLogging(const QString &logsFolder);

    // The start banner: a line of dashes, "Starting Mac Tidewave Version
    // <short version>.<build>", "OS Version <os version>". Logged by the
    // caller, so the lines carry its source location.
    static QStringList startBannerLines(const QString &shortVersion, const QString &buildVersion,
                                        const QString &osVersion);
};
