#pragma once

#include <QMutex>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QWaitCondition>

#include "repair/ProcessFlags.h"
#include "repair/RepairOutcome.h"

struct AVCodec;
struct AVFormatContext;
struct AVStream;

// The repair worker. Copies each source file into the temporary folder under its own name (the
// sources are never written), rewrites broken box headers of the copies in place, then re-encodes
// them. Reports only through queued signals; a stop request (bStopFlag) ends the run as aborted.
class ThreadVideoRepair : public QThread
{
    Q_OBJECT

public:
    explicit ThreadVideoRepair(QObject *parent = nullptr);
    ~ThreadVideoRepair() override;

    // Starts a run over `files` (absolute paths, in repair order) with working copies in `tempFolder`,
    // which must exist. When a run is already going, asks it to stop instead.
    void SetInitialSettings(QStringList files, QString tempFolder);
    // Asks the run that is going to stop (bStopFlag); false when none is going any more.
    bool RequestStop();

    // Working copies whose repair failed (refused for their codecs, or nothing at hand plays); the
    // repair page reads and clears it at the end of a run.
    QStringList UnsupportedList() const;
    void ClearUnsupportedList();
    QString RepairedPath() const;
    // One entry per source file of the last run, in run order.
    RepairOutcomes Outcomes() const;

    // With re-encoding off, a run stops after the structural pass (header fixes only).
    void SetReEncodingEnabled(bool enabled);
    bool ReEncodingEnabled() const;
    // With it on, a stream copy of a file that plays as much as its re-encoded version is the result:
    // the file keeps its original codecs.
    void SetKeepOriginalCodecs(bool keep);
    bool KeepOriginalCodecs() const;

    // Healthy recordings from the same camera or phone, whose tracks a file with a lost or broken
    // index is rebuilt with. They are only read.
    void SetReferences(QStringList files);
    QStringList References() const;

    void OnRepair();
    void RepairFiles(QStringList files);
    // Between the two passes: working copies that do not play, or whose index points past their end,
    // are rebuilt from their media data with every description at hand; the rebuild that plays the
    // most replaces the working copy when it plays more.
    void RebuildLostIndexes(const QStringList &files);
    virtual void ReRepairFiles(QStringList files);

    // Header repair routines. They work on the open working copy (pHandle) at the scan position
    // (dwOffset) and leave dwOffset where the scan goes on.
    void RepairMvhdHeader();
    void RepairMoovHeader();
    void RepairMvhdLength();
    void RepairTkhdHeader();
    void RepairMediaHeader();
    void RepairMinfHeader();
    void RepairDinfLength();
    void RepairCttsHeader();
    void RepairSkipHeader();

    // FFmpeg routines of the re-encoding pass, on the process-wide state of repair/AudioPipeline.h.
    // Paths are in the file system's encoding. They return a negative value for failure.
    int open_audio_input(const char *path);
    int open_encoder(const char *path);
    AVStream *add_audio_stream(AVFormatContext *oc, const AVCodec **codec, int id);
    int decode_packet();
    void write_audio_frame(bool flush = false);
    void write_delayed_frames(AVFormatContext *oc, AVStream *st);
    // Encodes every picture the video decoder has ready; returns a negative value when it failed.
    int receive_video_frames();
    // Converts every frame of sound the audio decoder has ready into the FIFO.
    void receive_audio_frames();
    // Fills the gap before `length` seconds of sound that start at `timestamp` (input time base)
    // with silence.
    void fill_audio_gap(int64_t timestamp, double length);
    // Drains both decoders and the resampler and flushes both encoders, so that the last pictures
    // and samples reach the output before its trailer.
    void finish_streams();

Q_SIGNALS:
    void RepairFinish();
    void unsupportedCodec(QString text);
    void OverAllMaxProgress(unsigned long files);
    void OverAllProgressValue(unsigned long index);
    void Info(QString text);
    void DestInfo(QString text);
    void MaxProgress(unsigned long maximum);
    void ProgressValue(unsigned long value);
    void ProcessAborted();

protected:
    void run() override;

    // Written by the worker thread, read by the interface after a run: guarded by m_resultMutex.
    mutable QMutex m_resultMutex;
    QStringList m_unsupportedList;
    QString m_repairedPath;
    RepairOutcomes m_outcomes;
    // Working copies whose bytes the structural pass changed: their sources are candidates too.
    // Worker thread only.
    QSet<QString> m_rewrittenCopies;

private:
    // A file that may become a working copy's result.
    struct Candidate
    {
        QString path;
        QString madeBy; // as RepairOutcome::madeBy words it
        Playback plays; // filled in when it is measured
        // `plays` was counted as the file was made and checked: its pictures are exact, and it is
        // measured only when they tie with another candidate's, where the sound decides.
        bool counted = false;
    };
    // The file a working copy was copied from; empty when the run did not make it.
    QString SourceOf(const QString &workingCopy) const;
    // Records the outcome of every file of the run whose working copy is `workingCopy`; a failed
    // file is listed as unsupported.
    void Judge(const QString &workingCopy, RepairOutcome::Verdict verdict, const Playback &plays,
               const QString &madeBy);
    // Measures the candidates (a counted one only where it must) and returns the index of the one
    // that plays the most, the first of equals; -1 when a stop came first.
    int PickBest(QList<Candidate> &candidates);
    // Copies `from` over the working copy through its staging file. False when that could not be
    // done (no staging file, or a stop during the copy): the working copy is then as it was.
    bool ReplaceWorkingCopy(const QString &workingCopy, const QString &from, bool fromWorkingFolder);
    // The verdict of a run without re-encoding.
    void JudgeHeaderRepairs(const QStringList &files);

    void ScanFile(quint64 fileSize, bool firstEightZero);
    bool Dispatch(quint32 word, quint64 T);
    void SearchCompositionOffsets(quint64 T);
    void RepairFirstChild(quint32 size, quint32 type);

    mutable QMutex m_mutex;
    QWaitCondition m_condition;
    QStringList m_sourceFiles;
    QString m_tempFolder;
    std::atomic<bool> m_reEncode{true};
    std::atomic<bool> m_keepCodecs{false};
    QStringList m_references; // guarded by m_resultMutex: set from the interface at any time
    WorkerRun m_run;
};
