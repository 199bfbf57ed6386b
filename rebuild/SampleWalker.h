#pragma once

#include "rebuild/PictureMatcher.h"
#include "rebuild/AudioFramer.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class SourceWindow;
struct Description;

// One sample found in bare media data.
struct WalkedSample
{
    int track = -1;     // index into the description's tracks
    int64_t offset = 0; // where its bytes start in the file
    int64_t size = 0;
    bool key = false;   // a picture a decoder can start from
    int header = 0;     // leading bytes that are not part of the sample as it is stored (an ADTS header)
};

struct WalkStats
{
    std::vector<int64_t> samples; // per track
    int64_t skippedBytes = 0;     // bytes that fit no track
    int skips = 0;                // stretches of them
};

// Walks media data sample by sample with the tracks of a description: at each position the
// pictures of the video track (which carry their own lengths) are tried first, then a stretch of
// audio frames up to the next picture. Every sample must be followed by something plausible: another
// sample or the end of the data. Bytes that fit no track (zeros, garbage, the samples of a timecode
// or metadata track) are skipped up to the next plausible sample, and counted.
class SampleWalker
{
public:
    // Returns false to stop the walk.
    using Sink = std::function<bool(const WalkedSample &, const uint8_t *data)>;
    using Progress = std::function<void(int64_t position)>;

    SampleWalker(const Description &description, SourceWindow &window);
    ~SampleWalker();

    WalkStats Walk(int64_t begin, int64_t end, const Sink &sink, const std::atomic<bool> *stop = nullptr,
                   const Progress &progress = {});

private:
    // The picture at pos when one starts there and is followed by something plausible; size 0 if not.
    PictureMatcher::Unit PictureAt(int64_t pos, int64_t end);
    // Whether a sample of some track starts at pos (or the data ends there). Cheap for pictures;
    // for audio, one decode.
    bool SampleFollows(int64_t pos, int64_t end);
    // The first picture in [from, limit), or limit.
    int64_t NextPicture(int64_t from, int64_t limit, int64_t end);
    // The first position in [from, end) where a sample of some track starts, or end.
    int64_t Resync(int64_t from, int64_t end);
    bool AudioStartsAt(int64_t pos, int64_t end, bool confirm);
    // For pictures that run to the next start code: where sound begins inside the `size` bytes of
    // the picture at pos (frames that fill the rest exactly), or `size`.
    int64_t PictureEnd(int64_t pos, int64_t size, int64_t end);

    SourceWindow &m_window;
    int m_video = -1;
    int m_audio = -1;
    std::unique_ptr<PictureMatcher> m_matcher;
    std::unique_ptr<AudioFramer> m_framer;
    int64_t m_largestPicture = 0;
    int m_largestAudio = 0;
    // PictureAt's last answer: the walk asks again at the picture NextPicture has just found, and
    // the answer (a trial decode of the sound after it, often) cannot have changed.
    int64_t m_lastPictureAt = -1, m_lastPictureEnd = -1;
    PictureMatcher::Unit m_lastPicture;
};
