#include "cli/RepairRun.h"

#include "cli/Console.h"
#include "cli/StopSignal.h"
#include "repair/ThreadVideoRepair.h"
#include "workers/ThreadVideoSaving.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryDir>
#include <QVector>

#include <algorithm>
#include <functional>

using namespace Cli;

namespace {

// Runs the event loop from `start` until `worker` has ended, so that its queued signals arrive.
void RunUntilEnd(QThread *worker, const std::function<void()> &start)
{
    QEventLoop loop;
    QObject::connect(worker, &QThread::finished, &loop, &QEventLoop::quit);
    start();
    loop.exec();
    worker->wait();
}

bool SameSize(const QString &a, const QString &b)
{
    const QFileInfo fa(a), fb(b);
    return fa.exists() && fb.exists() && fa.size() == fb.size();
}

} // namespace

RepairRun::RepairRun(const Options &options, Console &console) : m_options(options), m_console(console)
{
    m_barEnabled = !options.verbose && console.ErrIsTerminal();
}

int RepairRun::Exec()
{
    QTemporaryDir work(QDir(m_options.tempDir).absoluteFilePath("corvane-repair-XXXXXX"));
    if (!work.isValid()) {
        m_console.Err(QString("corvane-repair: cannot make a working folder in %1: %2")
                          .arg(m_options.tempDir, work.errorString()));
        return ExitUsage;
    }
    work.setAutoRemove(!m_options.keepTemp);

    // The log lives beside the working folder, so that it can outlive it.
    const QString logPath = work.path() + ".log";
    if (!m_options.verbose) {
        QString error;
        if (!m_console.Divert(logPath, &error)) {
            m_console.Err("corvane-repair: " + error);
            return ExitUsage;
        }
    }

    auto finish = [&](int code) {
        ClearBar();
        m_console.Restore();
        if (!m_options.verbose) {
            if (code == ExitSomeFailed || m_options.keepTemp)
                m_console.Err("Engine log: " + logPath);
            else
                QFile::remove(logPath);
        }
        if (m_options.keepTemp)
            m_console.Err("Working folder kept: " + work.path());
        return code;
    };

    QStringList sources, names;
    for (const QString &file : m_options.files) {
        const QFileInfo info(file);
        sources << info.absoluteFilePath();
        names << info.fileName();
    }

    // Both constructors clear bStopFlag, so they come before a Ctrl-C can raise it.
    ThreadVideoRepair repair;
    ThreadVideoSaving saver;
    repair.SetReEncodingEnabled(!m_options.structuralOnly);
    repair.SetKeepOriginalCodecs(m_options.keepCodecs);
    QStringList references;
    for (const QString &reference : m_options.references)
        references << QFileInfo(reference).absoluteFilePath();
    repair.SetReferences(references);
    const StopSignal stop(m_console.ErrFd());

    bool aborted = false;
    connect(&repair, &ThreadVideoRepair::ProcessAborted, this, [&aborted] { aborted = true; });
    // Progress comes as a queued signal per scan step: listen only when it is shown.
    if (m_barEnabled) {
        connect(&repair, &ThreadVideoRepair::OverAllMaxProgress, this, [this, &names](unsigned long) {
            Stage(++m_passes == 1 ? "Repairing" : "Re-encoding", names);
        });
        connect(&repair, &ThreadVideoRepair::OverAllProgressValue, this, &RepairRun::FileStarted);
        connect(&repair, &ThreadVideoRepair::MaxProgress, this, &RepairRun::FileMax);
        connect(&repair, &ThreadVideoRepair::ProgressValue, this, &RepairRun::FileValue);
        connect(&saver, &ThreadVideoSaving::OverAllProgressValue, this, &RepairRun::FileStarted);
        connect(&saver, &ThreadVideoSaving::MaxProgress, this, &RepairRun::FileMax);
        connect(&saver, &ThreadVideoSaving::ProgressValue, this, &RepairRun::FileValue);
    }

    Stage("Copying", names);
    RunUntilEnd(&repair, [&] { repair.SetInitialSettings(sources, work.path()); });
    if (aborted || StopSignal::Requested()) {
        ClearBar();
        m_console.Err("Stopped: nothing was saved.");
        return finish(ExitInterrupted);
    }

    // One outcome per source, in the order given; a file fails when its result does not play, or
    // when it has no working copy left to save.
    const RepairOutcomes outcomes = repair.Outcomes();
    QVector<bool> failed(sources.size());
    QStringList copies, saveNames;
    for (int i = 0; i < sources.size(); ++i) {
        const QString copy = work.path() + "/" + names.at(i);
        failed[i] = i >= outcomes.size() || outcomes.at(i).verdict != RepairOutcome::Verdict::Repaired ||
                    !QFileInfo::exists(copy);
        if (!failed[i]) {
            copies << copy;
            saveNames << names.at(i);
        }
    }

    const QString resultFolder = QDir(m_options.outputDir).absoluteFilePath("Repaired-Video-Files");
    const bool folderExisted = QFileInfo::exists(resultFolder);
    int inHand = -1; // the file the saver is copying
    QHash<QString, QString> saveFailures; // file name, or "" for the result folder: why
    if (!copies.isEmpty()) {
        connect(&saver, &ThreadVideoSaving::OverAllProgressValue, this,
                [&inHand](unsigned long index) { inHand = int(index); });
        connect(&saver, &ThreadVideoSaving::SaveFailed, this,
                [&saveFailures](const QString &file, const QString &reason) {
                    saveFailures.insert(file, reason);
                });
        Stage("Saving", saveNames);
        if (!StopSignal::Requested())
            RunUntilEnd(&saver, [&] { saver.SetInitialSettings(copies, m_options.outputDir); });
    }

    if (StopSignal::Requested()) {
        // Files before the one in hand are complete and stay; the one in hand may be cut off.
        int saved = 0;
        for (int j = 0; j < copies.size() && j <= inHand; ++j) {
            const QString result = ResultPath(m_options.outputDir, copies.at(j));
            if (SameSize(result, copies.at(j)))
                ++saved;
            else if (j == inHand && QFileInfo::exists(result))
                QFile::remove(result);
        }
        if (!folderExisted)
            QDir().rmdir(resultFolder); // only when nothing is in it
        ClearBar();
        if (saved == 0)
            m_console.Err("Stopped while saving: nothing was saved.");
        else
            m_console.Err(QString("Stopped while saving: %1 of %2 repaired files saved in %3.")
                              .arg(saved)
                              .arg(copies.size())
                              .arg(resultFolder));
        return finish(ExitInterrupted);
    }

    ClearBar();
    if (saveFailures.contains(QString())) { // checked before the run, but it can change meanwhile
        m_console.Err(
            QString("corvane-repair: the folder \"Repaired-Video-Files\" could not be created in %1: %2")
                .arg(QDir(m_options.outputDir).absolutePath(), saveFailures.value(QString())));
        return finish(ExitUsage);
    }
    int repaired = 0;
    for (int i = 0; i < sources.size(); ++i) {
        const QString result = ResultPath(m_options.outputDir, sources.at(i));
        QString note;
        if (!failed[i] && !SameSize(result, work.path() + "/" + names.at(i))) {
            failed[i] = true;
            const QString reason = saveFailures.value(names.at(i));
            note = " (could not be saved to " + result + (reason.isEmpty() ? "" : ": " + reason) + ")";
        }
        if (!failed[i])
            ++repaired;
        m_console.Out((failed[i] ? "Repair Failed: " : "Successfully Repaired: ") + m_options.files.at(i) +
                      note);
        // The lines the log report gives the file; its status sentence only says why it failed.
        if (i < outcomes.size() && note.isEmpty()) {
            const RepairOutcome &o = outcomes.at(i);
            const QStringList lines = ReportLines(o);
            for (const QString &line : lines.mid(o.verdict == RepairOutcome::Verdict::Repaired ? 1 : 0))
                m_console.Out("  " + line);
        }
    }

    const int count = sources.size();
    QString summary =
        QString("%1 of %2 %3 repaired").arg(repaired).arg(count).arg(count == 1 ? "file" : "files");
    if (repaired > 0)
        summary += "; results in " + resultFolder;
    if (m_options.structuralOnly)
        summary += " (headers only, not re-encoded)";
    m_console.Out(summary + ".");
    return finish(repaired == count ? ExitAllRepaired : ExitSomeFailed);
}

