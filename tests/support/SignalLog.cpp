#include "SignalLog.h"

#include <QMutexLocker>

void SignalLog::Add(const QString &line)
{
    QMutexLocker locker(&m_mutex);
    m_lines.append(line);
}

QStringList SignalLog::Lines() const
{
    QMutexLocker locker(&m_mutex);
    return m_lines;
}

QStringList SignalLog::Only(const QString &name) const
{
    QStringList out;
    for (const QString &line : Lines())
        if (line.startsWith(name + "("))
            out.append(line);
    return out;
}
