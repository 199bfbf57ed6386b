// The FFmpeg routines of the re-encoding pass: open the input and its decoders, set up an output of
// the same container type with re-encoded video and audio, decode and convert packet by packet, and
// drain and flush everything at the end. Damage is skipped as the ffmpeg command skips it: a packet a
// decoder refuses and a frame an encoder refuses are dropped and the file goes on, and pictures keep
// their place in time, a gap left by lost pictures being filled by repeating the picture before it
// (as ffmpeg's constant-frame-rate output does) and a gap in the sound by silence. Diagnostics go to
// the standard streams only; none reaches the user.

#include "repair/AudioPipeline.h"
#include "repair/SafeFile.h"
#include "repair/ThreadVideoRepair.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Pipeline {

AVFormatContext *fmt_ctx = nullptr;
int audio_stream_index = -1;
int videoStreamIndex = -1;
AVCodecContext *codec_ctx_audio = nullptr;
const AVCodec *codec_audio = nullptr;
SwrContext *swr = nullptr;
uint8_t **audio_dst_data = nullptr;
int audio_dst_linesize = 0;
int audio_dst_bufsize = 0;
int audio_bit_rate = 0;
int audio_sample_rate = 0;
int audio_channels = 0;
int Audio_Smple_fmt = AV_SAMPLE_FMT_NONE;
AVChannelLayout Audiochannel_layout = {};
AVPacket *input_packet = nullptr;
int got_frame = 0;
AVStream *inStream = nullptr;
const AVCodec *decoder = nullptr;
AVCodecContext *videoDecoderCtx = nullptr;

AVFormatContext *output_fmt_ctx = nullptr;
const AVOutputFormat *output_format = nullptr;
AVStream *audio_st = nullptr;
const AVCodec *audio_codec = nullptr;
AVCodecContext *audioEncoderCtx = nullptr;
int audio_input_frame_size = 0;
AVStream *outStream = nullptr;
const AVCodec *encoder = nullptr;
AVCodecContext *videoEncoderCtx = nullptr;
int audioFrameCount = 0;
bool m_WriteFrame = false;
bool bVideo = false;
bool bAudio = false;
double audio_pts = 0.0;

bool headerWritten = false;
AVAudioFifo *audioFifo = nullptr;
int64_t audioSamplesQueued = 0;
int64_t videoFrameNumber = 0;
int64_t lastAudioPts = AV_NOPTS_VALUE;
SwsContext *img_convert_ctx_in = nullptr;
int64_t progressStep = 0;
int64_t nextProgress = 0;

int64_t videoFramesDecoded = 0;
int64_t videoFramesSent = 0;
int64_t videoPacketsWritten = 0;
int64_t audioPacketsWritten = 0;
int64_t packetsRefused = 0;
int64_t writesRefused = 0;

namespace {

// Where the current file's pictures and sound stand in time, counted from the input's first time
// stamp as the ffmpeg command counts them.
struct Timeline
{
    double origin = 0;              // the input's start time, in seconds
    double end = 0;                 // gaps are filled up to here (duration and a second); 0 unknown
    AVRational videoRate = {0, 1};  // the input's frame rate: the unit of picture positions
    int64_t audioSamplesIn = 0;     // samples converted into the FIFO so far, silence included
    AVFrame *lastPicture = nullptr; // the last converted picture, repeated to fill a gap
} timeline;

// A decoder that reports this many failed frames in a row has nothing more to give for now.
constexpr int MaxErrorsInARow = 64;
// Without a known duration, a gap is only filled up to this many seconds.
constexpr double UnboundedGapLimit = 5.0;

// What the resampler was last set up for; a decoded frame that differs gets a new set-up.
struct ResamplerSetup
{
    int inFormat = AV_SAMPLE_FMT_NONE;
    int inRate = 0;
    AVChannelLayout inLayout = {};
} resamplerSetup;

// Objects reused from packet to packet, so that the loop allocates nothing per packet or frame.
struct Scratch {
    AVFrame *videoIn = nullptr;       // pictures the video decoder returns
    AVFrame *audioIn = nullptr;       // sound the audio decoder returns
    AVFrame *audioOut = nullptr;      // sound handed to the audio encoder
    AVPacket *videoOut = nullptr;     // what the video encoder returns
    AVPacket *audioPacket = nullptr;  // what the audio encoder returns
    AVBufferPool *pictures = nullptr; // buffers of scaled pictures, in the output's geometry
    int convertedRoom = 0;            // samples each plane of audio_dst_data has room for
} scratch;

template <typename T, T *(*Alloc)()> T *Reused(T *&object)
{
    if (!object)
        object = Alloc();
    return object;
}

void FreeConvertedSamples()
{
    if (audio_dst_data) {
        av_freep(&audio_dst_data[0]);
        av_freep(&audio_dst_data);
    }
    audio_dst_bufsize = 0;
    scratch.convertedRoom = 0;
}

void FreeScratch()
{
    av_frame_free(&scratch.videoIn);
    av_frame_free(&scratch.audioIn);
    av_frame_free(&scratch.audioOut);
    av_packet_free(&scratch.videoOut);
    av_packet_free(&scratch.audioPacket);
    av_buffer_pool_uninit(&scratch.pictures);
    FreeConvertedSamples();
}

// A time stamp that points past the end of the file is damage, not a gap to fill.
bool WithinTimeline(double seconds, double reached)
{
    if (timeline.end > 0)
        return seconds <= timeline.end;
    return seconds - reached <= UnboundedGapLimit;
}

} // namespace

