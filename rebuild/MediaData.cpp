#include "rebuild/MediaData.h"

#include "rebuild/Bits.h"
#include "rebuild/ByteSource.h"

#include <algorithm>

namespace {

// Types that stand at the top level of the files we repair.
constexpr uint32_t TopLevel[] = {
    FourCC("ftyp"), FourCC("moov"), FourCC("mdat"), FourCC("free"), FourCC("skip"), FourCC("wide"),
    FourCC("uuid"), FourCC("pnot"), FourCC("PICT"), FourCC("pdin"), FourCC("meta"), FourCC("moof"),
    FourCC("mfra"), FourCC("sidx"), FourCC("styp"), FourCC("prft"), FourCC("emsg"), FourCC("junk"),
};
// The ones a search past damage trusts: common, and unlikely to be found by chance with a fitting size.
constexpr uint32_t Searched[] = {FourCC("mdat"), FourCC("moov"), FourCC("free"), FourCC("wide"),
                                 FourCC("skip"), FourCC("ftyp"), FourCC("moof")};

bool IsTopLevel(uint32_t type)
{
    return std::find(std::begin(TopLevel), std::end(TopLevel), type) != std::end(TopLevel);
}

// Reads the box header at `pos`; false when it cannot be a box of the file: an unknown type, or a
// size that does not fit. A box that runs past the end is kept only when it is media data (a
// recording cut short) or the last thing in the file.
bool ReadBox(const ByteSource &source, int64_t pos, bool anyType, FoundBox *box)
{
    uint8_t h[16];
    const int64_t fileSize = source.Size();
    if (pos < 0 || source.Read(pos, h, 16) < 8)
        return false;
    box->offset = pos;
    box->type = ReadU32(h + 4);
    box->size = ReadU32(h);
    box->header = 8;
    if (!anyType && !IsTopLevel(box->type))
        return false;
    if (box->size == 1) {
        if (pos + 16 > fileSize)
            return false;
        box->size = ReadU64(h + 8);
        box->header = 16;
        if (box->size < 16)
            return false;
    } else if (box->size != 0 && box->size < 8) {
        return false;
    }
    if (box->size != 0 && box->size > uint64_t(fileSize - pos) && box->type != FourCC("mdat") &&
        box->type != FourCC("moov"))
        return false;
    return true;
}

// Searches [from, to) for a box whose type code and size fit.
bool SearchBox(const ByteSource &source, int64_t from, int64_t to, FoundBox *box)
{
    constexpr int64_t Block = 1 << 20;
    std::vector<uint8_t> buffer(size_t(Block + 8));
    for (int64_t at = from; at < to; at += Block) {
        const int64_t n = source.Read(at, buffer.data(), std::min<int64_t>(Block + 8, to - at + 8));
        for (int64_t i = 4; i + 4 <= n && at + i - 4 < to; ++i) {
            const uint32_t type = ReadU32(buffer.data() + i);
            if (std::find(std::begin(Searched), std::end(Searched), type) == std::end(Searched))
                continue;
            if (ReadBox(source, at + i - 4, true, box) && (box->size != 0 || type == FourCC("mdat"))) {
                box->byWalk = false;
                return true;
            }
        }
    }
    return false;
}

} // namespace

int64_t FoundBox::End(int64_t fileSize) const
{
    if (size == 0 || size > uint64_t(fileSize - offset))
        return fileSize;
    return offset + int64_t(size);
}

int64_t MediaLayout::MediaBytes() const
{
    int64_t n = 0;
    for (const auto &[begin, end] : regions)
        n += end - begin;
    return n;
}

const FoundBox *MediaLayout::Find(uint32_t type) const
{
    for (const FoundBox &b : boxes)
        if (b.type == type)
            return &b;
    return nullptr;
}

MediaLayout FindMediaData(const ByteSource &source)
{
    MediaLayout layout;
    const int64_t fileSize = source.Size();
    int64_t pos = 0;
    FoundBox box;
    while (pos + 8 <= fileSize && ReadBox(source, pos, false, &box)) {
        layout.boxes.push_back(box);
        pos = box.End(fileSize);
    }
    // Past damage: every box found by its type code, skipping over the media data of each.
    int64_t from = pos;
    while (from + 8 <= fileSize && SearchBox(source, from, fileSize, &box)) {
        layout.boxes.push_back(box);
        from = box.type == FourCC("mdat") || box.type == FourCC("moov") ? box.End(fileSize)
                                                                       : box.offset + box.header;
    }

    // Stretches no box accounts for.
    std::vector<std::pair<int64_t, int64_t>> used, unaccounted;
    for (const FoundBox &b : layout.boxes)
        used.emplace_back(b.offset, b.End(fileSize));
    std::sort(used.begin(), used.end());
    int64_t at = 0;
    for (const auto &[begin, end] : used) {
        if (begin > at)
            unaccounted.emplace_back(at, begin);
        at = std::max(at, end);
    }
    if (fileSize > at)
        unaccounted.emplace_back(at, fileSize);

    for (const FoundBox &b : layout.boxes) {
        if (b.type != FourCC("mdat"))
            continue;
        const int64_t begin = b.PayloadBegin(), end = b.End(fileSize);
        if (end <= begin)
            continue;
        layout.regions.emplace_back(begin, end);
        if (end - begin > layout.mediaEnd - layout.mediaBegin) {
            layout.mediaBegin = begin;
            layout.mediaEnd = end;
            layout.mdatFound = true;
        }
    }
    for (const auto &[begin, end] : unaccounted) {
        // A few stray bytes are no media data worth a walk.
        if (end - begin < 256)
            continue;
        layout.regions.emplace_back(begin, end);
        if (!layout.mdatFound && end - begin > layout.mediaEnd - layout.mediaBegin) {
            layout.mediaBegin = begin;
            layout.mediaEnd = end;
        }
    }
    std::sort(layout.regions.begin(), layout.regions.end());
    return layout;
}
