#pragma once

#include "repair/RepairOutcome.h"

#include <QString>
#include <QStringList>

// Outcome of the last repair run, by file name, written by the repair page when a run ends and read
// by the save page and the log report.
extern QStringList mY_unsupportedList; // files whose repair failed
extern QStringList AllFiles;           // files repaired successfully
extern RepairOutcomes lstRepairOutcomes; // what the run made of each file, in run order

// What the last run made of the file of this name (the first of that name); a name the run did not
// record gets an outcome with `verdict` alone.
RepairOutcome OutcomeOf(const QString &name, RepairOutcome::Verdict verdict);

// The size text of the file trees: "1.5 GB", "1.17 MB", "2 KB", "0.00 KB". Binary units; at most two
// digits after the point, cut rather than rounded.
QString GetSizeOfItem(qint64 bytes);
// The widest size texts below a terabyte, "1023.99 MB" and "1023.99 GB": what a size column must fit.
QStringList WidestSizeTexts();
