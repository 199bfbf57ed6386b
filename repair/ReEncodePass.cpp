// Second pass of a run: each working copy is re-encoded through FFmpeg into D/"000"N, staged as
// D/"00"N and renamed over the working copy D/N. Files whose streams cannot be handled are listed as
// unsupported and their working copies removed; where transcoding cannot start, the working copy
// from the structural pass stays as the result.

#include "repair/AudioPipeline.h"
#include "repair/RepairContext.h"
#include "repair/SafeFile.h"
#include "repair/ThreadVideoRepair.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Pipeline;

namespace {

constexpr quint64 StagingChunk = 1024;

// Copies the open output (pHandle) into `staging` in small chunks so that a stop is seen often.
// Returns false when a stop cut the copy short.
bool CopyToStaging(const QString &output, FILE *staging)
{
    const quint64 size = quint64(QFileInfo(output).size());
    quint64 left = size;
    std::vector<char> buffer;
    while (left > 0 && !bStopFlag) {
        const quint64 n = std::min(left, StagingChunk);
        buffer.assign(n, 0);
        (void)fread(buffer.data(), 1, n, pHandle);
        (void)fwrite(buffer.data(), 1, n, staging);
        left -= n;
    }
    return left == 0;
}

} // namespace

void ThreadVideoRepair::ReRepairFiles(QStringList files)
{
    avformat_network_init();
    avdevice_register_all();

    // A stop may have left the last pass early with the output and FFmpeg objects open.
    if (pHandle) {
        fclose(pHandle);
        pHandle = nullptr;
    }
    Pipeline::Release();

    const int n = files.size();
    Q_EMIT OverAllMaxProgress(static_cast<unsigned long>(n));

    for (int i = 0; i < n && !bStopFlag; ++i) {
        const QString &path = files.at(i);
        const QFileInfo info(path);
        const QString folder = info.path();
        const QString name = info.fileName();
        const QString output = folder + "/000" + name;
        const QString staging = folder + "/00" + name;

        audio_stream_index = -1;
        videoStreamIndex = -1;
        Q_EMIT OverAllProgressValue(static_cast<unsigned long>(i));
        Q_EMIT Info(tr("Repairing ") + name + tr(" file"));
        Q_EMIT MaxProgress(static_cast<unsigned long>(info.size()));

        const int r = open_audio_input(QFile::encodeName(path).constData());
        if (r < 0) {
            QMutexLocker locker(&m_resultMutex);
            m_unsupportedList.append(path);
            QFile::remove(path);
        }

        if (fmt_ctx && r != -1) {
            const QByteArray outputName = QFile::encodeName(output);
            const int e = open_encoder(outputName.constData());
            // Nothing goes into an output whose header was not written.
            if (e != -1 && encoder && headerWritten) {
                input_packet = av_packet_alloc();
                while (input_packet && av_read_frame(fmt_ctx, input_packet) >= 0) {
                    if (bStopFlag)
                        break;
                    if (decode_packet() < 0)
                        break;
                    if (bVideo) {
                        bVideo = false;
                        continue;
                    }
                    audio_pts = 0;
                    if (audio_st && lastAudioPts != AV_NOPTS_VALUE && audio_st->time_base.den != 0)
                        audio_pts = double(lastAudioPts) * audio_st->time_base.num / audio_st->time_base.den;
                    if (codec_ctx_audio && got_frame && audio_st && audio_st->time_base.den != 0)
                        write_audio_frame();
                    av_packet_unref(input_packet);
                    printf("\naudio_pts: %.3f", audio_pts);
                    bAudio = false;
                }
                fflush(stdout);
            }
            if (headerWritten) {
                if (output_fmt_ctx && audio_st)
                    write_delayed_frames(output_fmt_ctx, audio_st);
                if (m_WriteFrame)
                    av_write_trailer(output_fmt_ctx);
                // The output must be complete on disk before it is copied.
                Pipeline::CloseOutputIO();
                pHandle = OpenExistingNoFollow(outputName);
            }
        }

        if (pHandle) {
            if (bStopFlag)
                return; // the output stays beside the working copy; released by the next pass
            FILE *stage = CreateFresh(QFile::encodeName(staging));
            if (stage) {
                const bool complete = CopyToStaging(output, stage);
                fclose(stage);
                if (!complete) {
                    // A stop during the copy: replacing the working copy with a cut-off file would
                    // lose the result, so it stays, and so does the output.
                    QFile::remove(staging);
                    fclose(pHandle);
                    pHandle = nullptr;
                    Pipeline::Release();
                    return;
                }
            }
            fclose(pHandle);
            pHandle = nullptr;
            QFile::remove(path);
            QFile::remove(output);
            QFile::rename(staging, path);
            QMutexLocker locker(&m_resultMutex);
            m_repairedPath = path;
        }

        Pipeline::Release();
    }
}