void Release()
{
    if (output_fmt_ctx) {
        CloseSafeOutput(output_fmt_ctx);
        avformat_free_context(output_fmt_ctx);
        output_fmt_ctx = nullptr;
    }
    avformat_close_input(&fmt_ctx);
    avcodec_free_context(&codec_ctx_audio);
    avcodec_free_context(&videoDecoderCtx);
    avcodec_free_context(&audioEncoderCtx);
    avcodec_free_context(&videoEncoderCtx);
    swr_free(&swr);
    av_channel_layout_uninit(&resamplerSetup.inLayout);
    resamplerSetup = ResamplerSetup();
    sws_freeContext(img_convert_ctx_in);
    img_convert_ctx_in = nullptr;
    av_audio_fifo_free(audioFifo);
    audioFifo = nullptr;
    FreeScratch();
    av_packet_free(&input_packet);
    av_channel_layout_uninit(&Audiochannel_layout);
    av_frame_free(&timeline.lastPicture);
    timeline = Timeline();

    codec_audio = nullptr;
    decoder = nullptr;
    audio_codec = nullptr;
    encoder = nullptr;
    output_format = nullptr;
    audio_st = nullptr;
    inStream = nullptr;
    outStream = nullptr;
    headerWritten = false;
    audioSamplesQueued = 0;
    videoFrameNumber = 0;
    lastAudioPts = AV_NOPTS_VALUE;
    progressStep = 0;
    nextProgress = 0;
    bVideo = false;
    bAudio = false;
    got_frame = 0;
    videoFramesDecoded = 0;
    videoFramesSent = 0;
    videoPacketsWritten = 0;
    audioPacketsWritten = 0;
    packetsRefused = 0;
    writesRefused = 0;
}

} // namespace Pipeline

using namespace Pipeline;

