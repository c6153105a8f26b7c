#pragma once

#include <QString>
#include <QVariant>

// Folder and tool paths, the current date text, the local IPv4 address and
// the write-and-flush of one user setting.
class TidewaveUtils
{
public:
    // $XDG_DATA_HOME/Tidewave (default ~/.local/share/Tidewave); computed on
    // first use and kept for the life of the process. Does not create it.
    static QString getAppSupportDirPath();
    // The placed measurement tool: <app support>/mac-native-iperf.
    static QString getiPerfExecutablePath();
    // Now, local time, "dd/MM/yyyy HH:mm:ss".
    static QString getCurrentDate();
    // The last IPv4 address of the system's interface list, "error" when none.
    static QString getIPAddress();
    // Stores the value in the process-wide settings store and flushes it.
    static void setUserSetting(const QVariant &value, const QString &key);

    // Places a fresh copy of the tool resource "mac-native-iperf" at the
    // tool path (creating the folder, removing whatever was there); failures
    // are logged only. Called once at start-up.
    static void copyiPerfExecutableToAppSupportDir();
    // The same with explicit paths; a null resource path means the resource
    // was not found.
    static void copyiPerfExecutableToAppSupportDir(const QString &resourcePath, const QString &toolPath);

    // A file shipped with the application (the tool resource, the defaults
    // resource): looked up beside the executable (the build tree), then in the
    // installed libexec and data folders. A null QString when absent.
    static QString resourcePath(const QString &name);
};
