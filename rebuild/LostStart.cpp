#include "rebuild/LostStart.h"

#include "rebuild/Bits.h"
#include "rebuild/BoxTree.h"
#include "rebuild/ByteSource.h"
#include "rebuild/MediaData.h"
#include "rebuild/MemoryFile.h"
#include "rebuild/Rebuild.h"
#include "repair/SafeFile.h"

#include <QFile>

#include <algorithm>
#include <cstdio>
#include <limits>

namespace {

constexpr int64_t LargestMoov = 64 << 20;
constexpr int FtypSize = 20; // type, major brand, minor version, one compatible brand

// The smallest chunk offset of the tracks of `moov`: where the media data began.
int64_t FirstChunk(const QByteArray &moov)
{
    int64_t first = std::numeric_limits<int64_t>::max();
    const auto *p = reinterpret_cast<const uint8_t *>(moov.constData());
    for (const ChildBox &trak : ChildrenOf(moov, 8, moov.size())) {
        std::vector<ChildBox> stbl;
        if (trak.type != FourCC("trak") || !Descend(moov, trak, {FourCC("mdia"), FourCC("minf"), FourCC("stbl"), FourCC("stsd")}, &stbl))
            continue;
        for (const ChildBox &c : stbl) {
            const bool wide = c.type == FourCC("co64");
            if ((c.type != FourCC("stco") && !wide) || c.end - c.begin < (wide ? 24 : 20) || ReadU32(p + c.begin + 12) == 0)
                continue;
            first = std::min<int64_t>(first, wide ? int64_t(ReadU64(p + c.begin + 16)) : ReadU32(p + c.begin + 16));
        }
    }
    return first;
}

uint32_t BrandFor(const QString &path)
{
    const char *container = ContainerFor(path);
    if (qstrcmp(container, "mov") == 0)
        return FourCC("qt  ");
    if (qstrcmp(container, "f4v") == 0)
        return FourCC("f4v ");
    return path.endsWith(".m4a", Qt::CaseInsensitive) ? FourCC("M4A ")
           : path.endsWith(".m4v", Qt::CaseInsensitive) ? FourCC("M4V ")
                                                        : FourCC("isom");
}

} // namespace

bool RestoreLostStart(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    int64_t first = 0, mdatEnd = 0;
    {
        FileSource source(name);
        uint8_t head[8] = {1};
        if (!source.IsOpen() || source.Read(0, head, 8) != 8 || std::any_of(head, head + 8, [](uint8_t b) { return b; }))
            return false;
        const MediaLayout layout = FindMediaData(source);
        const FoundBox *moov = layout.Find(FourCC("moov"));
        if (!moov || moov->size == 0 || int64_t(moov->size) > LargestMoov || moov->End(source.Size()) - moov->offset != int64_t(moov->size))
            return false;
        QByteArray bytes(int(moov->size), '\0');
        if (source.Read(moov->offset, reinterpret_cast<uint8_t *>(bytes.data()), bytes.size()) != bytes.size())
            return false;
        first = FirstChunk(bytes);
        // The media data runs to the next box found after it (the index, as a rule).
        mdatEnd = source.Size();
        for (const FoundBox &b : layout.boxes)
            if (b.offset >= first)
                mdatEnd = std::min(mdatEnd, b.offset);
        if (first < FtypSize + 8 || first > moov->offset || first >= mdatEnd)
            return false;
        // Everything that will be written must be lost already.
        std::vector<uint8_t> lost(size_t(first), 1);
        if (source.Read(0, lost.data(), first) != first || std::any_of(lost.begin(), lost.end(), [](uint8_t b) { return b; }))
            return false;
    }
    const bool wide = uint64_t(mdatEnd - first) + 8 > 0xffffffffu;
    const int64_t mdat = first - (wide ? 16 : 8);
    const int64_t gap = mdat - FtypSize;
    if (gap != 0 && gap < 8)
        return false;
    BoxWriter w;
    w.Begin("ftyp");
    w.U32(BrandFor(path));
    w.U32(0x200);
    w.U32(BrandFor(path));
    w.End();
    if (gap > 0) {
        w.Begin("free");
        w.Zeros(int(gap - 8));
        w.End();
    }
    if (wide) {
        w.U32(1);
        w.Raw("mdat");
        w.U32(uint32_t(uint64_t(mdatEnd - mdat) >> 32));
        w.U32(uint32_t(mdatEnd - mdat));
    } else {
        w.U32(uint32_t(mdatEnd - mdat));
        w.Raw("mdat");
    }
    FILE *f = OpenExistingNoFollow(name);
    if (!f)
        return false;
    const bool ok = fwrite(w.Bytes().constData(), 1, size_t(w.Bytes().size()), f) == size_t(w.Bytes().size());
    return fclose(f) == 0 && ok;
}
