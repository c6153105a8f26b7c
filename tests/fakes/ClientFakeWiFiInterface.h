#pragma once

#include "network/WiFiInterface.h"

// A Wi-Fi interface with a link state set by the test; counts its reads.
class ClientFakeWiFiInterface : public WiFiInterface
{
public:
    explicit ClientFakeWiFiInterface(QString name, WiFiLinkState state = {})
        : m_name(std::move(name))
        , state(std::move(state))
    {
    }

    QString interfaceName() const override { return m_name; }
    WiFiLinkState linkState() override
    {
        ++reads;
        return state;
    }

private:
    QString m_name;

public:
    WiFiLinkState state;
    int reads = 0;
};
