#pragma once

#include <QString>

#include <optional>

// The instance name every copy publishes for each of its interfaces, and how
// the discovery list reads one back. Fields are joined by ",":
// machine name, measurement port, IPv4 address with "_" for ".", interface
// display name (" (Primary)" appended on the first of several interfaces).
// A peer's name is untrusted: reading it never fails, whatever it holds.
class ServiceName
{
public:
    // DNS-SD's limit for one label, in UTF-8 bytes.
    static constexpr int MaxInstanceNameBytes = 63;

    static QString build(const QString &machineName, const QString &port, const QString &ipAddress,
                         const QString &displayName, bool primary);

    // The name shortened to MaxInstanceNameBytes, never inside a character:
    // the machine-name field is cut, the port, address and display fields
    // stay whole. Only where they alone are too long is the display field
    // cut as well (keeping a trailing " (Primary)"), and then the end.
    static QString fitToLimit(const QString &name);

    // Column identifiers of the discovery table.
    static QString serviceColumn() { return QStringLiteral("Service"); }
    static QString addressColumn() { return QStringLiteral("ServiceIP"); }
    static QString portColumn() { return QStringLiteral("ServicePort"); }

    // What the discovery table shows for a name in a column ("" for names
    // without "," and for unknown columns).
    static QString cellValue(const QString &name, const QString &columnIdentifier);

    // Port and dotted address a selected row puts into the client settings;
    // none for a name without "," or with fewer than three fields.
    struct Target
    {
        QString port;    // field 1, as published
        QString address; // field 2 with "." for "_"; not validated here
    };
    static std::optional<Target> target(const QString &name);
};
