#pragma once

#include "common/TestEnvironment.h"
#include "network/NetworkTestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// A private avahi-daemon in a network namespace of this test process, on its loopback only, talking to a private
// dbus-daemon at the system bus address the test program exported, with /run of its own. The main thread moves into the
// namespace, so no socket of the code under test touches the host's network. Made on first use, gone at program end.
class AvahiSandbox
{
public:
    static AvahiSandbox *shared() // nullptr when it cannot be made (see reason)
    {
        if (!std::exchange(s_tried, true) && !(s_sandbox = std::unique_ptr<AvahiSandbox>(new AvahiSandbox))->setUp())
            s_sandbox.reset();
        return s_sandbox.get();
    }
    inline static QString reason;

    ~AvahiSandbox()
    {
        if (m_hostNetns >= 0)
            ::setns(m_hostNetns, CLONE_NEWNET), ::close(m_hostNetns); // back home; the daemons and the namespace go with the members
    }
    bool startAvahi() // `ip netns exec` gives it a mount namespace of its own, where the tmpfs on /run stays
    {
        stopAvahi();
        return (m_avahi = start({"sh", "-c", "mount -t tmpfs tw /run && exec avahi-daemon --no-drop-root --no-chroot --no-rlimits --no-proc-title -f \"$0\"",
                                 m_dir.filePath("avahi-daemon.conf")},
                                "Server startup complete")) != nullptr;
    }
    void stopAvahi() { m_avahi.reset(); }
    bool startBus() { return QFile::remove(TestEnvironment::systemBusPath()), (m_bus = start({"dbus-daemon", "--config-file=" + m_dir.filePath("bus.conf"), "--nofork", "--print-address"}, "unix:path=")) != nullptr; }
    void stopBus() { m_bus.reset(); }

private:
    struct Stop { void operator()(QProcess *p) const { p->terminate(), p->waitForFinished(5000) || (p->kill(), p->waitForFinished(5000)), delete p; } };
    using Daemon = std::unique_ptr<QProcess, Stop>;
    struct Owner : testing::Environment { void TearDown() override { s_sandbox.reset(); } }; // ends it while the application still runs

    // Starts the command inside the namespace and waits (10 s at most) for the text in its output.
    Daemon start(const QStringList &command, const QByteArray &ready) const;
    bool setUp();

    inline static std::unique_ptr<AvahiSandbox> s_sandbox;
    inline static bool s_tried = false;
    inline static testing::Environment *const s_owner = testing::AddGlobalTestEnvironment(new Owner);
    const TestNamespace m_space{"avahi"}; // goes last, with anything left in it
    QTemporaryDir m_dir{"/tmp/tw-avahi-XXXXXX"};
    Daemon m_bus, m_avahi;
    int m_hostNetns = -1;
};

// Skips the test, with the reason, when no sandbox can be made; otherwise declares `sandbox`.
#define REQUIRE_AVAHI_SANDBOX()                                                                                        \
    AvahiSandbox *sandbox = AvahiSandbox::shared();                                                                    \
    if (!sandbox)                                                                                                      \
    GTEST_SKIP() << "no private avahi-daemon: " << AvahiSandbox::reason.toStdString()
