#pragma once

#include "client_tab/ClientTestSupport.h"
#include "fakes/ClientFakeAlerts.h"
#include "fakes/ClientFakeWiFiInterface.h"
#include "fakes/ClientManualScheduler.h"

#include "client/ClientTab.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

// A client tab over its own settings store, with fakes for time, alerts, the
// inventory, the radio, speech and the tool runs.
class ClientTabFixture : public ::testing::Test
{
public:
    void SetUp() override
    {
        // The shipped defaults that matter here.
        settings.store.registerDefaults({{QStringLiteral("clientToServerPort"), QStringLiteral("5201")},
                                         {QStringLiteral("testDuration"), 10},
                                         {QStringLiteral("statsInterval"), 1},
                                         {QStringLiteral("testType"), QStringLiteral("0")},
                                         {QStringLiteral("graphMaxSpeed"), 100},
                                         {QStringLiteral("bufferLength"), 128}});
        interfaces.append(std::make_shared<PIFCInterfaceInfo>());
        interfaces.first()->BSDName = QStringLiteral("wlp2s0");
    }

    // Makes the tab and, unless told otherwise, runs its delayed set-up.
    void makeTab(bool setUp = true)
    {
        ClientTabServices s;
        s.settings = &settings.store;
        s.alerts = &alerts;
        s.scheduler = &scheduler;
        s.networkDetails = [this] { return interfaces; };
        s.openWiFiInterface = [this](const QString &name) {
            opened.append(name);
            return std::static_pointer_cast<WiFiInterface>(wifi);
        };
        s.executeShellCommandAsynchronously = [this](const QString &command) { spoken.append(command); };
        s.runTest = [this](PerfHelper &test) { started.push_back(&test); };
        s.stopTest = [this](PerfHelper &test) { stopped.push_back(&test); };
        s.refreshDiscovery = [this] { ++discoveryRefreshes; };
        tab = std::make_unique<ClientTab>(nullptr, s);
        if (setUp) {
            ASSERT_TRUE(scheduler.fire(0));
        }
    }

    // Controls by kind and name (the detail view has labels of the same names).
    template <typename T>
    T *widget(const char *name) const
    {
        T *w = tab->findChild<T *>(QLatin1String(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    QLineEdit *field(const char *name) const { return widget<QLineEdit>(name); }
    QComboBox *popUp(const char *name) const { return widget<QComboBox>(name); }
    QPushButton *runButton() const { return widget<QPushButton>("runClient"); }
    QString stored(const char *key) const { return settings.store.stringForKey(QLatin1String(key)); }

    // Fills the form as a user would before pressing the button.
    void fillForm(const QString &address, const QString &port, const QString &duration, int statsSeconds,
                  bool udp = false, const QString &buffer = QString())
    {
        field("clientToServerIpAddress")->setText(address);
        field("clientToServerPort")->setText(port);
        field("testDuration")->setText(duration);
        popUp("statsInterval")->setCurrentIndex(statsSeconds - 1);
        popUp("testType")->setCurrentIndex(udp ? 1 : 0);
        tab->updateTestType();
        field("lengthOFBuffers")->setText(buffer);
    }

    // Starts a 10 s run with one-second reports on loopback.
    void startRun()
    {
        fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1);
        tab->runClient();
        ASSERT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    }

    ClientTestSupport::TempStore settings;
    ClientFakeAlerts alerts;
    ClientManualScheduler scheduler; // entry 0 is the set-up, the rest are time-outs
    ClientTestSupport::InfoMessages messages;
    PIFCInterfaceInfoList interfaces;
    std::shared_ptr<ClientFakeWiFiInterface> wifi = std::make_shared<ClientFakeWiFiInterface>(QStringLiteral("wlp2s0"));
    QStringList opened;
    QStringList spoken;
    std::vector<PerfHelper *> started;
    std::vector<PerfHelper *> stopped;
    int discoveryRefreshes = 0;
    std::unique_ptr<ClientTab> tab;
};