void RepairRun::Stage(const QString &stage, const QStringList &names)
{
    m_stage = stage;
    m_names = names;
    m_index = 0;
    m_max = 0;
    m_value = 0;
    Draw();
}

void RepairRun::FileStarted(unsigned long index)
{
    m_index = int(index);
    m_max = 0;
    m_value = 0;
    Draw();
}

void RepairRun::FileMax(unsigned long max)
{
    m_max = max;
    Draw();
}

void RepairRun::FileValue(unsigned long value)
{
    // While copying, the worker counts files, not bytes.
    if (m_stage == "Copying") {
        m_index = int(value);
    } else {
        m_value = value;
        // Ten times a second is enough for the eye, and spares the formatting per step.
        if (m_sinceDraw.isValid() && m_sinceDraw.elapsed() < 100)
            return;
    }
    Draw();
}

void RepairRun::Draw()
{
    if (!m_barEnabled || m_names.isEmpty())
        return;
    const int index = std::clamp(m_index, 0, m_names.size() - 1);
    // Positions past the end (FFmpeg reports -1 for unknown) count as the whole file.
    const double within = m_max > 0 ? double(std::min(m_value, m_max)) / double(m_max) : 0.0;
    const double fraction = (index + within) / m_names.size();
    const QString line =
        ProgressLine(m_stage, index, m_names.size(), fraction, m_names.at(index), m_console.ErrColumns() - 1);
    m_sinceDraw.start();
    if (line == m_drawn)
        return;
    m_drawn = line;
    m_console.ErrRaw("\r" + line + "\x1b[K");
}

void RepairRun::ClearBar()
{
    if (m_drawn.isEmpty())
        return;
    m_drawn.clear();
    m_console.ErrRaw("\r\x1b[K");
}
