#include "discovery/ServiceName.h"

#include <QStringList>

namespace {

const QString kPrimarySuffix = QStringLiteral(" (Primary)");

// The longest prefix of the text that fits in the byte budget, cut between
// code points.
QString utf8Prefix(const QString &text, qsizetype budget)
{
    qsizetype used = 0;
    qsizetype end = 0;
    while (end < text.size()) {
        const bool pair = text.at(end).isHighSurrogate() && end + 1 < text.size() && text.at(end + 1).isLowSurrogate();
        const qsizetype units = pair ? 2 : 1;
        const qsizetype bytes = text.mid(end, units).toUtf8().size();
        if (used + bytes > budget)
            break;
        used += bytes;
        end += units;
    }
    return text.left(end);
}

} // namespace

QString ServiceName::build(const QString &machineName, const QString &port, const QString &ipAddress,
                           const QString &displayName, bool primary)
{
    QString address = ipAddress;
    address.replace(QLatin1Char('.'), QLatin1Char('_'));
    QString name = machineName + QLatin1Char(',') + port + QLatin1Char(',');
    if (primary)
        name += QStringLiteral("%1,%2 (Primary)").arg(address, displayName);
    else
        name += QStringLiteral("%1,%2").arg(address, displayName);
    return name;
}

QString ServiceName::fitToLimit(const QString &name)
{
    if (name.toUtf8().size() <= MaxInstanceNameBytes)
        return name;
    // A peer needs the port, address and interface whole; the machine name
    // is only for people, so it gives way first.
    const qsizetype comma = name.indexOf(QLatin1Char(','));
    if (comma < 0)
        return utf8Prefix(name, MaxInstanceNameBytes);
    const QString rest = name.mid(comma);
    const qsizetype budget = MaxInstanceNameBytes - rest.toUtf8().size();
    if (budget >= 0)
        return utf8Prefix(name.left(comma), budget).trimmed() + rest;

    // Even without a machine name the rest is too long: the display field
    // (after the third ",") is cut too, keeping a trailing " (Primary)".
    qsizetype start = 0;
    for (int i = 0; i < 2; ++i) {
        start = rest.indexOf(QLatin1Char(','), start + 1);
        if (start < 0)
            return utf8Prefix(rest, MaxInstanceNameBytes);
    }
    const QString fixed = rest.left(start + 1);
    QString display = rest.mid(start + 1);
    QString suffix;
    if (display.endsWith(kPrimarySuffix)) {
        suffix = kPrimarySuffix;
        display.chop(kPrimarySuffix.size());
    }
    const qsizetype displayBudget = MaxInstanceNameBytes - fixed.toUtf8().size() - suffix.toUtf8().size();
    if (displayBudget < 0)
        return utf8Prefix(rest, MaxInstanceNameBytes);
    return fixed + utf8Prefix(display, displayBudget).trimmed() + suffix;
}

QString ServiceName::cellValue(const QString &name, const QString &columnIdentifier)
{
    if (!name.contains(QLatin1Char(',')))
        return QStringLiteral("");
    const QStringList fields = name.split(QLatin1Char(','));
    if (columnIdentifier == serviceColumn())
        return fields.at(0);
    if (columnIdentifier == portColumn())
        return fields.at(1);
    if (columnIdentifier == addressColumn()) {
        QString text;
        if (fields.size() >= 4)
            text = QStringLiteral("%1: %2").arg(fields.at(3), fields.at(2));
        else if (fields.size() == 3)
            text = fields.at(2);
        else
            text = QStringLiteral("");
        return text.replace(QLatin1Char('_'), QLatin1Char('.'));
    }
    return QStringLiteral("");
}

std::optional<ServiceName::Target> ServiceName::target(const QString &name)
{
    if (!name.contains(QLatin1Char(',')))
        return std::nullopt;
    const QStringList fields = name.split(QLatin1Char(','));
    if (fields.size() < 3)
        return std::nullopt;
    QString address = fields.at(2);
    address.replace(QLatin1Char('_'), QLatin1Char('.'));
    return Target{fields.at(1), address};
}
