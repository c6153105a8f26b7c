#pragma once

#include "network/NetworkInventoryProvider.h"

// An inventory provider over fixed texts (and error texts), for tests that need a known set of interfaces.
struct FakeNetworkInventoryProvider : NetworkInventoryProvider
{
    ProviderOutput configuration, hardwarePorts, profile; // what the three calls answer
    ProviderOutput configurationListing() override { return configuration; }
    ProviderOutput hardwarePortListing() override { return hardwarePorts; }
    ProviderOutput networkProfile() override { return profile; }
};
