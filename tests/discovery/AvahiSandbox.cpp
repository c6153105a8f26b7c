#include "discovery/AvahiSandbox.h"

#include "common/TestEnvironment.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

using namespace std::chrono_literals;

namespace {

std::unique_ptr<AvahiSandbox> g_sandbox;
QString g_reason;
bool g_tried = false;

// Daemons must not outlive a test program that dies.
void dieWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void stopProcess(std::unique_ptr<QProcess> &process)
{
    if (!process)
        return;
    if (process->state() != QProcess::NotRunning) {
        process->terminate();
        if (!process->waitForFinished(5000)) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
    process.reset();
}

bool runBounded(const QString &program, const QStringList &arguments, QByteArray *output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(2000);
        return false;
    }
    if (output)
        *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// Namespaces left by test programs that died before cleaning up.
void removeStaleNamespaces()
{
    QByteArray list;
    if (!runBounded(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("list")}, &list))
        return;
    static const QRegularExpression pattern(QStringLiteral("^tw-avahi-(\\d+)\\b"));
    for (const QByteArray &line : list.split('\n')) {
        const QRegularExpressionMatch match = pattern.match(QString::fromUtf8(line));
        if (match.hasMatch() && !TestEnvironment::processAlive(match.captured(1).toLongLong()))
            runBounded(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("delete"),
                                              QStringLiteral("tw-avahi-%1").arg(match.captured(1))},
                       nullptr);
    }
}

class SandboxEnvironment : public testing::Environment
{
public:
    void TearDown() override { AvahiSandbox::shutdown(); }
};

[[maybe_unused]] const auto *g_environment = testing::AddGlobalTestEnvironment(new SandboxEnvironment);

} // namespace

AvahiSandbox *AvahiSandbox::shared()
{
    if (!g_tried) {
        g_tried = true;
        std::unique_ptr<AvahiSandbox> sandbox(new AvahiSandbox);
        QString reason;
        if (sandbox->setUp(&reason))
            g_sandbox = std::move(sandbox);
        else
            g_reason = reason;
    }
    return g_sandbox.get();
}

QString AvahiSandbox::unavailableReason()
{
    return g_reason;
}

void AvahiSandbox::shutdown()
{
    g_sandbox.reset();
}

bool AvahiSandbox::setUp(QString *reason)
{
    removeStaleNamespaces();
    m_namespace = QStringLiteral("tw-avahi-%1").arg(QCoreApplication::applicationPid());
    QByteArray output;
    if (!runBounded(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("add"), m_namespace}, &output)) {
        *reason = QStringLiteral("cannot create network namespace %1: %2")
                      .arg(m_namespace, QString::fromLocal8Bit(output).trimmed());
        m_namespace.clear();
        return false;
    }
    if (!runInNamespace({QStringLiteral("ip"), QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("lo"),
                         QStringLiteral("multicast"), QStringLiteral("on"), QStringLiteral("up")},
                        &output)) {
        *reason = QStringLiteral("cannot bring up loopback: %1").arg(QString::fromLocal8Bit(output));
        return false;
    }

    m_dir = std::make_unique<QTemporaryDir>(QStringLiteral("/tmp/tw-avahi-XXXXXX"));
    if (!m_dir->isValid()) {
        *reason = QStringLiteral("cannot make a temporary folder");
        return false;
    }
    writeConfigs();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", QByteArray("unix:path=") + QFile::encodeName(m_busPath));

    if (!startBus()) {
        *reason = QStringLiteral("private dbus-daemon did not start");
        return false;
    }
    if (!startAvahi()) {
        *reason = QStringLiteral("private avahi-daemon did not start: %1").arg(QString::fromLocal8Bit(m_avahiOutput));
        return false;
    }

    // Only the calling (main) thread moves: it is where every socket of the
    // code under test is made.
    m_hostNetns = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(QFile::encodeName(QStringLiteral("/run/netns/") + m_namespace).constData(),
                              O_RDONLY | O_CLOEXEC);
    const bool entered = m_hostNetns >= 0 && target >= 0 && ::setns(target, CLONE_NEWNET) == 0;
    if (target >= 0)
        ::close(target);
    if (!entered) {
        *reason = QStringLiteral("cannot enter network namespace %1").arg(m_namespace);
        return false;
    }
    m_enteredNamespace = true;
    return true;
}

