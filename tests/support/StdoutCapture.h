#pragma once

#include <QString>
#include <QTemporaryFile>

// Sends what the process writes to standard output (printf, fd 1) into a file until Take() or the
// end of the scope, and gives it back as text.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    QString Take();

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};
