#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

// One window program per account. Two would share the account's working folder under /var/tmp and
// its preview copies, and each would remove the other's files. The first to start holds a lock in
// the user's runtime folder and listens there; one started later asks it to show itself and ends.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    // `folder`: where the lock and the socket live, private to the user.
    explicit SingleInstance(const QString &folder);

    // True when this process is now the one that runs; false after the running one was asked to
    // show itself. When no lock can be had at all (a runtime folder that cannot be written), the
    // program runs rather than not at all.
    bool Claim();

Q_SIGNALS:
    // A later start asked this one to show itself.
    void ShowRequested();

private:
    QString m_socket;
    QString m_lockPath;
    QLockFile m_lock;
    QLocalServer m_server;
};

// Brings the program's visible windows to the front; where the window system will not let it
// (X11, Wayland), asks for the user's attention instead.
void ShowRunningProgram();
