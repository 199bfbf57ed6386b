#pragma once

#include "repair/Playback.h"

#include <QList>
#include <QString>
#include <QStringList>

// What a repair run made of one file: the verdict the pages and the command line show, and the
// lines the log report adds for it.
struct RepairOutcome
{
    enum class Verdict {
        Repaired,         // the result plays
        UnsupportedCodec, // refused for its streams ("Failed due to unsupported Audio or Video codecs.")
        NotPlayable,      // nothing at hand plays ("No playable video was found in the file.")
    };

    QString source;      // the file as the user gave it
    QString workingCopy; // its working copy in the temporary folder: the result when repaired
    Verdict verdict = Verdict::Repaired;
    Playback plays;      // what the result plays, as far as it was measured
    QString madeBy;      // how the result was made: "re-encoded", "remuxed", "original", "headers", ...
    QString rebuiltFrom; // the description a lost index was rebuilt from, empty when none was rebuilt
    double recoveredSeconds = 0; // with rebuiltFrom: the seconds the rebuilt index plays
    QStringList notes;   // further lines for the report, such as the values a rebuild had to assume
};

using RepairOutcomes = QList<RepairOutcome>;

// What the log report and the command line say of a file: its status sentence first ("Successfully
// Repaired.", or why it failed), then the lines that tell how it was repaired (an index rebuilt, the
// values a rebuild had to assume). Both show every line, so that what is added here reaches both.
QStringList ReportLines(const RepairOutcome &outcome);
