#pragma once

#include <QByteArray>
#include <QString>

// Runs the structural pass over `input` as a working copy at `path` and checks what must hold for
// any input: the scan ends within its step budget and within a second, the file grows by no more
// than the fixed-size header writes the repairs may make past its end, and nothing stays open.
// Returns an empty string when all held, otherwise what did not.
QString CheckStructuralPass(const QByteArray &input, const QString &path);