AvahiSandbox::~AvahiSandbox()
{
    if (m_enteredNamespace)
        ::setns(m_hostNetns, CLONE_NEWNET);
    if (m_hostNetns >= 0)
        ::close(m_hostNetns);
    stopAvahi();
    stopBus();
    if (!m_namespace.isEmpty())
        runBounded(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("delete"), m_namespace}, nullptr);
}

void AvahiSandbox::writeConfigs()
{
    // The address the test program exported at its start (see
    // TestEnvironment::systemBusPath()), so clients made before the sandbox
    // reach it too; a program without one gets a socket in the sandbox folder.
    m_busPath = TestEnvironment::systemBusPath();
    if (m_busPath.isEmpty())
        m_busPath = m_dir->filePath(QStringLiteral("system_bus_socket"));
    m_busConfig = m_dir->filePath(QStringLiteral("bus.conf"));
    m_avahiConfig = m_dir->filePath(QStringLiteral("avahi-daemon.conf"));

    QFile bus(m_busConfig);
    bus.open(QIODevice::WriteOnly);
    bus.write(QStringLiteral(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)")
                  .arg(m_busPath)
                  .toUtf8());
    bus.close();

    QFile avahi(m_avahiConfig);
    avahi.open(QIODevice::WriteOnly);
    avahi.write(R"([server]
use-ipv4=yes
use-ipv6=no
allow-interfaces=lo
enable-dbus=yes
ratelimit-interval-usec=1000000
ratelimit-burst=1000
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
publish-addresses=yes
[reflector]
enable-reflector=no
[rlimits]
)");
    avahi.close();
}

bool AvahiSandbox::runInNamespace(const QStringList &arguments, QByteArray *output)
{
    return runBounded(QStringLiteral("ip"), QStringList{QStringLiteral("netns"), QStringLiteral("exec"), m_namespace} + arguments,
                      output);
}

bool AvahiSandbox::startBus()
{
    stopBus();
    QFile::remove(m_busPath);
    m_bus = std::make_unique<QProcess>();
    m_bus->setChildProcessModifier(dieWithParent);
    m_bus->start(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("exec"), m_namespace,
                                        QStringLiteral("dbus-daemon"), QStringLiteral("--config-file=") + m_busConfig,
                                        QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                                        QStringLiteral("--print-address")});
    QByteArray printed;
    const bool ready = TestEnvironment::waitUntil(
        [&] {
            printed += m_bus->readAllStandardOutput();
            return printed.contains("unix:path=") || m_bus->state() == QProcess::NotRunning;
        },
        5s);
    return ready && m_bus->state() == QProcess::Running;
}

void AvahiSandbox::stopBus()
{
    stopProcess(m_bus);
}

bool AvahiSandbox::startAvahi()
{
    stopAvahi();
    m_avahiOutput.clear();
    m_avahi = std::make_unique<QProcess>();
    m_avahi->setChildProcessModifier(dieWithParent);
    m_avahi->setProcessChannelMode(QProcess::MergedChannels);
    // `ip netns exec` gives the command a mount namespace of its own: the
    // tmpfs on /run stays there, so the daemon's pid file and socket are ours.
    m_avahi->start(QStringLiteral("ip"),
                   {QStringLiteral("netns"), QStringLiteral("exec"), m_namespace, QStringLiteral("sh"), QStringLiteral("-c"),
                    QStringLiteral("mount -t tmpfs tw-avahi /run && exec avahi-daemon --no-drop-root --no-chroot "
                                   "--no-rlimits --no-proc-title -f \"$0\""),
                    m_avahiConfig});
    const bool ready = TestEnvironment::waitUntil(
        [&] {
            m_avahiOutput += m_avahi->readAll();
            return m_avahiOutput.contains("Server startup complete") || m_avahi->state() == QProcess::NotRunning;
        },
        10s);
    return ready && m_avahi->state() == QProcess::Running;
}

void AvahiSandbox::stopAvahi()
{
    stopProcess(m_avahi);
}

bool AvahiSandbox::avahiRunning() const
{
    return m_avahi && m_avahi->state() == QProcess::Running;
}
