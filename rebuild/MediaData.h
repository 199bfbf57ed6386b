#pragma once

#include <cstdint>
#include <vector>

class ByteSource;

// A top-level box as found in a damaged file, by walking from the start or, past damage, by its type
// code. `size` is what its header says; the box may run past the end of a file cut short.
struct FoundBox
{
    int64_t offset = 0;
    uint64_t size = 0;  // 0: the box runs to the end of the file
    uint32_t type = 0;
    int header = 8;     // 16 with a 64-bit size
    bool byWalk = true; // false: found by searching for its type code past damage

    int64_t PayloadBegin() const { return offset + header; }
    // The end of the box, clipped to the end of the file.
    int64_t End(int64_t fileSize) const;
};

struct MediaLayout
{
    std::vector<FoundBox> boxes; // in file order
    // The media data, in file order: the payload of every "mdat" (a fragmented file has one per
    // fragment), clipped to the file, and every stretch no box accounts for (media data whose
    // header was lost, as after lost first sectors).
    std::vector<std::pair<int64_t, int64_t>> regions;
    // The largest "mdat" payload; without any, the largest stretch no box accounts for.
    int64_t mediaBegin = 0;
    int64_t mediaEnd = 0;
    bool mdatFound = false;

    bool HasMedia() const { return !regions.empty(); }
    int64_t MediaBytes() const;
    const FoundBox *Find(uint32_t type) const;
};

constexpr uint32_t FourCC(const char (&s)[5])
{
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) | (uint32_t(uint8_t(s[2])) << 8) |
           uint32_t(uint8_t(s[3]));
}

// Walks the top-level boxes as far as they are intact, then searches the rest for the type codes
// of top-level boxes whose sizes fit, and picks the media data.
MediaLayout FindMediaData(const ByteSource &source);
