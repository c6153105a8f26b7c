#include "discovery/AvahiSandbox.h"

#include <sys/prctl.h>

#include <csignal>

AvahiSandbox::Daemon AvahiSandbox::start(const QStringList &command, const QByteArray &ready) const
{
    Daemon daemon(new QProcess);
    daemon->setProcessChannelMode(QProcess::MergedChannels);
    daemon->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }); // never outlives the test
    daemon->start("ip", QStringList{"netns", "exec", m_space.name} + command);
    QByteArray printed;
    TestEnvironment::waitUntil([&] { return (printed += daemon->readAll()).contains(ready) || daemon->state() == QProcess::NotRunning; }, std::chrono::seconds(10));
    return printed.contains(ready) && daemon->state() == QProcess::Running ? std::move(daemon) : nullptr;
}

bool AvahiSandbox::setUp()
{
    reason = "cannot create network namespace " + m_space.name;
    if (!m_space.created || !m_space.ip("link set lo multicast on").isEmpty())
        return false;
    const auto write = [this](const QString &name, const QString &text) {
        QFile file(m_dir.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) > 0;
    };
    write("bus.conf", QStringLiteral("<busconfig><type>system</type><listen>unix:path=%1</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                     "<allow user=\"*\"/><allow own=\"*\"/><allow send_destination=\"*\"/><allow receive_sender=\"*\"/></policy></busconfig>")
                          .arg(TestEnvironment::systemBusPath()));
    write("avahi-daemon.conf", "[server]\nuse-ipv4=yes\nuse-ipv6=no\nallow-interfaces=lo\nratelimit-interval-usec=1000000\nratelimit-burst=1000\n"
                               "[wide-area]\nenable-wide-area=no\n[publish]\npublish-hinfo=no\npublish-workstation=no\n");
    reason = "the private dbus-daemon or avahi-daemon did not start";
    if (!startBus() || !startAvahi())
        return false;
    // Only the calling (main) thread moves: it is where every socket of the code under test is made.
    reason = "cannot enter network namespace " + m_space.name;
    m_hostNetns = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(QFile::encodeName("/run/netns/" + m_space.name).constData(), O_RDONLY | O_CLOEXEC);
    const bool entered = ::setns(target, CLONE_NEWNET) == 0;
    return ::close(target), entered;
}
