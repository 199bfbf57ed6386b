#include "repair/ThreadVideoRepair.h"

#include "repair/BlockCopy.h"

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

ThreadVideoRepair::ThreadVideoRepair(QObject *parent) : QThread(parent)
{
    bStopFlag = false;
}

ThreadVideoRepair::~ThreadVideoRepair()
{
    // Destroying a running QThread aborts the process: stop our own run and wait for it. The run's
    // end withdraws the request, so that it never stops the next run.
    m_run.StopAndWait(*this, m_condition);
}

void ThreadVideoRepair::SetInitialSettings(QStringList files, QString tempFolder)
{
    QMutexLocker locker(&m_mutex);
    m_sourceFiles = files;
    m_tempFolder = tempFolder;
    m_run.StartOrStop(*this, m_condition);
}

bool ThreadVideoRepair::RequestStop()
{
    return m_run.RequestStop();
}

QStringList ThreadVideoRepair::UnsupportedList() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_unsupportedList;
}

void ThreadVideoRepair::ClearUnsupportedList()
{
    QMutexLocker locker(&m_resultMutex);
    m_unsupportedList.clear();
}

QString ThreadVideoRepair::RepairedPath() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_repairedPath;
}

RepairOutcomes ThreadVideoRepair::Outcomes() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_outcomes;
}

void ThreadVideoRepair::SetReferences(QStringList files)
{
    QMutexLocker locker(&m_resultMutex);
    m_references = files;
}

QStringList ThreadVideoRepair::References() const
{
    QMutexLocker locker(&m_resultMutex);
    return m_references;
}

void ThreadVideoRepair::SetReEncodingEnabled(bool enabled)
{
    m_reEncode = enabled;
}

bool ThreadVideoRepair::ReEncodingEnabled() const
{
    return m_reEncode;
}

void ThreadVideoRepair::SetKeepOriginalCodecs(bool keep)
{
    m_keepCodecs = keep;
}

bool ThreadVideoRepair::KeepOriginalCodecs() const
{
    return m_keepCodecs;
}

void ThreadVideoRepair::run()
{
    QMutexLocker locker(&m_mutex);
    bProcessRunning = true;
    if (!bStopFlag) {
        OnRepair();
        if (!bStopFlag) {
            Q_EMIT RepairFinish();
            bProcessRunning = false;
            m_run.End();
            return;
        }
    }
    Q_EMIT ProcessAborted();
    bProcessRunning = false;
    m_run.End();
}

void ThreadVideoRepair::OnRepair()
{
    const int n = m_sourceFiles.size();
    Q_EMIT MaxProgress(static_cast<unsigned long>(n));

    // Every file starts unjudged: a run that ends early leaves it so.
    RepairOutcomes outcomes;
    for (const QString &source : qAsConst(m_sourceFiles)) {
        RepairOutcome o;
        o.source = source;
        o.workingCopy = m_tempFolder + "/" + QFileInfo(source).fileName();
        o.verdict = RepairOutcome::Verdict::NotPlayable;
        outcomes << o;
    }
    {
        QMutexLocker locker(&m_resultMutex);
        m_outcomes = outcomes;
    }
    m_rewrittenCopies.clear();

    QStringList workingCopies;
    for (int i = 0; i < n && !bStopFlag; ++i) {
        const QString fileName = QFileInfo(m_sourceFiles.at(i)).fileName();
        const QString target = m_tempFolder + "/" + fileName;
        Q_EMIT Info(tr("Scanning ") + fileName + tr(" file"));
        Q_EMIT ProgressValue(static_cast<unsigned long>(i));
        // A failed copy (name taken, disk full, unreadable source) leaves no new file; the path still
        // goes on and the structural pass skips what it cannot open. The shared block copy is several
        // times faster than QFile::copy's 4 KiB steps.
        if (!QFileInfo::exists(target))
            CopyWholeFile(QFile::encodeName(m_sourceFiles.at(i)), QFile::encodeName(target));
        workingCopies.append(target);
    }

    if (!bStopFlag)
        RepairFiles(workingCopies);
    if (!bStopFlag && !m_reEncode)
        JudgeHeaderRepairs(workingCopies);
}
