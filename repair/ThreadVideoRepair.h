#pragma once

#include <QMutex>
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

    // Working copies the re-encoding pass could not handle; the repair page reads and clears it at
    // the end of a run.
    QStringList UnsupportedList() const;
    void ClearUnsupportedList();
    QString RepairedPath() const;
    // One entry per file of the last run, in run order.
    RepairOutcomes Outcomes() const;

    // With re-encoding off, a run stops after the structural pass (header fixes only).
    void SetReEncodingEnabled(bool enabled);
    bool ReEncodingEnabled() const;

    void OnRepair();
    void RepairFiles(QStringList files);
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

private:
    void ScanFile(quint64 fileSize, bool firstEightZero);
    bool Dispatch(quint32 word, quint64 T);
    void SearchCompositionOffsets(quint64 T);
    void RepairFirstChild(quint32 size, quint32 type);

    mutable QMutex m_mutex;
    QWaitCondition m_condition;
    QStringList m_sourceFiles;
    QString m_tempFolder;
    std::atomic<bool> m_reEncode{true};
    WorkerRun m_run;
};
