#pragma once

#include "repair/AvOwners.h"

#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

struct TrackDescription;

// Finds the frames of one audio track in bare media data.
class AudioFramer
{
public:
    // The framer for the track's codec (AAC, MP3 or MPEG audio layer 2); null for other codecs or
    // when the track's decoder cannot be opened.
    static std::unique_ptr<AudioFramer> For(const TrackDescription &track);
    virtual ~AudioFramer() = default;

    // The longest frame of the track, in bytes.
    virtual int Largest() const = 0;
    // A cheap first test of the bytes at `data`: whether a frame of this track may start there.
    virtual bool MayStart(const uint8_t *data, int size) const = 0;
    // The same test where the walk looks for the track again past damage: as strict as it can be
    // made, since every position that passes costs a trial.
    virtual bool MayResume(const uint8_t *data, int size) const { return MayStart(data, size); }
    // The lengths of the frames that follow one another from the start of [data, data+size). A frame
    // cut off by the end of the stretch is not among them. *rest is set to the bytes after the
    // frames (0 when they tile the stretch). By default, frame after frame as FrameAt finds them.
    virtual std::vector<int> Split(const uint8_t *data, int size, int *rest);
    // The length of the frame at data, or 0 when no frame of at most `size` bytes is there.
    virtual int FrameAt(const uint8_t *data, int size) = 0;
    // Whether a frame starts at data: FrameAt without its length where that is cheaper.
    virtual bool StartsFrame(const uint8_t *data, int size) { return FrameAt(data, size) > 0; }
    // The bytes of the frame at data that are a transport header, not kept when the frame is stored.
    virtual int HeaderLength(const uint8_t *, int) const { return 0; }
};

// Raw AAC frames, as an MP4 file stores them (no sync word, no length). FFmpeg's decoder is the
// judge: handed several frames as one packet it decodes them one after another and reports, with
// each frame, how many bytes of the packet were left when it began (AVFrame::pkt_size), so one
// decode of a stretch gives every boundary in it. Where a frame is followed by bytes that do not
// decode, its length is found by bisection: the shortest prefix of it that decodes.
class AacFramer : public AudioFramer
{
public:
    explicit AacFramer(const TrackDescription &track);
    ~AacFramer() override;
    AacFramer(const AacFramer &) = delete;
    AacFramer &operator=(const AacFramer &) = delete;

    bool IsOpen() const { return m_decoder != nullptr; }
    int Largest() const override { return m_largest; }
    // The first bytes the reference's frames began with, or those of the first channel element
    // the track's channel layout calls for, or of the fill and data elements that may lead it.
    bool MayStart(const uint8_t *data, int size) const override
    {
        return size > 0 && (m_first.test(data[0]) || m_leading.test(data[0]));
    }
    bool MayResume(const uint8_t *data, int size) const override { return size > 0 && m_first.test(data[0]); }
    std::vector<int> Split(const uint8_t *data, int size, int *rest) override;
    int FrameAt(const uint8_t *data, int size) override;
    bool StartsFrame(const uint8_t *data, int size) override;

private:
    // Decodes [data, data+size) as one packet; the pkt_size of each frame decoded, in order, and
    // whether an error ended the decode. At most `frames` frames are decoded.
    std::vector<int> Decode(const uint8_t *data, int size, bool *error, size_t frames = SIZE_MAX);
    bool Decodes(const uint8_t *data, int size);
    bool Reserve(int size);

    CodecPtr m_decoder;
    PacketPtr m_packet;
    FramePtr m_frame;
    std::bitset<256> m_first;
    std::bitset<256> m_leading;
    int m_largest = 0;  // the longest frame, in bytes
    int m_capacity = 0; // of m_packet's buffer
};

// MPEG audio (MP3, layer 2) frames: each begins with a header that gives its length. A frame
// counts only when its header agrees with the track (version, layer, sample rate).
class MpegAudioFramer : public AudioFramer
{
public:
    explicit MpegAudioFramer(const TrackDescription &track);
    int Largest() const override { return 2881; } // layer 3, 320 kb/s at 8 kHz, padded
    bool MayStart(const uint8_t *data, int size) const override { return Length(data, size) > 0; }
    int FrameAt(const uint8_t *data, int size) override;

private:
    // The frame length its header at data gives, or 0 when none of this track's is there.
    int Length(const uint8_t *data, int size) const;

    int m_layer;
    int m_sampleRate;
};

// AAC frames with ADTS headers (ISO/IEC 13818-7, 6.2), as some recorders store them: each header
// gives the frame's length; the header itself is left out of the stored sample.
class AdtsFramer : public AudioFramer
{
public:
    explicit AdtsFramer(const TrackDescription &track);
    int Largest() const override { return 8191; }
    bool MayStart(const uint8_t *data, int size) const override { return Length(data, size) > 0; }
    int FrameAt(const uint8_t *data, int size) override;
    int HeaderLength(const uint8_t *data, int size) const override;

private:
    int Length(const uint8_t *data, int size) const;

    int m_rateIndex;
    int m_channels;
};

// What an ADTS header says; false when the 7 bytes at data are not one (or it holds more than one
// raw data block).
struct AdtsHeader
{
    int profile = 0; // audio object type - 1
    int rateIndex = 0;
    int channels = 0;
    int length = 0;  // the whole frame, header included
    int header = 7;  // 9 with a CRC
};
bool ParseAdtsHeader(const uint8_t *data, int size, AdtsHeader *header);

// What an MPEG audio frame header says.
struct MpegAudioHeader
{
    int layer = 0;      // 1, 2 or 3
    int version = 0;    // 1 (MPEG-1), 2 (MPEG-2) or 25 (MPEG-2.5)
    int sampleRate = 0;
    int channels = 0;
    int length = 0;     // bytes, header included
    int samples = 0;    // per frame
};
// Parses the four bytes at data; false when they are not a valid header.
bool ParseMpegAudioHeader(const uint8_t *data, int size, MpegAudioHeader *header);
