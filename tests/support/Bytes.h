#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtEndian>

#include <initializer_list>
#include <utility>

// Byte-level fixtures: big-endian words, box layouts, files.
namespace Bytes
{

inline QByteArray U32(quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    return QByteArray(b, 4);
}

inline quint32 WordAt(const QByteArray &bytes, int pos)
{
    return qFromBigEndian<quint32>(bytes.constData() + pos);
}

// `bytes` with each (position, word) written over it, growing it when a write passes its end.
inline QByteArray Patched(QByteArray bytes, std::initializer_list<std::pair<quint64, quint32>> writes)
{
    for (const auto &w : writes) {
        const int pos = int(w.first);
        if (bytes.size() < pos + 4)
            bytes.append(QByteArray(pos + 4 - bytes.size(), '\0'));
        bytes.replace(pos, 4, U32(w.second));
    }
    return bytes;
}

// Builds a run of bytes word by word: Builder().Box(92, "ftyp").Zeros(84).Fcc("moov").
class Builder
{
public:
    Builder &U32(quint32 v) { return Raw(Bytes::U32(v)); }
    Builder &U64(quint64 v) { return U32(quint32(v >> 32)).U32(quint32(v)); }
    Builder &Fcc(const char (&code)[5]) { return Raw(QByteArray(code, 4)); }
    Builder &Zeros(int n) { return Raw(QByteArray(n, '\0')); }
    Builder &Raw(const QByteArray &bytes)
    {
        m_bytes += bytes;
        return *this;
    }
    // A box header: size then type.
    Builder &Box(quint32 size, const char (&type)[5]) { return U32(size).Fcc(type); }
    // Overwrites the word at pos (the run grows with zeros when needed).
    Builder &Put(int pos, quint32 word)
    {
        m_bytes = Patched(m_bytes, {{quint64(pos), word}});
        return *this;
    }
    QByteArray Data() const { return m_bytes; }
    operator QByteArray() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

inline bool WriteFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

inline QByteArray ReadFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Writes a shell script that only its owner may run: a stand-in for a program the code starts.
inline bool WriteProgram(const QString &path, const QString &script)
{
    return WriteFile(path, "#!/bin/sh\n" + script.toUtf8()) &&
           QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace Bytes
