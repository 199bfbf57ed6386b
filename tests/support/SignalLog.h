#pragma once

#include <QMetaMethod>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QVariant>

#include <functional>

// Records the signals the sender's own class declares, in order, as "Name(argument, ...)" lines,
// handing each to OnLine in the emitting thread. Read it after the sender's thread has ended.
class SignalLog : public QObject
{
public:
    explicit SignalLog(QObject *sender) : m_sender(sender)
    {
        const QMetaObject *meta = sender->metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i)
            if (meta->method(i).methodType() == QMetaMethod::Signal) {
                QMetaObject::connect(sender, i, this, staticMetaObject.methodCount() + m_signals.size(),
                                     Qt::DirectConnection);
                m_signals << i;
            }
    }

    std::function<void(const QString &line)> OnLine;

    QStringList Lines() const
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }

    int qt_metacall(QMetaObject::Call call, int id, void **argv) override
    {
        id = QObject::qt_metacall(call, id, argv);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod || id >= m_signals.size())
            return id;
        const QMetaMethod signal = m_sender->metaObject()->method(m_signals.at(id));
        QStringList args;
        for (int p = 0; p < signal.parameterCount(); ++p)
            args << QVariant(signal.parameterType(p), argv[p + 1]).toString();
        const QString line = QString::fromLatin1(signal.name()) + "(" + args.join(", ") + ")";
        if (OnLine)
            OnLine(line);
        QMutexLocker locker(&m_mutex);
        m_lines << line;
        return -1;
    }

private:
    QObject *m_sender;
    QList<int> m_signals; // the sender's signal indexes, by our own slot index
    mutable QMutex m_mutex;
    QStringList m_lines;
};
