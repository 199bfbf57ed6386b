#include "app/SingleInstance.h"

#include <QApplication>
#include <QLocalSocket>
#include <QThread>
#include <QWidget>

#include <cstdio>

SingleInstance::SingleInstance(const QString &folder)
    : m_socket(folder + "/CorvaneAldrakeVideoRepair.socket"),
      m_lockPath(folder + "/CorvaneAldrakeVideoRepair.lock"), m_lock(m_lockPath)
{
    // Held for the whole life of the program: never given up as stale because of its age. A lock
    // left by a program that has died is still taken over (QLockFile checks its process).
    m_lock.setStaleLockTime(0);
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *asking = m_server.nextPendingConnection()) {
            asking->deleteLater();
            Q_EMIT ShowRequested();
        }
    });
}

bool SingleInstance::Claim()
{
    if (m_lock.tryLock(0)) {
        // A socket left by a program that died; ours now, since we hold the lock.
        QLocalServer::removeServer(m_socket);
        m_server.setSocketOptions(QLocalServer::UserAccessOption);
        if (!m_server.listen(m_socket))
            fprintf(stderr, "Cannot listen on %s: %s\n", qPrintable(m_socket),
                    qPrintable(m_server.errorString()));
        return true;
    }
    if (m_lock.error() != QLockFile::LockFailedError) {
        fprintf(stderr, "Cannot lock %s: running without it\n", qPrintable(m_lockPath));
        return true;
    }
    // The running program may still be starting: give it a few seconds to listen.
    for (int attempt = 0; attempt < 30; ++attempt) {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        if (socket.waitForConnected(1000)) {
            socket.disconnectFromServer();
            return false;
        }
        QThread::msleep(100);
    }
    fprintf(stderr, "Corvane Aldrake Video Repair is already running.\n");
    return false;
}

void ShowRunningProgram()
{
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (!window->isVisible() || window->windowType() == Qt::ToolTip || window->windowType() == Qt::Popup)
            continue;
        if (window->isMinimized())
            window->showNormal();
        window->raise();
        window->activateWindow();
        QApplication::alert(window);
    }
}
