#include "cli/Console.h"

#include <QFile>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// A stream on a private copy of `fd`; the process's own stream when `fd` is not open.
FILE *Duplicate(int fd, FILE *fallback, const char *mode)
{
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (copy < 0)
        return fallback;
    FILE *f = fdopen(copy, mode);
    if (!f) {
        close(copy);
        return fallback;
    }
    return f;
}

} // namespace

Console::Console()
{
    fflush(stdout);
    fflush(stderr);
    m_out = Duplicate(STDOUT_FILENO, stdout, "w");
    m_err = Duplicate(STDERR_FILENO, stderr, "w");
    // Line by line, so that the lines keep their order when both go to one pipe or file.
    setvbuf(m_out, nullptr, _IOLBF, 0);
    setvbuf(m_err, nullptr, _IONBF, 0);
    m_errFd = fileno(m_err);
}

Console::~Console()
{
    Restore();
    if (m_out != stdout)
        fclose(m_out);
    if (m_err != stderr)
        fclose(m_err);
}

bool Console::Divert(const QString &logPath, QString *error)
{
    if (m_out == stdout || m_err == stderr) {
        *error = "standard output or standard error is closed";
        return false;
    }
    const int log =
        open(QFile::encodeName(logPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (log < 0) {
        *error = QString("cannot make the log file %1").arg(logPath);
        return false;
    }
    fflush(stdout);
    fflush(stderr);
    const bool ok = dup2(log, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0;
    close(log);
    m_diverted = true;
    if (!ok) {
        Restore();
        *error = QString("cannot write the engine's output to %1").arg(logPath);
        return false;
    }
    return true;
}

void Console::Restore()
{
    if (!m_diverted)
        return;
    fflush(stdout);
    fflush(stderr);
    dup2(fileno(m_out), STDOUT_FILENO);
    dup2(m_errFd, STDERR_FILENO);
    m_diverted = false;
}

void Console::Out(const QString &line)
{
    fputs((line + '\n').toLocal8Bit().constData(), m_out);
}

void Console::Err(const QString &line)
{
    ErrRaw(line + '\n');
}

void Console::ErrRaw(const QString &text)
{
    fputs(text.toLocal8Bit().constData(), m_err);
}

bool Console::ErrIsTerminal() const
{
    return isatty(m_errFd) == 1;
}

int Console::ErrColumns() const
{
    winsize ws{};
    if (ioctl(m_errFd, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0)
        return ws.ws_col;
    return 80;
}
