#pragma once

#include <cstdint>
#include <memory>

struct TrackDescription;

// Finds the pictures of one video track in bare media data.
class PictureMatcher
{
public:
    struct Unit
    {
        int64_t size = 0; // 0: no picture starts here
        bool key = false; // a picture a decoder can start from
    };

    // The matcher for the track's codec (H.264, HEVC, MPEG-4 Part 2), or null. Pictures larger than
    // `largest` bytes are not taken.
    static std::unique_ptr<PictureMatcher> For(const TrackDescription &track, int64_t largest);
    virtual ~PictureMatcher() = default;

    // The picture that starts at `data`, of which `available` bytes are at hand.
    virtual Unit Match(const uint8_t *data, int64_t available) const = 0;
    // A cheap first test: whether a picture may start at `data`. Match decides.
    virtual bool MayStart(const uint8_t *data, int64_t available) const = 0;
    // Whether a picture starts at `data` but runs past the `available` bytes: a picture cut off by
    // the end of a recording.
    virtual bool CutOffAt(const uint8_t *data, int64_t available) const = 0;
    // True when a picture carries no length and runs on to the next start code, through whatever
    // sound lies between: the walker finds where the sound begins.
    virtual bool RunsToNextStartCode() const { return false; }
};
