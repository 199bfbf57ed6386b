#pragma once

#include "rebuild/SampleWalker.h"
#include "rebuild/TrackDescription.h"

#include <QByteArray>

#include <deque>
#include <memory>
#include <vector>

struct AVCodecContext;
struct AVCodecParserContext;
struct AVFormatContext;
struct AVPacket;

// The order in which pictures are shown, from their picture order counts (POC) in decoding order:
// a picture's slot is its place on the time line, counted in pictures. The POC restarts at each
// IDR picture, which begins a new epoch; within an epoch, slots follow the POC in steps of the
// stream's POC increment (2 for H.264 frames, 1 for HEVC).
class PresentationOrder
{
public:
    // The slot of the next picture in decoding order. `step` must be known before the first call.
    int64_t Next(int poc, bool key);
    void SetStep(int step) { m_step = step > 0 ? step : 1; }

    // The POC increment of a run of POCs in decoding order (the greatest common divisor of their
    // differences within each epoch).
    static int StepOf(const std::vector<std::pair<int, bool>> &pocAndKey);

private:
    int m_step = 1;
    int64_t m_index = 0;
    bool m_started = false;
    int64_t m_epochBase = 0;
    int m_epochFirst = 0;
    int m_epochMax = 0;
    int64_t m_maxSlot = -1;
};

// Writes walked samples as packets through libavformat's muxer, which writes the index. Video
// pictures get their decoding time from their order and their presentation time from their POC;
// audio frames follow one another. The first pictures are held back until the depth of the
// stream's reordering is known.
class SourceWindow;

class IndexWriter
{
public:
    explicit IndexWriter(const Description &description);
    ~IndexWriter();
    IndexWriter(const IndexWriter &) = delete;
    IndexWriter &operator=(const IndexWriter &) = delete;

    // Makes `path` afresh in the container `format` ("mov", "mp4", "ipod", "f4v"). Samples that
    // lie in `source`'s mapping when they are added are copied from its file by the kernel.
    bool Open(const QByteArray &path, const char *format, const SourceWindow *source = nullptr);
    bool Add(const WalkedSample &sample, const uint8_t *data);
    // Writes what is held back and the index; false when the file could not be finished.
    bool Finish();

    int64_t Written(int track) const;
    // The longest track's length, in seconds.
    double Seconds() const;

private:
    struct Pending
    {
        AVPacket *packet;
        int track;
        int poc;
        bool key;
    };
    bool Write(AVPacket *packet, int track, int64_t slot, bool key);
    bool Release();

    const Description &m_description;
    AVFormatContext *m_out = nullptr;
    std::vector<int> m_stream;   // track -> output stream, -1 when not written
    std::vector<int64_t> m_count; // samples written per track
    std::vector<int64_t> m_end;   // end of each track, in its time base
    AVCodecParserContext *m_parser = nullptr;
    AVCodecContext *m_parserCtx = nullptr;
    PresentationOrder m_order;
    std::deque<Pending> m_pending;
    AVPacket *m_borrowed = nullptr; // points into the walker's bytes while it is written
    bool m_holding = true;
    int64_t m_delay = 0;      // pictures by which decoding runs ahead of presentation
    int64_t m_videoIndex = 0;    // pictures written
    int64_t m_picturesAdded = 0; // pictures handed in
    bool m_failed = false;
};
