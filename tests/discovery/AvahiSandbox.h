#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QProcess;

// A private avahi-daemon for the tests, confined to a network namespace made
// for this test process (tw-avahi-<pid>): its loopback, multicast on, is the
// daemon's only interface. The daemon talks to a private system bus
// (dbus-daemon with a permissive policy of its own) whose address is exported
// as DBUS_SYSTEM_BUS_ADDRESS, and runs in a mount namespace of its own with a
// tmpfs on /run, so its pid file and socket never meet another instance. The
// test process moves its main thread into the namespace, so every socket the
// code under test opens lives there too; nothing touches the host's network.
//
// Made on first use, torn down when the test program ends (daemons stopped,
// namespace deleted, main thread back in its own namespace).
class AvahiSandbox
{
public:
    // The sandbox, started if needed; nullptr when it cannot be made (see
    // unavailableReason()).
    static AvahiSandbox *shared();
    static QString unavailableReason();
    static void shutdown();

    ~AvahiSandbox();

    QString namespaceName() const { return m_namespace; }

    // Runs a command inside the namespace; answers whether it exited with 0.
    bool runInNamespace(const QStringList &arguments, QByteArray *output = nullptr);

    bool startBus();
    void stopBus();
    bool startAvahi();
    void stopAvahi();
    bool avahiRunning() const;

private:
    AvahiSandbox() = default;
    bool setUp(QString *reason);
    void writeConfigs();

    QString m_namespace;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_busPath;
    QString m_busConfig;
    QString m_avahiConfig;
    std::unique_ptr<QProcess> m_bus;
    std::unique_ptr<QProcess> m_avahi;
    QByteArray m_avahiOutput;
    int m_hostNetns = -1;
    bool m_enteredNamespace = false;
};

// Skips the test, with the reason, when no sandbox can be made; otherwise
// declares `sandbox`.
#define REQUIRE_AVAHI_SANDBOX()                                                                      \
    AvahiSandbox *sandbox = AvahiSandbox::shared();                                                \
    if (!sandbox)                                                                                    \
    GTEST_SKIP() << "no private avahi-daemon: " << AvahiSandbox::unavailableReason().toStdString()
