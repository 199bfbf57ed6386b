#pragma once

#include "repair/AvOwners.h"

#include <bitset>
#include <cstdint>
#include <vector>

struct TrackDescription;

// Splits a stretch of raw AAC frames, as an MP4 file stores them (no sync word, no length), into
// its frames. FFmpeg's decoder is the judge: handed several frames as one packet it decodes them one
// after another and reports, with each frame, how many bytes of the packet were left when it began
// (AVFrame::pkt_size), so one decode of a stretch gives every boundary in it. Where a frame is
// followed by bytes that do not decode, the length of that frame is found by bisection: the
// shortest prefix of it that decodes.
class AudioFramer
{
public:
    explicit AudioFramer(const TrackDescription &track);
    ~AudioFramer();
    AudioFramer(const AudioFramer &) = delete;
    AudioFramer &operator=(const AudioFramer &) = delete;
    bool IsOpen() const { return m_decoder != nullptr; }
    // The longest frame of the track, in bytes.
    int Largest() const { return m_largest; }

    // Whether a frame of this track may start with this byte: the first bytes the reference's
    // frames began with, or every byte a frame of its channel layout can begin with.
    bool MayStart(uint8_t first) const { return m_first.test(first); }

    // The lengths of the frames that decode one after another from the start of [data, data+size).
    // A frame cut off by the end of the stretch does not decode and is not among them. *rest is set
    // to the bytes after the frames (0 when they tile the stretch).
    std::vector<int> Split(const uint8_t *data, int size, int *rest);

    // The length of the frame at data, or 0 when no frame of at most `size` bytes decodes there.
    int FrameAt(const uint8_t *data, int size);
    // Whether a frame decodes at data: FrameAt without finding its length, for one decode.
    bool StartsFrame(const uint8_t *data, int size);

private:
    // Decodes [data, data+size) as one packet; the pkt_size of each frame decoded, in order, and
    // whether an error ended the decode.
    std::vector<int> Decode(const uint8_t *data, int size, bool *error);
    bool Decodes(const uint8_t *data, int size);
    bool Reserve(int size);

    CodecPtr m_decoder;
    PacketPtr m_packet;
    FramePtr m_frame;
    std::bitset<256> m_first;
    int m_largest;      // the longest frame, in bytes
    int m_capacity = 0; // of m_packet's buffer
};
