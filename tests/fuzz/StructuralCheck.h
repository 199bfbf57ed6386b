#pragma once

#include <QByteArray>
#include <QString>

// Runs the structural pass over `input` as a working copy at `path`: the scan must end within its
// budget and a second, grow the file by no more than its header writes, and leave nothing open.
// Returns what did not hold, or an empty string.
QString CheckStructuralPass(const QByteArray &input, const QString &path);

// Processor time of this thread: what a check itself costs, whatever else the machine is doing.
qint64 ThreadMs();

// What a check may cost: a second of ThreadMs, times CORVANE_SLOWDOWN in a build that runs slower on
// purpose (ThreadSanitizer's, by 5 to 15 times).
qint64 BudgetMs();

// One data row ("input", the file's path) for each input of the fuzzing corpus in `corpus` and of
// the inputs that once failed, in `failed` (folders of tests/fuzz).
void AddReplayRows(const QString &corpus, const QString &failed);
