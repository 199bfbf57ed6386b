#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// Deterministic damage to whole media files, for running damaged real files through the engine.
namespace Damage {

enum class Kind { FlipBytes, Truncate, ZeroType, ZeroSize, SwapSiblings };
constexpr int KindCount = 5;

// A box found by walking the file by its sizes: where its header starts, its whole length, and the
// header of the box that holds it (-1 at the top level).
struct Box
{
    qint64 offset;
    qint64 size;
    qint64 parent;
};

// Every box reachable from the top level through the usual container boxes, in file order.
QVector<Box> Boxes(const QByteArray &data);

// `data` damaged in the way `kind` names, chosen by `seed`; `what` says what was done. The same
// seed always gives the same damage.
QByteArray Apply(const QByteArray &data, Kind kind, quint32 seed, QString *what);

QString KindName(Kind kind);

} // namespace Damage
