#include "Damage.h"

#include <QtEndian>

#include <algorithm>
#include <random>

namespace Damage {

namespace {

// Boxes whose payload is a run of boxes.
bool IsContainer(const char *type)
{
    static const char *const containers[] = {"moov", "trak", "mdia", "minf", "dinf", "stbl", "edts",
                                             "udta", "mvex", "moof", "traf", "mfra", "tapt"};
    for (const char *c : containers)
        if (qstrncmp(type, c, 4) == 0)
            return true;
    return false;
}

void Walk(const QByteArray &data, qint64 from, qint64 to, qint64 parent, QVector<Box> *out)
{
    qint64 pos = from;
    while (pos + 8 <= to) {
        const uchar *p = reinterpret_cast<const uchar *>(data.constData()) + pos;
        qint64 size = qFromBigEndian<quint32>(p);
        qint64 header = 8;
        if (size == 1) {
            if (pos + 16 > to)
                return;
            size = qint64(qFromBigEndian<quint64>(p + 8));
            header = 16;
        } else if (size == 0) {
            size = to - pos;
        }
        if (size < header || size > to - pos)
            return;
        out->append({pos, size, parent});
        if (IsContainer(reinterpret_cast<const char *>(p + 4)))
            Walk(data, pos + header, pos + size, pos, out);
        pos += size;
    }
}

void PutWord(QByteArray *data, qint64 pos, quint32 word)
{
    if (pos + 4 <= data->size())
        qToBigEndian<quint32>(word, reinterpret_cast<uchar *>(data->data()) + pos);
}

} // namespace

QVector<Box> Boxes(const QByteArray &data)
{
    QVector<Box> boxes;
    Walk(data, 0, data.size(), -1, &boxes);
    return boxes;
}

QString KindName(Kind kind)
{
    switch (kind) {
    case Kind::FlipBytes: return "flip";
    case Kind::Truncate: return "truncate";
    case Kind::ZeroType: return "zero-type";
    case Kind::ZeroSize: return "zero-size";
    case Kind::SwapSiblings: return "swap";
    }
    return {};
}

QByteArray Apply(const QByteArray &data, Kind kind, quint32 seed, QString *what)
{
    std::mt19937 rng(seed);
    auto below = [&rng](qint64 n) { return n <= 0 ? 0 : qint64(rng() % quint64(n)); };
    QByteArray out = data;
    const QVector<Box> boxes = Boxes(data);

    switch (kind) {
    case Kind::FlipBytes: {
        // Mostly in the box headers near the start, where a flip changes what the repair sees.
        const int count = 1 + int(below(16));
        const qint64 span = below(2) ? out.size() : std::min<qint64>(out.size(), 4096);
        for (int i = 0; i < count; ++i) {
            const int at = int(below(span));
            out[at] = char(out.at(at) ^ char(1 + below(255)));
        }
        *what = QString("%1 bytes flipped in the first %2").arg(count).arg(span);
        return out;
    }
    case Kind::Truncate: {
        const qint64 at = below(out.size());
        out.truncate(int(at));
        *what = QString("cut at %1").arg(at);
        return out;
    }
    case Kind::ZeroType:
    case Kind::ZeroSize: {
        if (boxes.isEmpty())
            break;
        const Box &b = boxes.at(int(below(boxes.size())));
        const bool type = kind == Kind::ZeroType;
        PutWord(&out, b.offset + (type ? 4 : 0), 0);
        *what = QString("%1 of box at %2 zeroed").arg(type ? "type" : "size").arg(b.offset);
        return out;
    }
    case Kind::SwapSiblings: {
        // Two boxes with the same parent change places; the bytes between them stay.
        QVector<QPair<int, int>> pairs;
        for (int i = 0; i < boxes.size(); ++i)
            for (int j = i + 1; j < boxes.size(); ++j)
                if (boxes.at(i).parent == boxes.at(j).parent)
                    pairs.append({i, j});
        if (pairs.isEmpty())
            break;
        const auto pick = pairs.at(int(below(pairs.size())));
        const Box &a = boxes.at(pick.first);
        const Box &b = boxes.at(pick.second);
        const qint64 aEnd = a.offset + a.size;
        out = data.left(int(a.offset)) + data.mid(int(b.offset), int(b.size)) +
              data.mid(int(aEnd), int(b.offset - aEnd)) + data.mid(int(a.offset), int(a.size)) +
              data.mid(int(b.offset + b.size));
        *what = QString("boxes at %1 and %2 swapped").arg(a.offset).arg(b.offset);
        return out;
    }
    }
    *what = "no box found: unchanged";
    return out;
}

} // namespace Damage
