#pragma once

#include <QString>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

// Sends what the process writes to standard output (printf, fd 1) into a file until Take() or the
// end of the scope, and gives it back as text.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        fflush(stdout);
        if (!m_file.open())
            return;
        m_saved = dup(STDOUT_FILENO);
        dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() { Take(); }

    QString Take()
    {
        if (m_saved < 0)
            return {};
        fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
        m_saved = -1;
        m_file.seek(0);
        return QString::fromLocal8Bit(m_file.readAll());
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};
