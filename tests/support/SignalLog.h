#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

// Records the signals of a worker in the order they were emitted, as "Name(argument)" lines. The
// lambdas run in the emitting thread, so the log is guarded; read it after the worker has ended.
class SignalLog
{
public:
    template <typename Obj, typename... Args>
    void Watch(Obj *object, void (Obj::*signal)(Args...), const QString &name)
    {
        QObject::connect(
            object, signal, object, [this, name](Args... args) { Add(name + "(" + Join(args...) + ")"); },
            Qt::DirectConnection);
    }

    void Add(const QString &line);
    QStringList Lines() const;
    // Lines whose name is `name`, in order.
    QStringList Only(const QString &name) const;

private:
    static QString Join() { return {}; }
    static QString Join(unsigned long v) { return QString::number(v); }
    static QString Join(const QString &s) { return s; }
    static QString Join(const QString &a, const QString &b) { return a + ", " + b; }

    mutable QMutex m_mutex;
    QStringList m_lines;
};
