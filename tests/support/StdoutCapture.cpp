#include "StdoutCapture.h"

#include <cstdio>
#include <unistd.h>

StdoutCapture::StdoutCapture()
{
    fflush(stdout);
    if (!m_file.open())
        return;
    m_saved = dup(STDOUT_FILENO);
    dup2(m_file.handle(), STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture()
{
    Take();
}

QString StdoutCapture::Take()
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
