// Copied into an unpacked package's bin folder by the package test: prints
// where the application, started from there, finds its shipped files, and
// what the defaults resource found there registers.
#include "PerfHelper/TidewaveUtils.h"
#include "shell/SettingsStore.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QString tool = TidewaveUtils::resourcePath(QStringLiteral("mac-native-iperf"));
    const QString defaults = TidewaveUtils::resourcePath(QStringLiteral("com.norvale.mactidewave-default-values.plist"));
    std::printf("tool=%s\n", qPrintable(tool));
    std::printf("defaults=%s\n", qPrintable(defaults));

    // A store of its own, so the user's settings play no part.
    const QTemporaryDir folder;
    SettingsStore store(folder.filePath(QStringLiteral("probe.ini")));
    const bool registered = !defaults.isNull() && store.registerDefaultsFromFile(defaults);
    std::printf("registered=%s\n", registered ? "yes" : "no");
    std::printf("serverPort=%lld\n", static_cast<long long>(store.integerForKey(QStringLiteral("serverPort"))));
    std::printf("bufferLength=%lld\n", static_cast<long long>(store.integerForKey(QStringLiteral("bufferLength"))));
    return 0;
}
