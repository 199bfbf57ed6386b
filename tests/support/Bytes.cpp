#include "Bytes.h"

#include <QFile>
#include <QtEndian>

namespace Bytes {

QByteArray U32(quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    return QByteArray(b, 4);
}

QByteArray U64(quint64 v)
{
    char b[8];
    qToBigEndian(v, b);
    return QByteArray(b, 8);
}

quint32 WordAt(const QByteArray &bytes, int pos)
{
    return qFromBigEndian<quint32>(bytes.constData() + pos);
}

Builder &Builder::U32(quint32 v)
{
    m_bytes += Bytes::U32(v);
    return *this;
}

Builder &Builder::U64(quint64 v)
{
    m_bytes += Bytes::U64(v);
    return *this;
}

Builder &Builder::Fcc(const char (&code)[5])
{
    m_bytes += QByteArray(code, 4);
    return *this;
}

Builder &Builder::Zeros(int n)
{
    m_bytes += QByteArray(n, '\0');
    return *this;
}

Builder &Builder::Raw(const QByteArray &bytes)
{
    m_bytes += bytes;
    return *this;
}

Builder &Builder::Box(quint32 size, const char (&type)[5])
{
    return U32(size).Fcc(type);
}

Builder &Builder::Put(int pos, quint32 word)
{
    m_bytes = Patched(m_bytes, {{quint64(pos), word}});
    return *this;
}

QByteArray Patched(QByteArray bytes, std::initializer_list<std::pair<quint64, quint32>> writes)
{
    for (const auto &w : writes) {
        const int pos = int(w.first);
        if (bytes.size() < pos + 4)
            bytes.append(QByteArray(pos + 4 - bytes.size(), '\0'));
        bytes.replace(pos, 4, U32(w.second));
    }
    return bytes;
}

bool WriteFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray ReadFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace Bytes
