#pragma once

#include "network/WiFiInterface.h"

#include <memory>

// A Wi-Fi interface read through nl80211 (libnl-genl-3). Every read uses
// only data the kernel already holds (interface, cached scan results,
// station and survey entries); it never triggers a scan, which needs
// privileges and disturbs the link while a test runs.
class Nl80211Interface : public WiFiInterface
{
public:
    // Opens the interface by kernel name. Always answers an interface: one
    // that is absent or not wireless simply gives no values.
    static std::shared_ptr<WiFiInterface> interfaceWithName(const QString &name);

    explicit Nl80211Interface(QString name);

    QString interfaceName() const override;
    WiFiLinkState linkState() override;

private:
    QString m_name;
};
