#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <ostream>

// A temporary log folder: a plain one on the test machine's disk, or a
// ramfs mounted over it (a file system that refuses user extended
// attributes), optionally read-only. Unmounted and removed on destruction.
class LogFolder
{
public:
    enum class Kind { Disk, NoExtendedAttributes, ReadOnly };

    explicit LogFolder(Kind kind = Kind::Disk);
    ~LogFolder();
    LogFolder(const LogFolder &) = delete;
    LogFolder &operator=(const LogFolder &) = delete;

    // False when the kind needs a mount this machine does not allow.
    bool isReady() const { return m_ready; }
    QString path() const { return m_dir.path(); }
    QString file(const QString &name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
    bool m_mounted = false;
    bool m_ready = false;
};

// Readable test names and messages for table-driven tests over folder kinds.
void PrintTo(LogFolder::Kind kind, std::ostream *os);

// Writes a file whose creation time is strictly later than `after` (file
// systems stamp birth times with a coarse clock tick, and a test that orders
// files must not depend on luck). Where there is no birth time, the
// modification time is set one second after `after` instead. Returns the
// time the file manager will see.
QDateTime createFileAfter(const QString &path, const QByteArray &content, const QDateTime &after);

// Redirects this process's standard error into a file while it lives.
class StandardErrorCapture
{
public:
    StandardErrorCapture();
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture &) = delete;
    StandardErrorCapture &operator=(const StandardErrorCapture &) = delete;

    QByteArray text() const;

private:
    QTemporaryDir m_dir;
    int m_savedFd = -1;
};
