#pragma once

#include <QString>

// What one provider produced: the listing text and anything it reports as an
// error (logged by the inventory, which then reads whatever text there is).
struct ProviderOutput
{
    QString output; // the listing text; empty when the provider failed
    QString error;  // error text; empty when all went well
};

// The three texts the interface inventory reads. The real implementation
// builds them from the running system; tests hand in fixed texts.
// Implementations must be safe to call from any thread.
class NetworkInventoryProvider
{
public:
    virtual ~NetworkInventoryProvider() = default;

    // Interface configuration listing: a header "NAME: flags=HEX<...> mtu N"
    // per interface, then tab-indented "ether", "inet", "status:" lines.
    virtual ProviderOutput configurationListing() = 0;
    // Hardware ports: "Hardware Port:", "Device:", "Ethernet Address:" blocks.
    virtual ProviderOutput hardwarePortListing() = 0;
    // Network profile: an XML property list whose root list holds one
    // dictionary with "_items" (one item per network service).
    virtual ProviderOutput networkProfile() = 0;
};
