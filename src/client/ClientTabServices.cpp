#include "client/ClientTabServices.h"

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/ShellTask.h"
#include "client/AlertPresenter.h"
#include "client/DelayScheduler.h"
#include "network/GetPIFInterfaceinfo.h"
#include "network/Nl80211Interface.h"

ClientTabServices completedServices(ClientTabServices services)
{
    // Both keep no state, so one of each serves every tab.
    static MessageBoxAlertPresenter messageBoxes;
    static TimerDelayScheduler timers;
    if (!services.alerts)
        services.alerts = &messageBoxes;
    if (!services.scheduler)
        services.scheduler = &timers;
    if (!services.networkDetails)
        services.networkDetails = [] { return GetPIFInterfaceinfo::getAllNetworksDetails(); };
    if (!services.openWiFiInterface)
        services.openWiFiInterface = [](const QString &name) { return Nl80211Interface::interfaceWithName(name); };
    if (!services.executeShellCommandAsynchronously)
        services.executeShellCommandAsynchronously = &ShellTask::executeShellCommandAsynchronously;
    if (!services.runTest)
        services.runTest = [](PerfHelper &test) { test.runTest(); };
    if (!services.stopTest)
        services.stopTest = [](PerfHelper &test) { test.stopTest(); };
    return services;
}
