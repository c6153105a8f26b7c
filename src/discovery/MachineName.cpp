#include "discovery/MachineName.h"

#include <QFile>
#include <QList>
#include <QSysInfo>

namespace {

// One value of an environment file: unquoted, "double" or 'single' quoted
// runs, concatenated; a backslash escapes the next character outside single
// quotes.
QString unquote(const QByteArray &raw)
{
    QByteArray out;
    char quote = 0;
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const char c = raw.at(i);
        if (quote == '\'') {
            if (c == '\'')
                quote = 0;
            else
                out += c;
        } else if (c == '\\' && i + 1 < raw.size()) {
            out += raw.at(++i);
        } else if (quote == '"') {
            if (c == '"')
                quote = 0;
            else
                out += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else {
            out += c;
        }
    }
    return QString::fromUtf8(out);
}

} // namespace

QString MachineName::current()
{
    return fromFile(QStringLiteral("/etc/machine-info"), QSysInfo::machineHostName());
}

QString MachineName::fromFile(const QString &machineInfoPath, const QString &hostName)
{
    QFile file(machineInfoPath);
    if (file.open(QIODevice::ReadOnly)) {
        const QString pretty = prettyHostName(file.read(64 * 1024));
        if (!pretty.isNull())
            return pretty;
    }
    return hostName;
}

QString MachineName::prettyHostName(const QByteArray &machineInfo)
{
    QString found;
    for (const QByteArray &line : machineInfo.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (!trimmed.startsWith("PRETTY_HOSTNAME="))
            continue;
        // The last assignment wins, as when the file is sourced.
        found = unquote(trimmed.mid(int(sizeof("PRETTY_HOSTNAME=")) - 1));
    }
    if (found.trimmed().isEmpty())
        return QString();
    return found;
}
