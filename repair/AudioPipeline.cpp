// The FFmpeg routines of the re-encoding pass: open the input and its decoders, set up an output of
// the same container type with re-encoded video and audio, decode and convert packet by packet, and
// flush the audio encoder. Diagnostics go to the standard streams only; none reaches the user.

#include "repair/AudioPipeline.h"
#include "repair/SafeFile.h"
#include "repair/ThreadVideoRepair.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

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

namespace {

// What the resampler was last set up for; a decoded frame that differs gets a new set-up.
struct ResamplerSetup
{
    int inFormat = AV_SAMPLE_FMT_NONE;
    int inRate = 0;
    AVChannelLayout inLayout = {};
    int outFormat = AV_SAMPLE_FMT_NONE;
} resamplerSetup;

void FreeConvertedSamples()
{
    if (audio_dst_data) {
        av_freep(&audio_dst_data[0]);
        av_freep(&audio_dst_data);
    }
    audio_dst_bufsize = 0;
}

} // namespace

namespace {

constexpr int OutputBufferSize = 1 << 16;

int WriteOutput(void *opaque, uint8_t *data, int size)
{
    const int fd = int(reinterpret_cast<intptr_t>(opaque));
    int done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size_t(size - done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return AVERROR(errno);
        }
        done += int(n);
    }
    return size;
}

int64_t SeekOutput(void *opaque, int64_t offset, int whence)
{
    const int fd = int(reinterpret_cast<intptr_t>(opaque));
    if (whence & AVSEEK_SIZE) {
        struct stat st;
        return fstat(fd, &st) == 0 ? int64_t(st.st_size) : AVERROR(errno);
    }
    const off_t at = lseek(fd, off_t(offset), whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : int64_t(at);
}

} // namespace

// The muxer writes through our own descriptor rather than opening the name itself, which would
// follow a link planted in the shared working folder.
bool OpenOutputIO(const char *path)
{
    const int fd = CreateFreshDescriptor(QByteArray(path));
    if (fd < 0)
        return false;
    auto *buffer = static_cast<unsigned char *>(av_malloc(OutputBufferSize));
    AVIOContext *pb = buffer ? avio_alloc_context(buffer, OutputBufferSize, 1, reinterpret_cast<void *>(intptr_t(fd)),
                                                  nullptr, WriteOutput, SeekOutput)
                             : nullptr;
    if (!pb) {
        av_free(buffer);
        close(fd);
        return false;
    }
    output_fmt_ctx->pb = pb;
    output_fmt_ctx->flags |= AVFMT_FLAG_CUSTOM_IO;
    return true;
}

void CloseOutputIO()
{
    if (!output_fmt_ctx || !output_fmt_ctx->pb || !(output_fmt_ctx->flags & AVFMT_FLAG_CUSTOM_IO))
        return;
    AVIOContext *pb = output_fmt_ctx->pb;
    avio_flush(pb);
    const int fd = int(reinterpret_cast<intptr_t>(pb->opaque));
    av_freep(&pb->buffer);
    avio_context_free(&pb);
    output_fmt_ctx->pb = nullptr;
    close(fd);
}

