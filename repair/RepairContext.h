#pragma once

#include <QtGlobal>
#include <cstdio>

// The file being repaired and the scan position, shared by the structural pass and the header
// repair routines. Only one working copy is open at a time; pHandle is null between files.
extern FILE *pHandle;
extern quint64 dwOffset;

// Box vocabulary. A word is the big-endian value of four file bytes, so a type code and a size can
// be compared and written alike: Fcc("moov") stands for the bytes 'm' 'o' 'o' 'v'.
constexpr quint32 Fcc(const char (&code)[5])
{
    return (quint32(quint8(code[0])) << 24) | (quint32(quint8(code[1])) << 16) |
           (quint32(quint8(code[2])) << 8) | quint32(quint8(code[3]));
}

// Fixed box sizes the repairs recognise and write.
namespace BoxSize {
constexpr quint32 Mvhd = 108;
constexpr quint32 Tkhd = 92;
constexpr quint32 Tapt = 68;
constexpr quint32 Mdhd = 32;
constexpr quint32 Vmhd = 20;
constexpr quint32 Smhd = 16;
constexpr quint32 Dinf = 36;
constexpr quint32 Dcom = 12;
constexpr quint32 Wide = 8;
} // namespace BoxSize

// All byte access of the repair goes through these. Positions are absolute. A position the file
// cannot have (one that wrapped round below zero, or one the stream cannot address) makes the seek
// fail; a read after a failed seek yields zero and a write after one writes nothing. A short read
// near the end of the file keeps the bytes it got and leaves the rest zero.
namespace RepairIO {
bool Seek(quint64 pos);
quint32 ReadWord(quint64 pos);
inline quint32 ReadSize(quint64 pos) { return ReadWord(pos); }
// Writes only when the word differs from what the file holds there; every write that changes the
// file is counted, so that the repair knows whether a working copy still has its source's bytes.
void WriteWord(quint64 pos, quint32 word);
quint64 ChangedWords();
// Current length of the open file in bytes, 0 when none is open.
quint64 FileLength();
} // namespace RepairIO