namespace {

// The input audio codecs the pass refuses: 16-bit and 8-bit PCM, mu-law, IMA ADPCM (QuickTime),
// QDesign Music 2 and QCELP.
bool IsRefusedAudio(AVCodecID id)
{
    switch (id) {
    case AV_CODEC_ID_PCM_S16LE:
    case AV_CODEC_ID_PCM_S16BE:
    case AV_CODEC_ID_PCM_U8:
    case AV_CODEC_ID_PCM_MULAW:
    case AV_CODEC_ID_ADPCM_IMA_QT:
    case AV_CODEC_ID_QDM2:
    case AV_CODEC_ID_QCELP:
        return true;
    default:
        return false;
    }
}

// Video codecs that are re-encoded as H.264 rather than with an encoder of their own kind.
bool GoesToH264(AVCodecID id)
{
    switch (id) {
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_SVQ1:
    case AV_CODEC_ID_SVQ3:
    case AV_CODEC_ID_DVVIDEO:
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_CINEPAK:
    case AV_CODEC_ID_QTRLE:
    case AV_CODEC_ID_TIFF:
        return true;
    default:
        return false;
    }
}

// 16-bit packed samples when the encoder takes them, otherwise its first sample format.
AVSampleFormat EncoderSampleFormat(const AVCodec *codec)
{
    if (!codec->sample_fmts)
        return AV_SAMPLE_FMT_S16;
    for (const AVSampleFormat *f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
        if (*f == AV_SAMPLE_FMT_S16)
            return AV_SAMPLE_FMT_S16;
    return codec->sample_fmts[0];
}

// Decoders skip damage as the ffmpeg command's "-err_detect ignore_err" asks them to.
void Lenient(AVCodecContext *ctx, const AVStream *st)
{
    ctx->err_recognition = AV_EF_IGNORE_ERR;
    ctx->pkt_timebase = st->time_base;
}

// A layout that only gives a channel count is taken as the usual layout for that count.
void UsualLayout(AVChannelLayout *to, const AVChannelLayout &from)
{
    if (from.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(to, from.nb_channels);
    else
        av_channel_layout_copy(to, &from);
}

// Room for `samples` converted samples in the encoder's format; false when it cannot be had. The
// room only grows, and is kept from frame to frame.
bool AllocConvertedSamples(int samples)
{
    if (audio_dst_data && samples <= scratch.convertedRoom)
        return true;
    const AVCodecContext *c = audioEncoderCtx;
    const int channels = c->ch_layout.nb_channels;
    const int planes = av_sample_fmt_is_planar(c->sample_fmt) ? channels : 1;
    FreeConvertedSamples();
    audio_dst_data = static_cast<uint8_t **>(av_calloc(planes > 0 ? planes : 1, sizeof(uint8_t *)));
    if (!audio_dst_data) {
        fprintf(stderr, "Could not allocate audio data buffers\n");
        return false;
    }
    if (av_samples_alloc(audio_dst_data, &audio_dst_linesize, channels, samples, c->sample_fmt, 1) < 0) {
        fprintf(stderr, "Could not allocate audio buffer\n");
        FreeConvertedSamples();
        return false;
    }
    scratch.convertedRoom = samples;
    return true;
}

// Puts what the resampler gave into the FIFO.
void QueueConverted(int converted)
{
    if (converted <= 0)
        return;
    const AVCodecContext *c = audioEncoderCtx;
    audio_dst_bufsize =
        av_samples_get_buffer_size(nullptr, c->ch_layout.nb_channels, converted, c->sample_fmt, 1);
    if (av_audio_fifo_write(audioFifo, reinterpret_cast<void **>(audio_dst_data), converted) == converted)
        timeline.audioSamplesIn += converted;
}

// Samples the resampler still holds (rate conversion keeps a few) go into the FIFO.
void FlushResampler()
{
    if (!swr || !swr_is_initialized(swr) || !audioEncoderCtx || !audioFifo)
        return;
    for (;;) {
        const int room = swr_get_out_samples(swr, 0);
        if (room <= 0 || !AllocConvertedSamples(room))
            break;
        const int converted = swr_convert(swr, audio_dst_data, room, nullptr, 0);
        QueueConverted(converted);
        if (converted <= 0)
            break;
    }
}

// Sets the resampler up to convert frames of this format, rate and layout into the audio encoder's
// format, rate and layout, which the FIFO and the encoder keep for the whole file whatever the
// input does (damaged MP3 headers can switch a stream from stereo to mono, or change its rate).
// Nothing is done when the set-up already fits.
bool EnsureResampler(int format, int rate, const AVChannelLayout &layout)
{
    auto &s = resamplerSetup;
    if (swr && swr_is_initialized(swr) && s.inFormat == format && s.inRate == rate &&
        av_channel_layout_compare(&s.inLayout, &layout) == 0)
        return true;

    FlushResampler();
    swr_free(&swr);
    AVCodecContext *c = audioEncoderCtx;
    if (swr_alloc_set_opts2(&swr, &c->ch_layout, c->sample_fmt, c->sample_rate,
                            const_cast<AVChannelLayout *>(&layout), AVSampleFormat(format), rate, 0,
                            nullptr) < 0 ||
        swr_init(swr) < 0) {
        swr_free(&swr);
        return false;
    }
    s.inFormat = format;
    s.inRate = rate;
    av_channel_layout_uninit(&s.inLayout);
    av_channel_layout_copy(&s.inLayout, &layout);
    return true;
}

// How many times a decoded picture is sent to the encoder, and how many of those sends repeat the
// picture before it, as the ffmpeg command's constant-frame-rate output decides: `position` is the
// picture's time in frames, `next` the output slot it would take. A picture more than a frame late
// fills the gap (with the picture before it, then itself); one more than a frame early is dropped.
struct Sends
{
    int total = 1;
    int repeatsOfPrevious = 0;
};

Sends ConstantRateSends(double position, double next, double duration)
{
    Sends s;
    double delta0 = position - next;
    const double delta = delta0 + duration;
    if (delta0 < 0 && delta > 0)
        delta0 = 0; // a little early: it takes the next slot
    if (delta < -1.1) {
        s.total = 0;
    } else if (delta > 1.1) {
        s.total = int(std::lrint(delta));
        if (delta0 > 1.1)
            s.repeatsOfPrevious = std::min(int(std::lrint(delta0 - 0.6)), s.total);
    }
    return s;
}

Sends SendsFor(const AVFrame *picture)
{
    const int64_t ts = picture->best_effort_timestamp;
    const double rate = av_q2d(timeline.videoRate);
    if (ts == AV_NOPTS_VALUE || !(rate > 0))
        return Sends();
    const double seconds = double(ts) * av_q2d(inStream->time_base) - timeline.origin;
    if (!WithinTimeline(seconds, double(videoFramesSent) / rate))
        return Sends();
    const long duration = std::lrint(double(picture->pkt_duration) * av_q2d(inStream->time_base) * rate);
    return ConstantRateSends(seconds * rate, double(videoFramesSent), duration > 0 ? double(duration) : 1.0);
}

// A picture in the encoder's size and format, through the scaler, in a buffer of the pool.
bool Scale(const AVFrame *decoded, AVFrame *picture)
{
    const auto format = AVPixelFormat(picture->format);
    constexpr int Align = 32;
    const int size = av_image_get_buffer_size(format, picture->width, picture->height, Align);
    img_convert_ctx_in = sws_getCachedContext(img_convert_ctx_in, decoded->width, decoded->height,
                                              AVPixelFormat(decoded->format), picture->width, picture->height,
                                              format, SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (size < 0 || !img_convert_ctx_in)
        return false;
    if (!scratch.pictures)
        scratch.pictures = av_buffer_pool_init(size_t(size) + AV_INPUT_BUFFER_PADDING_SIZE, nullptr);
    picture->buf[0] = scratch.pictures ? av_buffer_pool_get(scratch.pictures) : nullptr;
    if (!picture->buf[0] || av_image_fill_arrays(picture->data, picture->linesize, picture->buf[0]->data,
                                                 format, picture->width, picture->height, Align) < 0)
        return false;
    sws_scale(img_convert_ctx_in, decoded->data, decoded->linesize, 0, decoded->height, picture->data,
              picture->linesize);
    return true;
}

// The picture as the video encoder takes it, or null. One that comes from the decoder in the
// encoder's size and format is handed on without a copy: the new frame shares its buffers but
// nothing else, since encoders take a frame's type and side data as orders (a decoded intra
// picture would force a key frame). Any other is scaled.
AVFrame *EncoderPicture(const AVFrame *decoded)
{
    const AVCodecContext *out = videoEncoderCtx;
    AVFrame *picture = av_frame_alloc();
    if (!picture)
        return nullptr;
    picture->format = out->pix_fmt;
    picture->width = out->width;
    picture->height = out->height;
    bool made = true;
    if (decoded->format == out->pix_fmt && decoded->width == out->width && decoded->height == out->height &&
        decoded->buf[0]) {
        for (int i = 0; i < AV_NUM_DATA_POINTERS && made; ++i) {
            if (decoded->buf[i])
                made = (picture->buf[i] = av_buffer_ref(decoded->buf[i])) != nullptr;
            picture->data[i] = decoded->data[i];
            picture->linesize[i] = decoded->linesize[i];
        }
    } else {
        made = Scale(decoded, picture);
    }
    if (!made)
        av_frame_free(&picture);
    return picture;
}

// Writes every packet the video encoder has ready.
void WriteVideoPackets()
{
    AVPacket *packet = Reused<AVPacket, av_packet_alloc>(scratch.videoOut);
    if (!packet)
        return;
    while (avcodec_receive_packet(videoEncoderCtx, packet) >= 0) {
        packet->stream_index = outStream->index;
        // Every picture lasts one frame; without a duration the muxer's edit list would end before
        // the last picture, and players would drop it.
        if (packet->duration <= 0)
            packet->duration = 1;
        av_packet_rescale_ts(packet, videoEncoderCtx->time_base, outStream->time_base);
        if (av_interleaved_write_frame(output_fmt_ctx, packet) >= 0)
            ++videoPacketsWritten;
        else
            ++writesRefused; // the packet is given up; the file goes on
        av_packet_unref(packet);
    }
}

void SendPicture(AVFrame *picture)
{
    picture->pts = videoFrameNumber++;
    ++videoFramesSent;
    if (avcodec_send_frame(videoEncoderCtx, picture) < 0)
        ++packetsRefused;
    WriteVideoPackets();
}

void NoteAudioPacket(const AVPacket *pkt)
{
    if (pkt->pts != AV_NOPTS_VALUE)
        lastAudioPts = pkt->pts;
}

} // namespace

int ThreadVideoRepair::open_audio_input(const char *path)
{
    const int opened = avformat_open_input(&fmt_ctx, path, nullptr, nullptr);
    if (!fmt_ctx)
        return -1;
    if (avformat_find_stream_info(fmt_ctx, nullptr) < 0)
        return -1;
    av_dump_format(fmt_ctx, 0, path, 0);
    if (fmt_ctx->start_time != AV_NOPTS_VALUE)
        timeline.origin = double(fmt_ctx->start_time) / AV_TIME_BASE;
    if (fmt_ctx->duration != AV_NOPTS_VALUE && fmt_ctx->duration > 0)
        timeline.end = double(fmt_ctx->duration) / AV_TIME_BASE + 1.0;

    // No early exit: with several tracks of a kind the last one is used.
    for (unsigned i = 0; i < fmt_ctx->nb_streams; ++i) {
        const AVMediaType type = fmt_ctx->streams[i]->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_AUDIO)
            audio_stream_index = int(i);
        else if (type == AVMEDIA_TYPE_VIDEO)
            videoStreamIndex = int(i);
    }
    if (audio_stream_index == -1)
        return opened;

    const AVStream *st = fmt_ctx->streams[audio_stream_index];
    const AVCodecParameters *par = st->codecpar;
    codec_audio = avcodec_find_decoder(par->codec_id);
    if (!codec_audio)
        return -1;
    if (IsRefusedAudio(par->codec_id))
        return -1;

    codec_ctx_audio = avcodec_alloc_context3(codec_audio);
    if (!codec_ctx_audio || avcodec_parameters_to_context(codec_ctx_audio, par) < 0)
        return -1;
    Lenient(codec_ctx_audio, st);
    AVDictionary *options = nullptr;
    const int open = avcodec_open2(codec_ctx_audio, codec_audio, &options);
    av_dict_free(&options);
    if (open < 0)
        return -1;

    // The encoder takes the stream's opening layout and rate; the resampler, set up once the first
    // frame and the encoder are there, converts every frame to them.
    UsualLayout(&Audiochannel_layout, codec_ctx_audio->ch_layout);
    audio_bit_rate = int(codec_ctx_audio->bit_rate);
    Audio_Smple_fmt = codec_ctx_audio->sample_fmt;
    audio_sample_rate = codec_ctx_audio->sample_rate;
    audio_channels = Audiochannel_layout.nb_channels;
    return open;
}

AVStream *ThreadVideoRepair::add_audio_stream(AVFormatContext *oc, const AVCodec **codec, int id)
{
    *codec = avcodec_find_encoder(AVCodecID(id));
    if (!*codec) {
        fprintf(stderr, "Could not find codec\n");
        return nullptr;
    }
    AVStream *st = avformat_new_stream(oc, nullptr);
    if (!st) {
        fprintf(stderr, "Could not allocate stream\n");
        return nullptr;
    }
    audioEncoderCtx = avcodec_alloc_context3(*codec);
    if (!audioEncoderCtx) {
        fprintf(stderr, "Could not allocate stream\n");
        return nullptr;
    }
    st->id = 1;
    AVCodecContext *c = audioEncoderCtx;
    c->sample_fmt = EncoderSampleFormat(*codec);
    c->bit_rate = audio_bit_rate;
    c->sample_rate = audio_sample_rate;
    av_channel_layout_copy(&c->ch_layout, &Audiochannel_layout);
    if (oc->oformat->flags & AVFMT_GLOBALHEADER)
        c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    return st;
}

namespace {

// Opens the output file and writes its header once its streams are set up.
int WriteOutputHeader(const char *path, int s)
{
    av_dump_format(output_fmt_ctx, 0, path, 1);
    if (output_format->flags & AVFMT_NOFILE)
        return s;
    if (!OpenSafeOutput(output_fmt_ctx, QByteArray(path))) {
        fprintf(stderr, "Could not open '%s'\n", path);
        return -1;
    }
    if (avformat_write_header(output_fmt_ctx, nullptr) < 0) {
        fprintf(stderr, "Error occurred when opening output file\n");
        return -1;
    }
    headerWritten = true;
    return s;
}

} // namespace

int ThreadVideoRepair::open_encoder(const char *path)
{
    audio_st = nullptr;
    encoder = nullptr;
    headerWritten = false;

    avformat_alloc_output_context2(&output_fmt_ctx, nullptr, nullptr, path);
    if (!output_fmt_ctx) {
        printf("Could not deduce output format from file extension: using MPEG.\n");
        fflush(stdout);
        avformat_alloc_output_context2(&output_fmt_ctx, nullptr, "mpeg", path);
        return 0;
    }
    output_format = output_fmt_ctx->oformat;
    int s = 0;

    if (audio_stream_index != -1 && codec_audio && output_format->audio_codec != AV_CODEC_ID_NONE) {
        audio_st = add_audio_stream(output_fmt_ctx, &audio_codec, output_format->audio_codec);
        if (audio_st) {
            if (audio_bit_rate < 101)
                return -1;
            audio_st->duration = fmt_ctx->duration;
            s = avcodec_open2(audioEncoderCtx, audio_codec, nullptr);
            if (s < 0) {
                fprintf(stderr, "could not open codec\n");
                return -1;
            }
            if (audioEncoderCtx->time_base.num == 0)
                audioEncoderCtx->time_base = AVRational{1, audioEncoderCtx->sample_rate};
            avcodec_parameters_from_context(audio_st->codecpar, audioEncoderCtx);
            audio_st->time_base = audioEncoderCtx->time_base;
            audio_input_frame_size = (audio_codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE)
                                         ? 10000
                                         : audioEncoderCtx->frame_size;
            audioFifo = av_audio_fifo_alloc(audioEncoderCtx->sample_fmt, audioEncoderCtx->ch_layout.nb_channels,
                                            audio_input_frame_size > 0 ? audio_input_frame_size : 1024);
        }
    }

    // A file of sound alone is re-encoded too: its sound is what it plays.
    if (videoStreamIndex == -1)
        return audio_st && audioFifo ? WriteOutputHeader(path, s) : -1;
    if (output_format->video_codec == AV_CODEC_ID_NONE)
        return s;

    inStream = fmt_ctx->streams[videoStreamIndex];
    decoder = avcodec_find_decoder(inStream->codecpar->codec_id);
    if (!decoder)
        return s;
    videoDecoderCtx = avcodec_alloc_context3(decoder);
    if (!videoDecoderCtx || avcodec_parameters_to_context(videoDecoderCtx, inStream->codecpar) < 0)
        return s;
    Lenient(videoDecoderCtx, inStream);
    videoDecoderCtx->thread_count = 0; // frame threads too: the pass drains the decoder at the end
    if (avcodec_open2(videoDecoderCtx, decoder, nullptr) < 0)
        return s;

    const AVCodecID inputId = inStream->codecpar->codec_id;
    const bool h264 = GoesToH264(inputId);
    encoder = avcodec_find_encoder(h264 ? AV_CODEC_ID_H264 : inputId);
    if (!encoder)
        return s;

    const AVRational rate = inStream->r_frame_rate;
    const int fps = rate.den != 0 ? rate.num / rate.den : 0;
    if (fps <= 0) {
        // The integer frame-rate time base cannot be made: no video encoder, file kept as it is.
        encoder = nullptr;
        return s;
    }
    // Pictures keep their place at the input's own rate; the output counts them in its 1/fps.
    timeline.videoRate = av_guess_frame_rate(fmt_ctx, inStream, nullptr);

    outStream = avformat_new_stream(output_fmt_ctx, nullptr);
    if (!outStream)
        return s;
    videoEncoderCtx = avcodec_alloc_context3(encoder);
    if (!videoEncoderCtx)
        return s;
    AVCodecContext *in = videoDecoderCtx;
    AVCodecContext *out = videoEncoderCtx;

    if (h264)
        out->pix_fmt = AV_PIX_FMT_YUV420P;
    else
        out->pix_fmt = in->pix_fmt == AV_PIX_FMT_NONE ? AV_PIX_FMT_YUV420P : in->pix_fmt;
    // An odd width or height grows by 9 (w + 10 - w mod 2); the input context takes the value too.
    if (in->width % 2 != 0)
        in->width = in->width + 10 - in->width % 2;
    out->width = in->width;
    if (in->height % 2 != 0)
        in->height = in->height + 10 - in->height % 2;
    out->height = in->height;
    out->codec_id = encoder->id;
    out->bit_rate = in->bit_rate;
    out->time_base = AVRational{1, fps};
    out->gop_size = in->gop_size;
    // The carried-over minimum key-frame interval (25) is above the maximum (12). libx264 limits the
    // minimum to half the maximum and one; libx265 takes it as it is, and then codes every picture
    // between the two as an intra picture, 13 of every 25, at three times the cost. Every encoder
    // gets libx264's limit, so the key frames fall where libx264 puts them.
    out->keyint_min = in->gop_size > 0 ? std::clamp(in->keyint_min, 1, in->gop_size / 2 + 1) : in->keyint_min;
    out->max_b_frames = in->max_b_frames;
    out->refs = in->refs;
    out->qmin = in->qmin;
    out->qmax = in->qmax;
    out->i_quant_factor = in->i_quant_factor;
    outStream->sample_aspect_ratio = inStream->sample_aspect_ratio;
    out->sample_aspect_ratio = inStream->sample_aspect_ratio;

    // Coder type, B-frame strategy and scene-change threshold live in the encoder's private options
    // now; the values carried over are those of a fresh decoder context, all 0.
    for (const char *name : {"coder", "b_strategy", "sc_threshold"})
        if (av_opt_find(out->priv_data, name, nullptr, 0, 0))
            av_opt_set_int(out->priv_data, name, 0, 0);

    // The last setting wins: the effective preset is "veryfast".
    if (encoder->id == inputId)
        av_opt_set(out->priv_data, "preset", "slow", 0);
    av_opt_set(out->priv_data, "preset", "ultrafast", 0);
    av_opt_set(out->priv_data, "tune", "zerolatency", 0);
    av_opt_set(out->priv_data, "preset", "veryfast", 0);

    if (output_format->flags & AVFMT_GLOBALHEADER)
        out->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    out->thread_count = 0;

    if (avcodec_open2(out, encoder, nullptr) < 0)
        return s;
    avcodec_parameters_from_context(outStream->codecpar, out);
    outStream->time_base = out->time_base;
    return WriteOutputHeader(path, s);
}

int ThreadVideoRepair::decode_packet()
{
    got_frame = 0;
    // Only a move the bar can show is reported: each report is a queued event for the interface.
    if (input_packet->pos >= nextProgress) {
        Q_EMIT ProgressValue(static_cast<unsigned long>(input_packet->pos));
        nextProgress = input_packet->pos + progressStep;
    }

    if (input_packet->stream_index == audio_stream_index && codec_ctx_audio) {
        const int consumed = input_packet->size;
        const int ret = avcodec_send_packet(codec_ctx_audio, input_packet);
        av_packet_unref(input_packet);
        if (ret < 0) {
            ++packetsRefused;
            fprintf(stderr, "Error decoding audio frame\n");
            return 0;
        }
        receive_audio_frames();
        return consumed;
    }

    if (input_packet->stream_index == videoStreamIndex && videoDecoderCtx && videoEncoderCtx) {
        const int ret = avcodec_send_packet(videoDecoderCtx, input_packet);
        av_packet_unref(input_packet);
        if (ret < 0) {
            ++packetsRefused;
            return ret;
        }
        return receive_video_frames();
    }

    av_packet_unref(input_packet);
    return 0;
}

int ThreadVideoRepair::receive_video_frames()
{
    AVFrame *decoded = Reused<AVFrame, av_frame_alloc>(scratch.videoIn);
    if (!decoded)
        return AVERROR(ENOMEM);
    int result = 0;
    int ret;
    int errors = 0;
    for (;;) {
        ret = avcodec_receive_frame(videoDecoderCtx, decoded);
        if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF)
            break;
        if (ret < 0) {
            // A picture that failed; the ones after it still come, as they do for ffmpeg (frame
            // threads report a damaged picture while later ones wait behind it).
            ++packetsRefused;
            if (++errors > MaxErrorsInARow)
                break;
            continue;
        }
        errors = 0;
        ++videoFramesDecoded;
        got_frame = 1;
        bVideo = true;
        AVFrame *picture = EncoderPicture(decoded);
        if (!picture) {
            av_frame_unref(decoded);
            result = AVERROR(ENOMEM);
            continue;
        }
        const Sends sends = SendsFor(decoded);
        av_frame_unref(decoded);
        for (int i = 0; i < sends.total; ++i) {
            const bool repeat = i < sends.repeatsOfPrevious && timeline.lastPicture;
            SendPicture(repeat ? timeline.lastPicture : picture);
        }
        av_frame_free(&timeline.lastPicture);
        timeline.lastPicture = picture;
    }
    return ret < 0 && ret != AVERROR(EAGAIN) && ret != AVERROR_EOF ? ret : result;
}

void ThreadVideoRepair::receive_audio_frames()
{
    AVFrame *frame = Reused<AVFrame, av_frame_alloc>(scratch.audioIn);
    if (!frame)
        return;
    int errors = 0;
    for (;;) {
        const int ret = avcodec_receive_frame(codec_ctx_audio, frame);
        if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF)
            break;
        if (ret < 0) {
            ++packetsRefused;
            fprintf(stderr, "Error decoding audio frame\n");
            if (++errors > MaxErrorsInARow)
                break;
            continue;
        }
        errors = 0;
        got_frame = 1;
        bAudio = true;
        if (audioEncoderCtx && audioFifo && frame->sample_rate > 0) {
            AVChannelLayout layout = {};
            UsualLayout(&layout, frame->ch_layout);
            if (EnsureResampler(frame->format, frame->sample_rate, layout)) {
                fill_audio_gap(frame->best_effort_timestamp, double(frame->nb_samples) / frame->sample_rate);
                const int room = swr_get_out_samples(swr, frame->nb_samples);
                if (room > 0 && AllocConvertedSamples(room))
                    QueueConverted(swr_convert(swr, audio_dst_data, room,
                                               const_cast<const uint8_t **>(frame->extended_data),
                                               frame->nb_samples));
            } else {
                ++packetsRefused;
            }
            av_channel_layout_uninit(&layout);
        }
        av_frame_unref(frame);
    }
}

