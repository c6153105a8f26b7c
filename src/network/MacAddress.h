#pragma once

#include <QString>

// Pure operations on addresses and on the operating-system version.
class MacAddress
{
public:
    // "3c:2:fb:a:b:c" → "3C-02-FB-0A-0B-0C": upper case, "-" between parts,
    // a leading "0" for parts shorter than two characters ("" → "0").
    static QString convertToValidMacAddress(const QString &mac);

    // Whether the whole text is a dotted IPv4 address of four decimal
    // numbers, each at most 255, that inet_aton accepts. This is the guard
    // for addresses that later reach a shell command line, so nothing may
    // follow the fourth number (no blank, newline or NUL).
    static bool isIp(const QString &text);

    // The kernel release's "major.minor" read back as a float, so 6.10 reads
    // as 6.1 (callers compare versions that way).
    static float GetOSVersion();

    // The same reading of a release text ("6.1.0-18-amd64" → 6.1); 0 when it
    // has no leading number.
    static float versionFromRelease(const QString &release);
};
