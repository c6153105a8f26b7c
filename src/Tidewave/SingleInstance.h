#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

// One Tidewave per user and display: the first copy listens on a local
// socket named after both; a later copy finds it there, asks it to bring its
// window to the front and ends before it starts anything of its own (its
// start-up would kill the first copy's tools).
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    // The socket for this user's session on this display: in
    // $XDG_RUNTIME_DIR when set, else in the temporary folder with the user
    // id in its name.
    static QString socketPathForSession();

    explicit SingleInstance(const QString &socketPath, QObject *parent = nullptr);
    ~SingleInstance() override;

    // True when this process is the one copy (it now listens); false when
    // another copy answered and was asked to raise its window.
    bool claim();

signals:
    // A later copy asked for the running window.
    void raiseRequested();

private:
    bool askRunningCopy();

    QString m_path;
    QLocalServer *m_server = nullptr;
};