// Sound that starts later than the converted sound reaches, by more than half of its own length,
// leaves a gap (lost packets); it is filled with silence, so that what follows keeps its time and its
// place beside the pictures. Written through the encoder a second at a time, so that a long gap never
// sits in memory.
void ThreadVideoRepair::fill_audio_gap(int64_t timestamp, double length)
{
    const AVCodecContext *c = audioEncoderCtx;
    if (timestamp == AV_NOPTS_VALUE || c->sample_rate <= 0)
        return;
    const double rate = c->sample_rate;
    const AVRational base = fmt_ctx->streams[audio_stream_index]->time_base;
    const double at = double(timestamp) * av_q2d(base) - timeline.origin;
    const double reached = double(timeline.audioSamplesIn + swr_get_delay(swr, c->sample_rate)) / rate;
    if (at - reached <= length / 2 || !WithinTimeline(at, reached))
        return;
    FlushResampler(); // the sound before the gap comes first
    int64_t left = std::llround(at * rate) - timeline.audioSamplesIn;
    const int chunk = c->sample_rate;
    if (left <= 0 || !AllocConvertedSamples(chunk))
        return;
    av_samples_set_silence(audio_dst_data, 0, chunk, c->ch_layout.nb_channels, c->sample_fmt);
    while (left > 0) {
        const int n = int(std::min<int64_t>(left, chunk));
        QueueConverted(n);
        left -= n;
        write_audio_frame();
    }
}

