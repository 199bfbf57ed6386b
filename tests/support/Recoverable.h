#pragma once

#include <QList>
#include <QPair>
#include <QString>

// What a repair can at best give back of a damaged copy: the pictures whose bytes and key frame
// survive, and the seconds of sound whose packets survive.
namespace Recoverable {

using Ranges = QList<QPair<qint64, qint64>>; // [begin, end) byte ranges of the original

struct Target
{
    qint64 frames = 0;
    double audioSeconds = 0;
};

// `surviving` lists the byte ranges of the original that are still in the damaged copy.
Target Of(const QString &original, const Ranges &surviving);

// [begin, end) of the original's largest "mdat" payload; {0, 0} when it has none.
QPair<qint64, qint64> MediaData(const QString &original);

} // namespace Recoverable
