#pragma once

#include <QString>

#include <cstdio>

// The program's own terminal output, kept apart from the engine's. The engine prints its diagnostics
// with printf, fprintf(stderr) and FFmpeg's av_log, all straight to descriptors 1 and 2. Console
// duplicates the original descriptors for the program's own lines; Divert() then points 1 and 2 at a
// log file, so that everything else written by the process lands there.
class Console
{
public:
    Console();
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    // Sends descriptors 1 and 2 to a new file at `logPath` (made 0600; an existing file is an error).
    bool Divert(const QString &logPath, QString *error);
    // Points descriptors 1 and 2 back at what they were, after flushing what went to the log.
    void Restore();

    void Out(const QString &line); // a line on the original standard output
    void Err(const QString &line); // a line on the original standard error
    // Writes `text` as it is on the original standard error, without a newline.
    void ErrRaw(const QString &text);

    // The original standard error, for a signal handler (write(2) only).
    int ErrFd() const { return m_errFd; }
    bool ErrIsTerminal() const;
    int ErrColumns() const;

private:
    FILE *m_out = nullptr;
    FILE *m_err = nullptr;
    int m_errFd = -1;
    bool m_diverted = false;
};
