#include "workers/ThreadVideoSaving.h"

#include "repair/ProcessFlags.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {
constexpr quint64 ChunkSize = 1024;
}

ThreadVideoSaving::ThreadVideoSaving(QObject *parent) : QThread(parent)
{
    bStopFlag = false;
}

ThreadVideoSaving::~ThreadVideoSaving()
{
    // Destroying a running QThread aborts the process: stop our own run and wait for it. The run's
    // end withdraws the request, so that it cannot stop the next run.
    m_run.StopAndWait(*this, m_condition);
}

void ThreadVideoSaving::SetInitialSettings(QStringList files, QString destination)
{
    QMutexLocker locker(&m_mutex);
    if (files != m_fileList)
        m_fileList = files;

    // An existing folder is used as it is: files of the same name in it are overwritten.
    QDir dir(destination);
    const QString folderName = tr("Repaired-Video-Files");
    dir.mkdir(folderName);
    dir.cd(folderName);
    m_destFolder = dir.absolutePath();

    m_run.StartOrStop(*this, m_condition);
}

bool ThreadVideoSaving::RequestStop()
{
    return m_run.RequestStop();
}

void ThreadVideoSaving::run()
{
    QMutexLocker locker(&m_mutex);
    bProcessRunning = true;
    if (!bStopFlag)
        OnVideoSaving();
    else
        Q_EMIT SavingFinish(); // stopped before it began: the page still learns that the run ended
    bProcessRunning = false;
    m_run.End();
}

void ThreadVideoSaving::OnVideoSaving()
{
    Q_EMIT DestInfo(m_destFolder);
    const int n = m_fileList.size();
    Q_EMIT OverAllMaxProgress(static_cast<unsigned long>(n));
    if (n == 0 || bStopFlag) {
        Q_EMIT SavingFinish();
        return;
    }

    for (int i = 0; i < n; ++i) {
        const QString &source = m_fileList.at(i);
        const QString name = QFileInfo(source).fileName();
        const QString target = m_destFolder + "/" + name;

        FILE *in = fopen(QFile::encodeName(source).constData(), "rb+");
        Q_EMIT Info(tr("Saving ") + name + tr(" file"));
        Q_EMIT OverAllProgressValue(static_cast<unsigned long>(i));
        if (in) {
            FILE *out = fopen(QFile::encodeName(target).constData(), "w+");
            if (out) {
                const quint64 size = quint64(QFileInfo(source).size());
                Q_EMIT MaxProgress(static_cast<unsigned long>(size));
                quint64 done = 0;
                std::vector<char> buffer;
                while (done < size && !bStopFlag) {
                    const quint64 chunk = std::min(size - done, ChunkSize);
                    buffer.assign(chunk, 0);
                    (void)fread(buffer.data(), 1, chunk, in);
                    done += chunk;
                    Q_EMIT ProgressValue(static_cast<unsigned long>(done));
                    // A short read is not detected: the chunk is written at its requested length.
                    (void)fwrite(buffer.data(), 1, chunk, out);
                }
                fclose(out);
            }
            fclose(in);
        }
        if (bStopFlag)
            break;
    }
    Q_EMIT SavingFinish();
}