void ThreadVideoRepair::finish_streams()
{
    if (videoDecoderCtx && videoEncoderCtx) {
        avcodec_send_packet(videoDecoderCtx, nullptr);
        receive_video_frames();
    }
    if (codec_ctx_audio) {
        avcodec_send_packet(codec_ctx_audio, nullptr);
        receive_audio_frames();
        FlushResampler();
    }
    if (output_fmt_ctx && audio_st)
        write_delayed_frames(output_fmt_ctx, audio_st);
    if (videoEncoderCtx && outStream && headerWritten) {
        avcodec_send_frame(videoEncoderCtx, nullptr);
        WriteVideoPackets();
    }
}

// Hands the audio encoder every whole frame of converted samples waiting in the FIFO, so that it
// always gets exactly its frame size; with flush, the rest goes too, as a last short frame.
void ThreadVideoRepair::write_audio_frame(bool flush)
{
    if (!output_fmt_ctx || !audio_st || !audioEncoderCtx || !audioFifo)
        return;
    AVCodecContext *c = audioEncoderCtx;
    const int frameSize = audio_input_frame_size > 0 ? audio_input_frame_size : 1024;
    const bool variable = audio_codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE;
    const bool shortLast = variable || (audio_codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME);

    AVFrame *frame = Reused<AVFrame, av_frame_alloc>(scratch.audioOut);
    AVPacket *packet = Reused<AVPacket, av_packet_alloc>(scratch.audioPacket);
    while (frame && packet) {
        const int queued = av_audio_fifo_size(audioFifo);
        if (queued <= 0 || (queued < frameSize && !flush))
            break;
        const int take = queued < frameSize ? queued : frameSize;
        frame->nb_samples = (take < frameSize && !shortLast) ? frameSize : take;
        frame->format = c->sample_fmt;
        av_channel_layout_copy(&frame->ch_layout, &c->ch_layout);
        frame->sample_rate = c->sample_rate;
        if (av_frame_get_buffer(frame, 0) < 0)
            break;
        // A last frame shorter than the encoder allows is padded with silence.
        av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, c->ch_layout.nb_channels,
                               c->sample_fmt);
        av_audio_fifo_read(audioFifo, reinterpret_cast<void **>(frame->extended_data), take);
        frame->pts = audioSamplesQueued;
        audioSamplesQueued += frame->nb_samples;

        int ret = avcodec_send_frame(c, frame);
        av_frame_unref(frame);
        if (ret < 0)
            ++packetsRefused;
        while (ret >= 0 && (ret = avcodec_receive_packet(c, packet)) >= 0) {
            ++audioFrameCount;
            av_packet_rescale_ts(packet, c->time_base, audio_st->time_base);
            packet->flags |= AV_PKT_FLAG_KEY;
            packet->stream_index = audio_st->index;
            NoteAudioPacket(packet);
            if (av_interleaved_write_frame(output_fmt_ctx, packet) >= 0)
                ++audioPacketsWritten;
            else
                ++writesRefused;
            av_packet_unref(packet);
        }
    }
}

