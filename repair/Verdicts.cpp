// What a run makes of each file: the candidates for its result are measured with what they play,
// the one that plays the most takes the working copy's place, and the verdict says whether it plays.

#include "repair/BlockCopy.h"
#include "repair/Playback.h"
#include "repair/RepairContext.h"
#include "repair/SafeFile.h"
#include "repair/ThreadVideoRepair.h"

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

#include <cstdio>

namespace {

// Copies the open file pHandle into `staging`, a stop seen between blocks. Returns false when a stop,
// an early end of pHandle or a failed write cut the copy short.
bool CopyToStaging(quint64 size, FILE *staging)
{
    return CopyBlocks(fileno(pHandle), fileno(staging), size, &bStopFlag).Ok();
}

} // namespace

QString ThreadVideoRepair::SourceOf(const QString &workingCopy) const
{
    QMutexLocker locker(&m_resultMutex);
    for (const RepairOutcome &o : m_outcomes)
        if (o.workingCopy == workingCopy && o.source != workingCopy)
            return o.source;
    return {};
}

void ThreadVideoRepair::Judge(const QString &workingCopy, RepairOutcome::Verdict verdict,
                              const Playback &plays, const QString &madeBy)
{
    QMutexLocker locker(&m_resultMutex);
    bool known = false;
    for (RepairOutcome &o : m_outcomes) {
        if (o.workingCopy != workingCopy)
            continue;
        known = true;
        o.verdict = verdict;
        o.plays = plays;
        o.madeBy = madeBy;
    }
    if (!known) { // a pass called on its own, outside a run
        RepairOutcome o;
        o.source = o.workingCopy = workingCopy;
        o.verdict = verdict;
        o.plays = plays;
        o.madeBy = madeBy;
        m_outcomes << o;
    }
    if (verdict != RepairOutcome::Verdict::Repaired)
        m_unsupportedList.append(workingCopy);
}

int ThreadVideoRepair::PickBest(QList<Candidate> &candidates)
{
    const auto tied = [&candidates](const Candidate &c) {
        return !c.plays.hasVideo ||
               std::any_of(candidates.begin(), candidates.end(), [&c](const Candidate &o) {
                   return &o != &c && o.plays.videoFrames == c.plays.videoFrames;
               });
    };
    for (bool counted : {false, true}) {
        for (Candidate &c : candidates) {
            if (c.counted != counted || (counted && !tied(c)))
                continue;
            c.plays = MeasurePlayback(c.path, &bStopFlag);
            if (bStopFlag)
                return -1;
        }
    }
    int best = -1;
    for (int i = 0; i < candidates.size(); ++i) {
        const Candidate &c = candidates.at(i);
        fprintf(stderr, "%s (%s) plays %lld pictures and %.2f s of sound\n",
                QFile::encodeName(c.path).constData(), qPrintable(c.madeBy), (long long)c.plays.videoFrames,
                c.plays.audioSeconds);
        if (best < 0 || PlaysMore(c.plays, candidates.at(best).plays))
            best = i;
    }
    return best;
}

bool ThreadVideoRepair::ReplaceWorkingCopy(const QString &workingCopy, const QString &from,
                                           bool fromWorkingFolder)
{
    // Files of the shared working folder are never opened through a link; the user's own file is
    // read as the user named it.
    pHandle = fromWorkingFolder ? OpenExistingNoFollow(QFile::encodeName(from))
                                : fopen(QFile::encodeName(from).constData(), "rb");
    if (!pHandle)
        return false;
    const QFileInfo info(workingCopy);
    const QString staging = info.path() + "/00" + info.fileName();
    FILE *stage = CreateFresh(QFile::encodeName(staging));
    // Without a staging file the working copy stays: removing it first, as this once did, lost the
    // result. A stop during the copy keeps it too, rather than a cut-off file.
    bool complete = stage && CopyToStaging(quint64(QFileInfo(from).size()), stage);
    if (stage && fclose(stage) != 0)
        complete = false;
    fclose(pHandle);
    pHandle = nullptr;
    if (!complete) {
        QFile::remove(staging);
        return false;
    }
    QFile::remove(workingCopy);
    if (fromWorkingFolder)
        QFile::remove(from);
    QFile::rename(staging, workingCopy);
    QMutexLocker locker(&m_resultMutex);
    m_repairedPath = workingCopy;
    return true;
}

// Header fixes alone: a working copy the structural pass left as its source is judged by whether it
// plays at all; one it changed is measured against its source, which replaces it when it plays more.
void ThreadVideoRepair::JudgeHeaderRepairs(const QStringList &files)
{
    for (const QString &path : files) {
        if (bStopFlag)
            return;
        const QString source = SourceOf(path);
        if (!m_rewrittenCopies.contains(path) || source.isEmpty()) {
            const Playback plays = MeasureFirstPlay(path, &bStopFlag);
            Judge(path,
                  plays.Plays() ? RepairOutcome::Verdict::Repaired : RepairOutcome::Verdict::NotPlayable,
                  plays, "original");
            continue;
        }
        QList<Candidate> candidates{{path, "headers", {}}, {source, "original", {}}};
        int best = PickBest(candidates);
        if (best < 0)
            return;
        if (best == 1 && !ReplaceWorkingCopy(path, source, false)) {
            if (bStopFlag)
                return;
            best = 0; // the source could not be copied; the working copy stays
        }
        const Candidate &c = candidates.at(best);
        Judge(path, c.plays.Plays() ? RepairOutcome::Verdict::Repaired : RepairOutcome::Verdict::NotPlayable,
              c.plays, c.madeBy);
    }
}
