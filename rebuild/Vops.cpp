#include "rebuild/Vops.h"

#include "rebuild/AccessUnits.h"
#include "rebuild/TrackDescription.h"

#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

constexpr uint8_t VopCode = 0xb6;
constexpr uint8_t UserDataCode = 0xb2;

// The longest header of each kind: a video object layer with both quantiser matrices is under 200
// bytes, the others a few; an encoder's user data (its name and settings) may be longer.
int64_t LongestHeader(uint8_t code)
{
    return code == UserDataCode ? 4096 : 256;
}

// Start codes that may lead a VOP within its sample.
bool LeadsVop(uint8_t code)
{
    return code <= 0x2f      // video object, video object layer
           || code == 0xb0   // visual object sequence
           || code == 0xb2   // user data
           || code == 0xb3   // group of VOPs
           || code == 0xb5;  // visual object
}

bool StartCodeAt(const uint8_t *p, int64_t available)
{
    return available >= 4 && p[0] == 0 && p[1] == 0 && p[2] == 1;
}

} // namespace

int64_t NextStartCode(const uint8_t *data, int64_t from, int64_t available)
{
    for (int64_t at = from; at + 3 <= available;) {
        const void *zero = std::memchr(data + at, 0, size_t(available - at - 2));
        if (!zero)
            break;
        at = static_cast<const uint8_t *>(zero) - data;
        if (data[at + 1] == 0 && data[at + 2] == 1)
            return at;
        ++at;
    }
    return available;
}

int64_t HeadersAt(const uint8_t *data, int64_t available)
{
    int64_t at = 0;
    bool layer = false;
    while (StartCodeAt(data + at, available - at) && data[at + 3] != VopCode && data[at + 3] != 0xb3 &&
           LeadsVop(data[at + 3])) {
        const uint8_t code = data[at + 3];
        const int64_t next = NextStartCode(data, at + 4, available);
        if (next - at > LongestHeader(code))
            return 0;
        layer = layer || (code >= 0x20 && code <= 0x2f);
        at = next;
    }
    return layer ? at : 0;
}

bool VopMatcher::MayStart(const uint8_t *data, int64_t available) const
{
    return StartCodeAt(data, available) && (data[3] == VopCode || LeadsVop(data[3]));
}

PictureMatcher::Unit VopMatcher::Match(const uint8_t *data, int64_t available) const
{
    Unit unit;
    if (available > m_largest)
        available = m_largest;
    int64_t at = 0;
    while (StartCodeAt(data + at, available - at) && data[at + 3] != VopCode) {
        const uint8_t code = data[at + 3];
        const int64_t next = LeadsVop(code) ? NextStartCode(data, at + 4, available) : available;
        if (next - at > LongestHeader(code))
            return unit;
        at = next;
    }
    if (!StartCodeAt(data + at, available - at) || at + 5 > available)
        return unit;
    // vop_coding_type: 0 intra, 1 predicted, 2 bidirectional, 3 sprite.
    unit.key = (data[at + 4] >> 6) == 0;
    unit.size = NextStartCode(data, at + 4, available);
    // A VOP that runs to the end of the bytes at hand may be cut off there; the walker judges.
    return unit;
}

bool VopMatcher::CutOffAt(const uint8_t *data, int64_t available) const
{
    return MayStart(data, available) && NextStartCode(data, 4, available) == available;
}

std::unique_ptr<PictureMatcher> PictureMatcher::For(const TrackDescription &t, int64_t largest)
{
    const AVCodecParameters *p = t.params.get();
    switch (t.Codec()) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
        if (t.nalLengthSize <= 0)
            return nullptr;
        return std::make_unique<AccessUnitMatcher>(
            t.Codec(), t.nalLengthSize, largest,
            PpsIdsOf(t.Codec(), ParameterSetsOf(t.Codec(), p->extradata, p->extradata_size)));
    case AV_CODEC_ID_MPEG4:
        return std::make_unique<VopMatcher>(largest);
    default:
        return nullptr;
    }
}