void ThreadVideoRepair::write_delayed_frames(AVFormatContext *oc, AVStream *st)
{
    if (!audioEncoderCtx)
        return;
    write_audio_frame(true);

    AVCodecContext *c = audioEncoderCtx;
    AVPacket *packet = Reused<AVPacket, av_packet_alloc>(scratch.audioPacket);
    if (!packet)
        return;
    int ret = avcodec_send_frame(c, nullptr);
    while (ret >= 0 || ret == AVERROR(EAGAIN)) {
        ret = avcodec_receive_packet(c, packet);
        if (ret == AVERROR_EOF || ret == AVERROR(EAGAIN))
            break;
        if (ret < 0) {
            // The flush ends here; asking again would only repeat the error.
            fprintf(stderr, "error encoding frame\n");
            QThread::exit(1);
            break;
        }
        av_packet_rescale_ts(packet, c->time_base, st->time_base);
        packet->stream_index = st->index;
        NoteAudioPacket(packet);
        // Written once. A second write of the same packet, once made here on purpose, handed the
        // muxer an empty packet whose made-up time stamp made it refuse the next real one, so the
        // last sound of every file was lost.
        if (av_interleaved_write_frame(oc, packet) >= 0) {
            m_WriteFrame = true;
            ++audioPacketsWritten;
        } else {
            ++writesRefused;
        }
        av_packet_unref(packet);
    }
}
