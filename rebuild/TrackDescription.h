#pragma once

#include <QString>
#include <QStringList>

#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

struct AVCodecParameters;

// What the rebuild must know of one track to find its samples in bare media data and to write them
// back with an index: its codec parameters (with the avcC / hvcC / AudioSpecificConfig that the
// samples need to decode), its time scale and the length of one sample.
struct TrackDescription
{
    AVMediaType type = AVMEDIA_TYPE_UNKNOWN;
    std::shared_ptr<AVCodecParameters> params; // owns a deep copy, extradata included
    AVRational timeBase{1, 1};                 // the unit of the track's time stamps
    int64_t sampleDuration = 0;                // one picture, or one audio frame, in timeBase
    int nalLengthSize = 0;                     // H.264 / HEVC: bytes of each NAL unit's length prefix
    int64_t largestSample = 0;                 // the largest sample seen, 0 when none was
    std::bitset<256> firstBytes;               // audio: the first bytes its samples began with
    unsigned codecTag = 0;                     // the sample entry's type, kept when the container knows it
    bool adts = false;                         // AAC frames found with ADTS headers, which are not kept

    AVCodecID Codec() const;
    bool IsVideo() const { return type == AVMEDIA_TYPE_VIDEO; }
    // The largest sample the walker accepts for this track.
    int64_t SampleLimit() const;
};

// The tracks a damaged file is rebuilt with, and where they were learned.
struct Description
{
    QString origin;            // the reference's file name; empty for the file's own description
    std::vector<TrackDescription> tracks;
    QStringList assumptions;   // values that had to be assumed, as the report words them

    const TrackDescription *Video() const;
    const TrackDescription *Audio() const;
    bool Usable() const { return Video() || Audio(); }
    // Two descriptions with equal keys rebuild a file in the same way.
    QByteArray Key() const;
};

// Codecs whose samples the walker can find without an index.
bool CanWalk(AVCodecID codec);

// Learns the video and audio tracks of a healthy recording. A track whose codec the walker cannot
// find is left out; `why` says what was wrong when nothing usable was learned.
Description LearnFromReference(const QString &path, QString *why = nullptr);

// The NAL units held in an avcC or hvcC record (parameter sets), without their length prefixes.
std::vector<std::vector<uint8_t>> ParameterSetsOf(AVCodecID codec, const uint8_t *extradata, int size);
// The length-prefix size an avcC / hvcC record declares; 0 when the record is not one.
int NalLengthSizeOf(AVCodecID codec, const uint8_t *extradata, int size);
