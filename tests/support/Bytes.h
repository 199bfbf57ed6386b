#pragma once

#include <QByteArray>
#include <QString>

#include <initializer_list>
#include <utility>

// Byte-level fixtures: big-endian words, box layouts, files.
namespace Bytes {

QByteArray U32(quint32 v);
QByteArray U64(quint64 v);
quint32 WordAt(const QByteArray &bytes, int pos);

// Builds a run of bytes word by word: Builder().Box(92, "ftyp").Zeros(84).Fcc("moov").
class Builder
{
public:
    Builder &U32(quint32 v);
    Builder &U64(quint64 v);
    Builder &Fcc(const char (&code)[5]);
    Builder &Zeros(int n);
    Builder &Raw(const QByteArray &bytes);
    // A box header: size then type.
    Builder &Box(quint32 size, const char (&type)[5]);
    // Overwrites the word at pos (the run grows with zeros when needed).
    Builder &Put(int pos, quint32 word);
    int Size() const { return m_bytes.size(); }
    QByteArray Data() const { return m_bytes; }
    operator QByteArray() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

// `bytes` with each (position, word) written over it, growing it when a write passes its end.
QByteArray Patched(QByteArray bytes, std::initializer_list<std::pair<quint64, quint32>> writes);

bool WriteFile(const QString &path, const QByteArray &bytes);
QByteArray ReadFile(const QString &path);

} // namespace Bytes
