#pragma once

#include "rebuild/PictureMatcher.h"

// MPEG-4 Part 2 video (ISO/IEC 14496-2) in bare media data: a sample is the headers that may lead
// a picture (visual object sequence, visual object, video object layer, group of VOPs, user data)
// and one video object plane (VOP), each behind a start code 00 00 01 xx. A VOP carries no length:
// it runs to the next start code.
class VopMatcher : public PictureMatcher
{
public:
    explicit VopMatcher(int64_t largest) : m_largest(largest) {}

    // Key pictures are intra-coded VOPs.
    Unit Match(const uint8_t *data, int64_t available) const override;
    bool MayStart(const uint8_t *data, int64_t available) const override;
    bool CutOffAt(const uint8_t *data, int64_t available) const override;
    bool RunsToNextStartCode() const override { return true; }

private:
    int64_t m_largest;
};

// The position of the next start code (00 00 01) at or after `from`, or `available`.
int64_t NextStartCode(const uint8_t *data, int64_t from, int64_t available);
// The length of the headers (visual object sequence through video object layer, and user data) at
// the start of [data, data+available), start codes included, up to a group of VOPs or a VOP: a
// decoder configuration. 0 when no video object layer header is among them.
int64_t HeadersAt(const uint8_t *data, int64_t available);
