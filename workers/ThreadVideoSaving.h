#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QWaitCondition>

#include "repair/ProcessFlags.h"

// The saving worker: copies the chosen working copies into "Repaired-Video-Files" inside the
// destination, in large blocks with a stop request seen between them. Nothing is ever written
// outside that folder: when it cannot be made or entered the run ends with SaveFailed.
class ThreadVideoSaving : public QThread
{
    Q_OBJECT

public:
    explicit ThreadVideoSaving(QObject *parent = nullptr);
    ~ThreadVideoSaving() override;

    // Creates "Repaired-Video-Files" in `destination` (an existing one is used as it is) and starts a
    // run over `files`. When a run is already going, asks it to stop instead.
    void SetInitialSettings(QStringList files, QString destination);
    // Asks the run that is going to stop (bStopFlag); false when none is going any more.
    bool RequestStop();

    // Why `folder` cannot take the results, checked without making anything: empty when it can, or
    // when it does not exist yet.
    static QString FolderProblem(const QString &folder);

    void OnVideoSaving();

Q_SIGNALS:
    void ProgressValue(unsigned long done);
    void MaxProgress(unsigned long size);
    void OverAllProgressValue(unsigned long index);
    void Info(QString text);
    void DestInfo(QString folder);
    void OverAllMaxProgress(unsigned long files);
    // A file that could not be saved (its cut-off copy is removed), or with an empty name the
    // folder "Repaired-Video-Files" itself, in which case nothing was written. Comes before
    // SavingFinish; `reason` is the system's.
    void SaveFailed(QString file, QString reason);
    void SavingFinish();

protected:
    void run() override;

private:
    // One file into the open folder.
    void SaveOne(int folder, const QString &source, const QString &name);

    QMutex m_mutex;
    QWaitCondition m_condition;
    QStringList m_fileList;
    QString m_destFolder;
    WorkerRun m_run;
};
