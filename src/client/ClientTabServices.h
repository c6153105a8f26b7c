#pragma once

#include "network/PIFCInterfaceInfo.h"

#include <QString>

#include <functional>
#include <memory>

class AlertPresenter;
class DelayScheduler;
class PerfHelper;
class SettingsStore;
class WiFiInterface;

// What the client tab uses from the rest of the system. Every member left
// empty is filled with the real thing; tests hand in fakes for what a test
// machine cannot have (a radio, the user's clicks on alerts) or control (time).
struct ClientTabServices
{
    // The settings store the tab reads and writes (the process-wide one).
    SettingsStore *settings = nullptr;
    // Modal alerts of the test list (message boxes). Not owned.
    AlertPresenter *alerts = nullptr;
    // The tab's delayed calls: set-up and the no-data time-out (QTimer). Not owned.
    DelayScheduler *scheduler = nullptr;
    // The interface inventory, primary interface first.
    std::function<PIFCInterfaceInfoList()> networkDetails;
    // Opens the Wi-Fi interface of a kernel name (nl80211).
    std::function<std::shared_ptr<WiFiInterface>(const QString &name)> openWiFiInterface;
    // Runs a command text through the shell without waiting (spoken rates).
    std::function<void(const QString &command)> executeShellCommandAsynchronously;
    // Starts and stops a coordinator's run (runTest / stopTest).
    std::function<void(PerfHelper &)> runTest;
    std::function<void(PerfHelper &)> stopTest;
    // Brings the discovery list up to date before its window is shown.
    std::function<void()> refreshDiscovery;
};

// The services with every member left empty filled with the real thing.
ClientTabServices completedServices(ClientTabServices services);
