#pragma once

#include "rebuild/PictureMatcher.h"

#include <cstdint>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

// Finds the pictures of an H.264 or HEVC stream in length-prefixed media data (ISO/IEC 14496-15):
// an access unit is the NAL units from its leading parameter sets, delimiter or SEI through the
// slices of one picture. A picture begins with a slice whose first_mb_in_slice is 0 (H.264) or whose
// first_slice_segment_in_pic_flag is set (HEVC); what follows it belongs to it only while it is
// another slice of the same picture or a NAL unit that may trail one.
class AccessUnitMatcher : public PictureMatcher
{
public:
    // `ppsIds` are the picture parameter sets the stream may refer to; empty allows any.
    AccessUnitMatcher(AVCodecID codec, int lengthSize, int64_t largestUnit, std::vector<uint32_t> ppsIds = {});

    // The access unit that starts at `data`, of which `available` bytes are at hand. A unit whose
    // last NAL units are cut off by the end of the bytes ends before them.
    Unit Match(const uint8_t *data, int64_t available) const;
    // A cheap first test of the bytes at `data`: whether a NAL unit that can begin a picture starts
    // there. Match decides.
    bool MayStart(const uint8_t *data, int64_t available) const;

    // Whether a NAL unit that can begin a picture starts at `data` but runs past the `available`
    // bytes: a picture cut off by the end of a recording.
    bool CutOffAt(const uint8_t *data, int64_t available) const;

    int LengthSize() const { return m_lengthSize; }
    AVCodecID Codec() const { return m_codec; }

private:
    enum class Role { Invalid, Leading, Slice, Trailing };
    struct Nal
    {
        Role role = Role::Invalid;
        bool firstSlice = false; // begins a picture
        bool key = false;
        int type = -1;
    };
    Nal Classify(const uint8_t *nal, int64_t size) const;
    bool KnownPps(uint32_t id) const;

    AVCodecID m_codec;
    int m_lengthSize;
    int64_t m_largest;
    std::vector<uint32_t> m_pps;
};

// The picture parameter set ids of parameter-set NAL units.
std::vector<uint32_t> PpsIdsOf(AVCodecID codec, const std::vector<std::vector<uint8_t>> &parameterSets);
