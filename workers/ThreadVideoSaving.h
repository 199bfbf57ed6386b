#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QWaitCondition>

#include "repair/ProcessFlags.h"

// The saving worker: copies the chosen working copies into "Repaired-Video-Files" inside the
// destination, in 1024-byte chunks so that a stop request is seen promptly.
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

    void OnVideoSaving();

Q_SIGNALS:
    void ProgressValue(unsigned long done);
    void MaxProgress(unsigned long size);
    void OverAllProgressValue(unsigned long index);
    void Info(QString text);
    void DestInfo(QString folder);
    void OverAllMaxProgress(unsigned long files);
    void SavingFinish();

protected:
    void run() override;

private:
    QMutex m_mutex;
    QWaitCondition m_condition;
    QStringList m_fileList;
    QString m_destFolder;
    WorkerRun m_run;
};
