#pragma once

// State of the re-encoding pass: one set for the whole process, reused file after file by the
// repair worker's thread (only one repair runs at a time). The pass releases every object after
// each file; a stop that leaves the pass early leaves them to the next file or run, which releases
// them before it opens anything.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>

namespace Pipeline {

// Input side.
extern AVFormatContext *fmt_ctx;
extern int audio_stream_index;
extern int videoStreamIndex;
extern AVCodecContext *codec_ctx_audio;   // our own decoder context for the input audio stream
extern const AVCodec *codec_audio;
extern SwrContext *swr;
extern uint8_t **audio_dst_data;           // planes of the samples converted from the last frame
extern int audio_dst_linesize;
extern int audio_dst_bufsize;
extern int audio_bit_rate;
extern int audio_sample_rate;
extern int audio_channels;
extern int Audio_Smple_fmt;
extern AVChannelLayout Audiochannel_layout;
extern AVPacket *input_packet;
extern int got_frame;
extern AVStream *inStream;
extern const AVCodec *decoder;
extern AVCodecContext *videoDecoderCtx;   // our own decoder context for inStream

// Output side.
extern AVFormatContext *output_fmt_ctx;
extern const AVOutputFormat *output_format;
extern AVStream *audio_st;
extern const AVCodec *audio_codec;
extern AVCodecContext *audioEncoderCtx;   // encoder context of audio_st
extern int audio_input_frame_size;
extern AVStream *outStream;
extern const AVCodec *encoder;             // null: no video encoder, the file is not transcoded
extern AVCodecContext *videoEncoderCtx;   // encoder context of outStream
extern int audioFrameCount;
extern bool m_WriteFrame;                  // set by the first flushed audio packet written; never cleared.
                                           // It no longer gates the trailer (see ReEncodePass.cpp)
extern bool bVideo;
extern bool bAudio;
extern double audio_pts;

// Added for the send/receive API and the muxer of FFmpeg 5.1.
extern bool headerWritten;                 // the output's header was written: it may be filled and kept
extern AVAudioFifo *audioFifo;             // converted samples waiting for a whole encoder frame
extern int64_t audioSamplesQueued;         // samples handed to the audio encoder so far: the next pts
extern int64_t videoFrameNumber;           // pts of the next converted picture, in the codec time base
extern int64_t lastAudioPts;               // pts of the last audio packet written, in audio_st's time base
extern SwsContext *img_convert_ctx_in;
extern int64_t progressStep; // bytes of input between two progress reports
extern int64_t nextProgress; // byte position from which progress is reported again

// What the pass did with the current file, for the verdict on its output.
extern int64_t videoFramesDecoded;         // pictures the video decoder returned
extern int64_t videoFramesSent;            // pictures handed to the encoder, repeats that fill gaps included
extern int64_t videoPacketsWritten;        // video packets the muxer took
extern int64_t audioPacketsWritten;        // audio packets the muxer took
extern int64_t packetsRefused;             // input packets a decoder refused, and frames an encoder refused
extern int64_t writesRefused;              // encoded packets the muxer refused

// Releases every object of the current file and clears the per-file state. m_WriteFrame and
// audioFrameCount are process-wide and survive.
void Release();

} // namespace Pipeline
