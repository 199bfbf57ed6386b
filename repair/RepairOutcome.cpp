#include "repair/RepairOutcome.h"

#include <QCoreApplication>

QStringList ReportLines(const RepairOutcome &outcome)
{
    auto tr = [](const char *text) { return QCoreApplication::translate("RepairOutcome", text); };
    QStringList lines;
    switch (outcome.verdict) {
    case RepairOutcome::Verdict::Repaired:
        lines << tr("Successfully Repaired.");
        break;
    case RepairOutcome::Verdict::UnsupportedCodec:
        lines << tr("Failed due to unsupported Audio or Video codecs.");
        break;
    case RepairOutcome::Verdict::NotPlayable:
        lines << tr("No playable video was found in the file.");
        break;
    }
    if (!outcome.rebuiltFrom.isEmpty())
        lines << tr("Index rebuilt from %1; %2 s recovered.")
                     .arg(outcome.rebuiltFrom)
                     .arg(outcome.recoveredSeconds, 0, 'f', 1);
    return lines + outcome.notes;
}
