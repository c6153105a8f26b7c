#pragma once

#include "network/NetworkInventoryProvider.h"

#include <QString>

// An inventory provider over fixed texts (and error texts), for tests that
// need a known set of interfaces.
class FakeNetworkInventoryProvider : public NetworkInventoryProvider
{
public:
    ProviderOutput configuration; // answered by configurationListing()
    ProviderOutput hardwarePorts; // answered by hardwarePortListing()
    ProviderOutput profile;       // answered by networkProfile()

    ProviderOutput configurationListing() override { return configuration; }
    ProviderOutput hardwarePortListing() override { return hardwarePorts; }
    ProviderOutput networkProfile() override { return profile; }
};
