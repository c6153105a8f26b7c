#pragma once

#include <QString>

// The Wi-Fi code-to-text mappings of the detail view. Each takes the code as
// a 32-bit integer and an operating-system version, which is accepted and
// ignored (one mapping serves every version). A code without text gives a
// null QString ("none").
namespace WiFiModeText {

QString stringForPHYMode(qint64 phyMode, float osxVersion);
QString stringForSecurityMode(qint64 securityMode, float osxVersion);
QString stringForOpMode(qint64 opMode, float osxVersion);

} // namespace WiFiModeText
