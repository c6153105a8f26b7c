#pragma once

#include <QByteArray>
#include <QString>

// The computer's user-visible name: the pretty host name (PRETTY_HOSTNAME of
// /etc/machine-info, which is also what the hostname1 service reports), else
// the host name.
class MachineName
{
public:
    static QString current();

    // The same rule over a given machine-info file and host name.
    static QString fromFile(const QString &machineInfoPath, const QString &hostName);

    // PRETTY_HOSTNAME from the text of a machine-info file (an environment
    // file: quotes and backslash escapes as a shell reads them); a null
    // QString when it is absent or blank.
    static QString prettyHostName(const QByteArray &machineInfo);
};
