#include "ToolProcess.h"

#include "common/TestEnvironment.h"

#include <QDir>
#include <QFile>

#include <signal.h>
#include <unistd.h>

ToolProcess::ToolProcess(const QString &command)
{
    m_process.setProgram(QStringLiteral("/bin/sh"));
    m_process.setArguments({QStringLiteral("-c"), command});
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.setChildProcessModifier([] { setpgid(0, 0); });
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                     [this] { m_chunks.append(m_process.readAllStandardOutput()); });
    m_process.start();
    m_process.waitForStarted(5000);
}

ToolProcess::~ToolProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        ::kill(-static_cast<pid_t>(m_process.processId()), SIGKILL);
        m_process.waitForFinished(5000);
    }
}

qint64 ToolProcess::pid() const
{
    return m_process.processId();
}

QByteArray ToolProcess::output() const
{
    return m_chunks.join();
}

QList<QByteArray> ToolProcess::chunks() const
{
    return m_chunks;
}

QByteArray ToolProcess::errorOutput()
{
    m_error += m_process.readAllStandardError();
    return m_error;
}

bool ToolProcess::waitForOutput(const QByteArray &text, std::chrono::milliseconds timeout)
{
    return TestEnvironment::waitUntil([&] { return output().contains(text); }, timeout);
}

bool ToolProcess::waitForFinished(std::chrono::milliseconds timeout)
{
    return TestEnvironment::waitUntil([&] { return finished(); }, timeout);
}

bool ToolProcess::finished() const
{
    return m_process.state() == QProcess::NotRunning;
}

int ToolProcess::exitCode() const
{
    if (!finished() || m_process.exitStatus() != QProcess::NormalExit)
        return -1;
    return m_process.exitCode();
}

QList<qint64> ToolProcess::childrenOf(qint64 pid)
{
    QList<qint64> children;
    const QString taskDir = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString &task : QDir(taskDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile file(taskDir + QLatin1Char('/') + task + QStringLiteral("/children"));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &word : file.readAll().simplified().split(' ')) {
            bool ok = false;
            const qint64 child = word.toLongLong(&ok);
            if (ok)
                children.append(child);
        }
    }
    return children;
}

QList<QByteArray> ToolProcess::commandLine(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray text = file.readAll();
    if (text.endsWith('\0'))
        text.chop(1);
    return text.split('\0');
}
