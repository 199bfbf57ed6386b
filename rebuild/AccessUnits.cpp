#include "rebuild/AccessUnits.h"

#include "rebuild/Bits.h"

#include <algorithm>

namespace {

// NAL units that lead no picture in practice: more than this in a row is not a stream.
constexpr int MaxLeadingUnits = 32;

int64_t LengthAt(const uint8_t *p, int size)
{
    int64_t n = 0;
    for (int i = 0; i < size; ++i)
        n = (n << 8) | p[i];
    return n;
}

} // namespace

AccessUnitMatcher::AccessUnitMatcher(AVCodecID codec, int lengthSize, int64_t largestUnit, std::vector<uint32_t> ppsIds)
    : m_codec(codec), m_lengthSize(lengthSize), m_largest(largestUnit), m_pps(std::move(ppsIds))
{
}

bool AccessUnitMatcher::KnownPps(uint32_t id) const
{
    return m_pps.empty() || std::find(m_pps.begin(), m_pps.end(), id) != m_pps.end();
}

AccessUnitMatcher::Nal AccessUnitMatcher::Classify(const uint8_t *p, int64_t size) const
{
    Nal nal;
    if (m_codec == AV_CODEC_ID_H264) {
        if (size < 2 || (p[0] & 0x80))
            return nal;
        const int refIdc = p[0] >> 5, type = p[0] & 0x1f;
        nal.type = type;
        switch (type) {
        case 1:
        case 5: {
            if (type == 5 && refIdc == 0)
                return nal;
            BitReader bits(p + 1, size_t(std::min<int64_t>(size - 1, 16)));
            const uint32_t firstMb = bits.Ue();
            const uint32_t sliceType = bits.Ue();
            const uint32_t pps = bits.Ue();
            // An IDR picture holds I or SI slices only.
            if (bits.Overrun() || sliceType > 9 || !KnownPps(pps) ||
                (type == 5 && sliceType % 5 != 2 && sliceType % 5 != 4))
                return nal;
            nal.role = Role::Slice;
            nal.firstSlice = firstMb == 0;
            nal.key = type == 5;
            return nal;
        }
        case 6:
        case 9:
            nal.role = refIdc == 0 && (type != 9 || size <= 3) ? Role::Leading : Role::Invalid;
            return nal;
        case 7:
        case 8:
        case 13:
        case 15:
            nal.role = refIdc != 0 ? Role::Leading : Role::Invalid;
            return nal;
        case 14:
            nal.role = Role::Leading;
            return nal;
        case 10:
        case 11:
        case 12:
            nal.role = refIdc == 0 ? Role::Trailing : Role::Invalid;
            return nal;
        default:
            return nal;
        }
    }
    // HEVC: forbidden bit, six bits of type, six of layer (0 in the streams we rebuild), three of
    // temporal id plus one (never 0).
    if (size < 3 || (p[0] & 0x80))
        return nal;
    const int type = (p[0] >> 1) & 0x3f;
    const int layer = ((p[0] & 1) << 5) | (p[1] >> 3);
    const int temporalPlus1 = p[1] & 7;
    nal.type = type;
    if (layer != 0 || temporalPlus1 == 0)
        return nal;
    if (type <= 9 || (type >= 16 && type <= 21)) {
        const bool irap = type >= 16;
        if (irap && temporalPlus1 != 1)
            return nal;
        BitReader bits(p + 2, size_t(std::min<int64_t>(size - 2, 16)));
        const bool first = bits.Bit();
        if (irap)
            bits.Bit(); // no_output_of_prior_pics_flag
        const uint32_t pps = bits.Ue();
        if (bits.Overrun() || pps > 63 || (first && !KnownPps(pps)))
            return nal;
        nal.role = Role::Slice;
        nal.firstSlice = first;
        nal.key = irap;
        return nal;
    }
    switch (type) {
    case 32:
    case 33:
    case 34:
        nal.role = temporalPlus1 == 1 || type == 34 ? Role::Leading : Role::Invalid;
        return nal;
    case 35:
    case 39:
        nal.role = Role::Leading;
        return nal;
    case 36:
    case 37:
    case 38:
    case 40:
        nal.role = Role::Trailing;
        return nal;
    default:
        return nal;
    }
}

bool AccessUnitMatcher::MayStart(const uint8_t *data, int64_t available) const
{
    if (available < m_lengthSize + 2)
        return false;
    const int64_t n = LengthAt(data, m_lengthSize);
    if (n < 2 || n > m_largest || n > available - m_lengthSize)
        return false;
    const Nal nal = Classify(data + m_lengthSize, n);
    return nal.role == Role::Leading || (nal.role == Role::Slice && nal.firstSlice);
}

bool AccessUnitMatcher::CutOffAt(const uint8_t *data, int64_t available) const
{
    if (available < m_lengthSize + 2)
        return available > 0;
    const int64_t n = LengthAt(data, m_lengthSize);
    if (n < 2 || n > m_largest || n <= available - m_lengthSize)
        return false;
    const Nal nal = Classify(data + m_lengthSize, available - m_lengthSize);
    return nal.role == Role::Leading || (nal.role == Role::Slice && nal.firstSlice);
}

PictureMatcher::Unit AccessUnitMatcher::Match(const uint8_t *data, int64_t available) const
{
    Unit unit;
    int64_t pos = 0;
    bool picture = false;
    int leading = 0;
    int sliceType = -1;
    while (pos + m_lengthSize <= available) {
        const int64_t n = LengthAt(data + pos, m_lengthSize);
        if (n < 2 || n > m_largest || n > available - pos - m_lengthSize || pos + m_lengthSize + n > m_largest)
            break;
        const Nal nal = Classify(data + pos + m_lengthSize, n);
        if (!picture) {
            if (nal.role == Role::Leading) {
                // A delimiter, when there is one, comes first.
                const bool delimiter = (m_codec == AV_CODEC_ID_H264 && nal.type == 9) ||
                                       (m_codec == AV_CODEC_ID_HEVC && nal.type == 35);
                if ((delimiter && pos != 0) || ++leading > MaxLeadingUnits)
                    return Unit();
            } else if (nal.role == Role::Slice && nal.firstSlice) {
                picture = true;
                unit.key = nal.key;
                sliceType = nal.type;
            } else {
                return Unit();
            }
        } else if (nal.role == Role::Slice && !nal.firstSlice) {
            // Slices of one H.264 picture are all IDR or all not.
            if (m_codec == AV_CODEC_ID_H264 && nal.type != sliceType)
                break;
        } else if (nal.role != Role::Trailing) {
            break; // the next picture, or bytes of something else
        }
        pos += m_lengthSize + n;
    }
    if (!picture)
        return Unit();
    unit.size = pos;
    return unit;
}

std::vector<uint32_t> PpsIdsOf(AVCodecID codec, const std::vector<std::vector<uint8_t>> &parameterSets)
{
    std::vector<uint32_t> ids;
    for (const std::vector<uint8_t> &nal : parameterSets) {
        const bool h264 = codec == AV_CODEC_ID_H264;
        const size_t header = h264 ? 1 : 2;
        if (nal.size() <= header)
            continue;
        const int type = h264 ? (nal[0] & 0x1f) : ((nal[0] >> 1) & 0x3f);
        if (type != (h264 ? 8 : 34))
            continue;
        BitReader bits(nal.data() + header, nal.size() - header);
        const uint32_t id = bits.Ue();
        if (!bits.Overrun())
            ids.push_back(id);
    }
    return ids;
}
