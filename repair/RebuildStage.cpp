// The stage between the structural pass and the re-encoding pass. A working copy whose first bytes
// were lost gets its leading box headers back where its surviving index says they stood. A working
// copy whose index was lost or broken (it does not open, or plays nothing, or its index points past
// its end or accounts for far less than its media data) is rebuilt from its media data. Every description at hand is tried: what survives of the file's own (its
// sample descriptions, parameter sets in its media data), the recordings the user chose as
// references, then the other files of the run that open cleanly (a camera's clips share one
// description). The rebuild that plays the most takes the working copy's place, but only when it
// plays more than the working copy does.

#include "rebuild/LostStart.h"
#include "rebuild/OwnDescription.h"
#include "rebuild/Rebuild.h"
#include "repair/Playback.h"
#include "repair/ThreadVideoRepair.h"

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSet>

#include <cstdio>

namespace {

// The descriptions to try for `file`, in the order that wins ties: its own, chosen references, then
// the run's other files. Two that would rebuild alike are tried once.
std::vector<const Description *> DescriptionsFor(const QString &file, const Description &own,
                                                 const std::vector<Description> &chosen,
                                                 const std::vector<std::pair<QString, Description>> &automatic)
{
    std::vector<const Description *> list;
    QSet<QByteArray> keys;
    auto add = [&](const Description &d) {
        if (!d.Usable())
            return;
        const QByteArray key = d.Key();
        if (keys.contains(key))
            return;
        keys.insert(key);
        list.push_back(&d);
    };
    add(own);
    for (const Description &d : chosen)
        add(d);
    for (const auto &[copy, d] : automatic)
        if (copy != file)
            add(d);
    return list;
}

// Rebuilds are ranked by the pictures that decode cleanly first: a description that does not fit
// the pictures (another size, other settings) still yields as many, every one concealed.
bool RebuildsBetter(const Playback &a, const Playback &b)
{
    const qint64 cleanA = a.videoFrames - a.damagedFrames, cleanB = b.videoFrames - b.damagedFrames;
    if (cleanA != cleanB)
        return cleanA > cleanB;
    return PlaysMore(a, b);
}

} // namespace

void ThreadVideoRepair::RebuildLostIndexes(const QStringList &files)
{
    QStringList needing;
    for (const QString &path : files) {
        if (bStopFlag)
            return;
        if (QFileInfo::exists(path) && RestoreLostStart(path))
            m_rewrittenCopies.insert(path);
        if (QFileInfo::exists(path) && NeedsRebuild(path, &bStopFlag))
            needing << path;
    }
    if (needing.isEmpty() || bStopFlag)
        return;

    std::vector<Description> chosen;
    for (const QString &reference : References()) {
        QString why;
        chosen.push_back(LearnFromReference(reference, &why));
        if (!chosen.back().Usable())
            fprintf(stderr, "%s: not usable as a reference: %s\n", QFile::encodeName(reference).constData(),
                    qPrintable(why));
    }
    std::vector<std::pair<QString, Description>> automatic;
    for (const QString &path : files)
        if (!needing.contains(path) && QFileInfo::exists(path))
            automatic.emplace_back(path, LearnFromReference(path));

    for (const QString &path : qAsConst(needing)) {
        if (bStopFlag)
            return;
        const QFileInfo info(path);
        const QString attempt = info.path() + "/00000" + info.fileName();
        const QString kept = info.path() + "/000000" + info.fileName();
        const Description own = LearnFromDamagedFile(path);
        const std::vector<const Description *> descriptions = DescriptionsFor(path, own, chosen, automatic);
        if (descriptions.empty())
            continue;
        Q_EMIT Info(tr("Rebuilding the index of ") + info.fileName());
        Q_EMIT MaxProgress(static_cast<unsigned long>(info.size()));

        const Description *best = nullptr;
        Playback bestPlays;
        double bestSeconds = 0;
        for (const Description *d : descriptions) {
            const RebuildResult r = RebuildIndex(path, attempt, *d, &bStopFlag, [this](int64_t done, int64_t) {
                Q_EMIT ProgressValue(static_cast<unsigned long>(done));
            });
            // Sound alone from media data that is mostly something else (pictures no description at
            // hand fits) would call a video file repaired without its pictures.
            const bool soundOfVideo = !d->Video() && r.skippedBytes > r.mediaBytes / 5;
            const Playback plays = r.Recovered() && !soundOfVideo ? MeasurePlayback(attempt, &bStopFlag) : Playback();
            if (bStopFlag)
                break;
            fprintf(stderr, "%s rebuilt with %s: %lld pictures, %lld sound frames, %lld bytes skipped; plays %lld "
                            "pictures (%lld damaged) and %.2f s of sound\n",
                    QFile::encodeName(path).constData(), qPrintable(d->origin), (long long)r.videoSamples,
                    (long long)r.audioSamples, (long long)r.skippedBytes, (long long)plays.videoFrames,
                    (long long)plays.damagedFrames, plays.audioSeconds);
            if (plays.Plays() && (!best || RebuildsBetter(plays, bestPlays))) {
                QFile::remove(kept);
                QFile::rename(attempt, kept);
                best = d;
                bestPlays = plays;
                bestSeconds = r.seconds;
            }
            QFile::remove(attempt);
        }
        if (bStopFlag || !best || !PlaysMore(bestPlays, MeasurePlayback(path, &bStopFlag)) || bStopFlag) {
            QFile::remove(kept);
            QFile::remove(attempt);
            continue;
        }
        // Both files are ours, in our folder: renaming replaces the working copy at once, and never
        // writes through a link planted at its name.
        if (std::rename(QFile::encodeName(kept).constData(), QFile::encodeName(path).constData()) != 0) {
            QFile::remove(kept);
            continue;
        }
        m_rewrittenCopies.insert(path);
        QMutexLocker locker(&m_resultMutex);
        for (RepairOutcome &o : m_outcomes) {
            if (o.workingCopy != path)
                continue;
            o.rebuiltFrom = best->origin;
            o.recoveredSeconds = bestSeconds;
            o.notes = best->assumptions;
        }
    }
}
