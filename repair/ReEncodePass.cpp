// Second pass of a run: each working copy is re-encoded through FFmpeg into D/"000"N, checked, and
// staged as D/"00"N over the working copy D/N. When the re-encode cannot be trusted to hold all the
// working copy plays (it failed, ended early or lost pictures), a stream copy D/"0000"N of the
// working copy, the working copy itself and, when the structural pass changed it, the file as the
// user gave it are measured too, and the one that plays the most becomes the result: a file is never
// left playing less than it did. Files refused for their streams, and files of which nothing plays,
// are listed as failed and their working copies removed.

#include "repair/AudioPipeline.h"
#include "repair/OutputCheck.h"
#include "repair/RepairContext.h"
#include "repair/ReadPacket.h"
#include "repair/Remux.h"
#include "repair/SafeFile.h"
#include "repair/ThreadVideoRepair.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

#include <QFile>
#include <QFileInfo>

#include <cstdio>

using namespace Pipeline;

namespace {

// Progress reports per file: more than a bar has pixels.
constexpr qint64 ProgressSteps = 2000;

// Whether the re-encode holds every picture and sample the pass decoded, with its index whole.
bool ReEncodeIsWhole(const QString &output, bool reachedEnd, bool trailerWritten)
{
    if (!headerWritten || !trailerWritten || !reachedEnd || writesRefused > 0)
        return false;
    if (videoPacketsWritten != videoFramesSent || videoFramesSent < videoFramesDecoded)
        return false;
    return OutputIsWhole(output, videoPacketsWritten, audioPacketsWritten);
}

// What the checked re-encode plays, from what the pass wrote into it.
Playback WrittenPlayback()
{
    Playback p;
    p.opens = true;
    p.hasVideo = outStream != nullptr;
    p.hasAudio = audio_st != nullptr;
    p.videoFrames = videoPacketsWritten;
    if (audioEncoderCtx && audioEncoderCtx->sample_rate > 0)
        p.audioSeconds = double(audioSamplesQueued) / audioEncoderCtx->sample_rate;
    return p;
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
        const QString remuxed = folder + "/0000" + name;
        const QString source = SourceOf(path);
        const bool rewritten = m_rewrittenCopies.contains(path) && !source.isEmpty();
        const bool keepCodecs = m_keepCodecs;
        const QString asItIs = rewritten ? "headers" : "original";

        audio_stream_index = -1;
        videoStreamIndex = -1;
        Q_EMIT OverAllProgressValue(static_cast<unsigned long>(i));
        Q_EMIT Info(tr("Repairing ") + name + tr(" file"));
        Q_EMIT MaxProgress(static_cast<unsigned long>(info.size()));
        progressStep = info.size() / ProgressSteps;

        QList<Candidate> candidates;
        const int r = open_audio_input(QFile::encodeName(path).constData());
        if (r < 0) {
            // The stream walk comes after the file was read: a failure after it is the audio codec's.
            const bool refused = audio_stream_index != -1;
            Pipeline::Release();
            if (refused) {
                Judge(path, RepairOutcome::Verdict::UnsupportedCodec, Playback(), QString());
                QFile::remove(path);
                continue;
            }
            // FFmpeg cannot read the working copy; its source may still play.
            candidates << Candidate{path, asItIs, {}};
            if (rewritten)
                candidates << Candidate{source, "original", {}};
        } else {
            const QByteArray outputName = QFile::encodeName(output);
            const int e = open_encoder(outputName.constData());
            int read = AVERROR_EOF;
            bool trailerWritten = false;
            // Nothing goes into an output whose header was not written.
            if (e != -1 && headerWritten) {
                input_packet = av_packet_alloc();
                const int audio = audio_stream_index, video = videoStreamIndex;
                while (input_packet && (read = ReadPacket(fmt_ctx, input_packet, audio, video)) >= 0) {
                    if (bStopFlag)
                        break;
                    // A packet a decoder refuses is dropped and the file goes on, as the ffmpeg
                    // command goes on; only the end of the input or a read error ends the loop.
                    decode_packet();
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
                finish_streams();
                // Every output whose header was written gets its trailer: without it the file has
                // no index and plays nothing. (It once waited for a flushed audio packet, so a
                // video-only file repaired first in a process lost its result.)
                trailerWritten = av_write_trailer(output_fmt_ctx) >= 0;
                CloseSafeOutput(output_fmt_ctx);
            }
            if (bStopFlag) {
                // The pass ends here: the output stays open beside the working copy, which is left
                // as it was; the next pass releases both.
                if (headerWritten)
                    pHandle = OpenExistingNoFollow(outputName);
                return;
            }
            const bool whole = ReEncodeIsWhole(output, read == AVERROR_EOF, trailerWritten);
            fprintf(stderr,
                    "%s: %lld pictures decoded, %lld sent, %lld written; %lld sound packets written; %lld "
                    "packets or frames refused; %s\n",
                    outputName.constData(), (long long)videoFramesDecoded, (long long)videoFramesSent,
                    (long long)videoPacketsWritten, (long long)audioPacketsWritten, (long long)packetsRefused,
                    whole ? "whole" : "not whole");
            const Playback written = WrittenPlayback();
            const bool made = headerWritten;
            Pipeline::Release();

            if (whole && written.Plays() && !keepCodecs && !rewritten &&
                ReplaceWorkingCopy(path, output, true)) {
                // The cheap verdict: every decoded picture is in a checked output.
                Judge(path, RepairOutcome::Verdict::Repaired, written, "re-encoded");
                continue;
            }
            if (bStopFlag)
                return; // the output stays beside the working copy
            const bool trusted = whole && written.Plays();
            if (made)
                candidates << Candidate{output, "re-encoded", trusted ? written : Playback(), trusted};
            if (!trusted || keepCodecs) {
                const RemuxResult copy = Remux(path, remuxed, &bStopFlag);
                if (copy.finished)
                    candidates.insert(keepCodecs ? 0 : candidates.size(), Candidate{remuxed, "remuxed", {}});
            }
            if (!trusted)
                candidates << Candidate{path, asItIs, {}};
            if (rewritten)
                candidates << Candidate{source, "original", {}};
        }

        const int best = PickBest(candidates);
        if (best < 0) { // a stop
            QFile::remove(remuxed);
            return;
        }
        Candidate winner = candidates.at(best);
        if (winner.plays.Plays() && winner.path != path &&
            !ReplaceWorkingCopy(path, winner.path, winner.path != source)) {
            if (bStopFlag) {
                QFile::remove(remuxed);
                return;
            }
            // The result could not take the working copy's place, which stays as it was.
            winner = Candidate{path, asItIs, MeasurePlayback(path, &bStopFlag)};
        }
        const bool plays = winner.plays.Plays();
        QFile::remove(output);
        QFile::remove(remuxed);
        if (plays) {
            Judge(path, RepairOutcome::Verdict::Repaired, winner.plays, winner.madeBy);
        } else {
            Judge(path, RepairOutcome::Verdict::NotPlayable, winner.plays, QString());
            QFile::remove(path);
        }
    }
}