void Release()
{
    if (output_fmt_ctx) {
        CloseOutputIO();
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
    FreeConvertedSamples();
    av_packet_free(&input_packet);
    av_channel_layout_uninit(&Audiochannel_layout);

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
    bVideo = false;
    bAudio = false;
    got_frame = 0;
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

// The sample format the converted samples are in: the audio encoder's once there is one.
AVSampleFormat ConvertedFormat()
{
    return audioEncoderCtx ? audioEncoderCtx->sample_fmt : AV_SAMPLE_FMT_S16;
}

// Sets the resampler up to convert frames of this format, rate and layout into ConvertedFormat(),
// keeping the rate and the layout. Nothing is done when the set-up already fits.
bool EnsureResampler(int format, int rate, const AVChannelLayout &layout)
{
    const int outFormat = ConvertedFormat();
    auto &s = resamplerSetup;
    if (swr && swr_is_initialized(swr) && s.inFormat == format && s.inRate == rate && s.outFormat == outFormat &&
        av_channel_layout_compare(&s.inLayout, &layout) == 0)
        return true;

    swr_free(&swr);
    AVChannelLayout *l = const_cast<AVChannelLayout *>(&layout); // FFmpeg 5.1 takes it non-const
    if (swr_alloc_set_opts2(&swr, l, AVSampleFormat(outFormat), rate, l, AVSampleFormat(format), rate, 0,
                            nullptr) < 0 ||
        swr_init(swr) < 0) {
        swr_free(&swr);
        return false;
    }
    s.inFormat = format;
    s.inRate = rate;
    s.outFormat = outFormat;
    av_channel_layout_uninit(&s.inLayout);
    av_channel_layout_copy(&s.inLayout, &layout);
    return true;
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

    const AVCodecParameters *par = fmt_ctx->streams[audio_stream_index]->codecpar;
    codec_audio = avcodec_find_decoder(par->codec_id);
    if (!codec_audio)
        return -1;
    if (IsRefusedAudio(par->codec_id))
        return -1;

    codec_ctx_audio = avcodec_alloc_context3(codec_audio);
    if (!codec_ctx_audio || avcodec_parameters_to_context(codec_ctx_audio, par) < 0)
        return -1;
    AVDictionary *options = nullptr;
    const int open = avcodec_open2(codec_ctx_audio, codec_audio, &options);
    av_dict_free(&options);
    if (open < 0)
        return -1;

    // A layout that only gives a channel count is taken as the usual layout for that count, which
    // the encoders accept.
    if (codec_ctx_audio->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&Audiochannel_layout, codec_ctx_audio->ch_layout.nb_channels);
    else
        av_channel_layout_copy(&Audiochannel_layout, &codec_ctx_audio->ch_layout);

    // Only the sample format is converted; rate and layout stay.
    EnsureResampler(codec_ctx_audio->sample_fmt, codec_ctx_audio->sample_rate, Audiochannel_layout);

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

    if (videoStreamIndex == -1)
        return -1;
    if (output_format->video_codec == AV_CODEC_ID_NONE)
        return s;

    inStream = fmt_ctx->streams[videoStreamIndex];
    decoder = avcodec_find_decoder(inStream->codecpar->codec_id);
    if (!decoder)
        return s;
    videoDecoderCtx = avcodec_alloc_context3(decoder);
    if (!videoDecoderCtx || avcodec_parameters_to_context(videoDecoderCtx, inStream->codecpar) < 0)
        return s;
    // Slice threads only: frame threads hold frames back, and the pass never drains the decoder.
    videoDecoderCtx->thread_type = FF_THREAD_SLICE;
    videoDecoderCtx->thread_count = 0;
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
    out->keyint_min = in->keyint_min;
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

    av_dump_format(output_fmt_ctx, 0, path, 1);

    if (output_format->flags & AVFMT_NOFILE)
        return s;
    if (!OpenOutputIO(path)) {
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

int ThreadVideoRepair::decode_packet()
{
    got_frame = 0;
    if (input_packet->pos >= 0)
        Q_EMIT ProgressValue(static_cast<unsigned long>(input_packet->pos));

    if (input_packet->stream_index == audio_stream_index && codec_ctx_audio) {
        const int consumed = input_packet->size;
        int ret = avcodec_send_packet(codec_ctx_audio, input_packet);
        av_packet_unref(input_packet);
        if (ret < 0) {
            fprintf(stderr, "Error decoding audio frame\n");
            return 0;
        }
        AVFrame *frame = av_frame_alloc();
        if (!frame)
            return AVERROR(ENOMEM);
        while ((ret = avcodec_receive_frame(codec_ctx_audio, frame)) >= 0) {
            got_frame = 1;
            bAudio = true;
            if (!EnsureResampler(frame->format, frame->sample_rate, frame->ch_layout)) {
                av_frame_unref(frame);
                continue;
            }
            // The converted samples are allocated in the format the resampler writes.
            const AVSampleFormat outFormat = ConvertedFormat();
            const int channels = frame->ch_layout.nb_channels;
            const int planes = av_sample_fmt_is_planar(outFormat) ? channels : 1;
            FreeConvertedSamples();
            audio_dst_data = static_cast<uint8_t **>(av_calloc(planes > 0 ? planes : 1, sizeof(uint8_t *)));
            if (!audio_dst_data) {
                fprintf(stderr, "Could not allocate audio data buffers\n");
                av_frame_free(&frame);
                return AVERROR(ENOMEM);
            }
            if (av_samples_alloc(audio_dst_data, &audio_dst_linesize, channels, frame->nb_samples, outFormat,
                                 1) < 0) {
                av_frame_free(&frame);
                fprintf(stderr, "Could not allocate audio buffer\n");
                return AVERROR(ENOMEM);
            }
            const int converted = swr_convert(swr, audio_dst_data, frame->nb_samples,
                                              const_cast<const uint8_t **>(frame->extended_data),
                                              frame->nb_samples);
            if (converted > 0) {
                audio_dst_bufsize = av_samples_get_buffer_size(nullptr, channels, converted, outFormat, 1);
                if (audioFifo)
                    av_audio_fifo_write(audioFifo, reinterpret_cast<void **>(audio_dst_data), converted);
            }
            FreeConvertedSamples();
            av_frame_unref(frame);
        }
        av_frame_free(&frame);
        if (ret != AVERROR(EAGAIN) && ret != AVERROR_EOF) {
            fprintf(stderr, "Error decoding audio frame\n");
            return 0;
        }
        return consumed;
    }

    if (input_packet->stream_index == videoStreamIndex && videoDecoderCtx && videoEncoderCtx) {
        int ret = avcodec_send_packet(videoDecoderCtx, input_packet);
        av_packet_unref(input_packet);
        if (ret < 0)
            return ret;
        AVFrame *decoded = av_frame_alloc();
        AVFrame *converted = av_frame_alloc();
        AVPacket *packet = av_packet_alloc();
        int result = 0;
        if (!decoded || !converted || !packet)
            result = AVERROR(ENOMEM);
        while (result == 0 && (ret = avcodec_receive_frame(videoDecoderCtx, decoded)) >= 0) {
            got_frame = 1;
            bVideo = true;
            AVCodecContext *out = videoEncoderCtx;
            // The scaler reads the picture as it was decoded (its real size and format) and writes
            // the output geometry.
            img_convert_ctx_in = sws_getCachedContext(img_convert_ctx_in, decoded->width, decoded->height,
                                                      AVPixelFormat(decoded->format), out->width, out->height,
                                                      out->pix_fmt, SWS_BICUBIC, nullptr, nullptr, nullptr);
            converted->format = out->pix_fmt;
            converted->width = out->width;
            converted->height = out->height;
            if (!img_convert_ctx_in || av_frame_get_buffer(converted, 1) < 0) {
                result = AVERROR(ENOMEM);
                break;
            }
            sws_scale(img_convert_ctx_in, decoded->data, decoded->linesize, 0, decoded->height, converted->data,
                      converted->linesize);
            converted->pts = videoFrameNumber++;
            av_frame_unref(decoded);

            ret = avcodec_send_frame(out, converted);
            av_frame_unref(converted);
            if (ret < 0) {
                result = ret;
                break;
            }
            bool writeFailed = false;
            while ((ret = avcodec_receive_packet(out, packet)) >= 0) {
                packet->stream_index = outStream->index;
                av_packet_rescale_ts(packet, out->time_base, outStream->time_base);
                writeFailed = av_interleaved_write_frame(output_fmt_ctx, packet) < 0;
                av_packet_unref(packet);
                if (writeFailed)
                    break;
            }
            if (writeFailed) {
                ret = 0; // the packet is given up; the file's loop goes on
                break;
            }
            if (ret < 0 && ret != AVERROR(EAGAIN) && ret != AVERROR_EOF) {
                result = ret;
                break;
            }
        }
        if (result == 0 && ret < 0 && ret != AVERROR(EAGAIN) && ret != AVERROR_EOF)
            result = ret;
        av_frame_free(&decoded);
        av_frame_free(&converted);
        av_packet_free(&packet);
        return result;
    }

    av_packet_unref(input_packet);
    return 0;
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

    AVFrame *frame = av_frame_alloc();
    AVPacket *packet = av_packet_alloc();
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
        while (ret >= 0 && (ret = avcodec_receive_packet(c, packet)) >= 0) {
            ++audioFrameCount;
            av_packet_rescale_ts(packet, c->time_base, audio_st->time_base);
            packet->flags |= AV_PKT_FLAG_KEY;
            packet->stream_index = audio_st->index;
            NoteAudioPacket(packet);
            av_interleaved_write_frame(output_fmt_ctx, packet);
            av_packet_unref(packet);
        }
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
}

void ThreadVideoRepair::write_delayed_frames(AVFormatContext *oc, AVStream *st)
{
    if (!audioEncoderCtx)
        return;
    write_audio_frame(true);

    AVCodecContext *c = audioEncoderCtx;
    AVPacket *packet = av_packet_alloc();
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
        // Written twice on purpose: the first call takes the packet, the second gets it empty.
        if (av_interleaved_write_frame(oc, packet) >= 0)
            m_WriteFrame = true;
        av_interleaved_write_frame(oc, packet);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
}
