#pragma once

#include "network/WiFiLinkState.h"

#include <QString>

// A Wi-Fi interface opened by name. The real one reads nl80211; tests hand
// in a fake. linkState() queries the interface afresh on every call and may
// be called from any thread.
class WiFiInterface
{
public:
    virtual ~WiFiInterface() = default;

    // The kernel name the interface was opened with.
    virtual QString interfaceName() const = 0;
    // The link as it is now; no values for a non-wireless or absent interface.
    virtual WiFiLinkState linkState() = 0;
};
