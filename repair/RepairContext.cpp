#include "repair/RepairContext.h"

#include <cstring>
#include <limits>
#include <sys/types.h>

FILE *pHandle = nullptr;
quint64 dwOffset = 0;

namespace RepairIO {

namespace {
quint64 changedWords = 0;
}

bool Seek(quint64 pos)
{
    if (!pHandle || pos > quint64(std::numeric_limits<off_t>::max()))
        return false;
    return fseeko(pHandle, off_t(pos), SEEK_SET) == 0;
}

quint32 ReadWord(quint64 pos)
{
    unsigned char b[4] = {0, 0, 0, 0};
    if (Seek(pos))
        (void)fread(b, 1, 4, pHandle);
    return (quint32(b[0]) << 24) | (quint32(b[1]) << 16) | (quint32(b[2]) << 8) | quint32(b[3]);
}

void WriteWord(quint64 pos, quint32 word)
{
    const unsigned char b[4] = {quint8(word >> 24), quint8(word >> 16), quint8(word >> 8), quint8(word)};
    unsigned char held[4] = {0, 0, 0, 0};
    // A word only partly inside the file is written, so that the file grows as it always has.
    if (!Seek(pos) || (fread(held, 1, 4, pHandle) == 4 && memcmp(held, b, 4) == 0))
        return;
    if (Seek(pos) && fwrite(b, 1, 4, pHandle) == 4)
        ++changedWords;
}

quint64 ChangedWords()
{
    return changedWords;
}

quint64 FileLength()
{
    if (!pHandle || fseeko(pHandle, 0, SEEK_END) != 0)
        return 0;
    const off_t end = ftello(pHandle);
    return end < 0 ? 0 : quint64(end);
}

} // namespace RepairIO
