// The structural pass on byte-level files: the words it acts on, the bytes it writes, the positions
// it reads; the guard that keeps a scan finite; the fuzzing corpus and past failures.

#include "Bytes.h"
#include "StructuralCheck.h"
#include "repair/RepairContext.h"
#include "repair/ScanGuard.h"
#include "repair/ThreadVideoRepair.h"

#include <QtTest>

using Bytes::Builder;
using Bytes::Patched;
using Positions = QList<qulonglong>;
using Writes = std::initializer_list<std::pair<quint64, quint32>>;

namespace
{

// Bytes 0 .. T-4 that lead the scan to read position T next: a 92-byte "ftyp" (the first word 92
// is a known size, so the scan reads on) and, for T beyond 96, a "junk" box up to T - 4.
Builder Lead(int T)
{
    Builder b;
    b.Box(92, "ftyp").Zeros(84);
    if (T > 96)
        b.Box(quint32(T - 96), "junk").Zeros(T - 96 - 8);
    return b;
}

// Positions the scan reads through Lead(T), then T, then `after`.
Positions Path(int T, Positions after)
{
    Positions p{0, 4};
    if (T > 96)
        p << 96;
    return p << qulonglong(T) << after;
}

// The positions the structural pass reads in `path`; a stop is raised as it reads `stopAt`.
Positions Run(const QString &path, qulonglong stopAt = ~0ull)
{
    ThreadVideoRepair worker;
    worker.SetReEncodingEnabled(false);
    Positions positions;
    QObject::connect(&worker, &ThreadVideoRepair::ProgressValue, [&](unsigned long pos) {
        positions << pos;
        bStopFlag = bStopFlag || pos == stopAt;
    });
    worker.RepairFiles({path});
    return positions;
}

// A movie box at T: a movie header of the given size, type and duration, then (at T + 112) a
// track header carrying trackDuration. A correct jump reads "free" at T + 116.
QByteArray MovieAt(int T, quint32 size, quint32 type, quint32 duration, quint32 trackDuration)
{
    Builder b = Lead(T).U32(0x200).Fcc("moov").U32(size).U32(type).Zeros(12).U32(600).U32(duration);
    return b.Zeros(80).Box(0x60, "free").U32(92).Fcc("tkhd").Zeros(20).U32(trackDuration).Zeros(16);
}

// A composition-offset table at T (counts 1 unless given) after a colour box at colourAt (< 0: none).
QByteArray CttsAt(int T, int colourAt, const QList<quint32> &counts, const QList<quint32> &offsets,
                  const QByteArray &after = Builder().Box(8, "free"))
{
    Builder b = Lead(T);
    if (colourAt >= 0)
        b.Put(colourAt, Fcc("colr"));
    b.U32(quint32(16 + 8 * offsets.size())).Fcc("ctts").U32(0).U32(quint32(offsets.size()));
    for (int i = 0; i < offsets.size(); ++i)
        b.U32(counts.value(i, 1)).U32(offsets.at(i));
    return b.Raw(after);
}

// `bytes` with the entries (1, 0x200) and (1, 0x300) written in turn at each of `at`.
QByteArray Alternated(QByteArray bytes, const QList<int> &at)
{
    for (int i = 0; i < at.size(); ++i)
        bytes = Patched(bytes, {{quint64(at[i]), 1}, {quint64(at[i] + 4), i % 2 ? 0x300u : 0x200u}});
    return bytes;
}

QList<quint32> Offsets(int n)
{
    QList<quint32> o;
    for (int i = 0; i < n; ++i)
        o << quint32(0x100 * (i + 1));
    return o;
}

} // namespace

class TstStructuralPass : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { bStopFlag = false; }

    void scan_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<Positions>("positions");

        constexpr int T = 96;
        auto row = [](const char *name, const QByteArray &in, Writes writes, const Positions &pos) {
            QTest::newRow(name) << in << Patched(in, writes) << pos;
        };
        // A row led in to T: the words written and the positions read after T, from T.
        auto at = [](const char *name, const QByteArray &in,
                     std::initializer_list<std::pair<int, quint32>> writes,
                     std::initializer_list<int> after) {
            QByteArray expected = in;
            for (const auto &w : writes)
                expected = Patched(expected, {{quint64(T + w.first), w.second}});
            Positions steps;
            for (int a : after)
                steps << qulonglong(T + a);
            QTest::newRow(name) << in << expected << Path(T, steps);
        };

        // Where the scan starts.
        row("first eight bytes zero", Builder().Zeros(64), {}, {0});
        row("ordinary first size", Builder().Box(0x18, "ftyp").Zeros(16), {}, {0});
        row("92-byte first box", Builder().Box(92, "free").Zeros(84), {}, {0, 4});
        at("unknown word ends the scan", Lead(T).Box(8, "free"), {}, {});

        // Boxes jumped over by their size.
        for (const char *code : {"ftyp", "stsd", "udta", "iods", "hdlr"}) {
            const QByteArray in = Lead(T).U32(24).Raw(QByteArray(code, 4)).Zeros(16).Box(8, "free");
            QTest::newRow(qPrintable(QString("skipped by size: ") + code)) << in << in << Path(T, {T + 24});
        }
        at("size 0 taken as 4", Lead(T).Box(0, "stts").Zeros(16), {}, {4});
        at("mdat 64-bit size below 4 GiB", Lead(T).Box(1, "mdat").U64(24).Zeros(8).Box(8, "free"), {}, {24});
        at("mdat 64-bit size of 4 GiB or more uses its low half",
           Lead(T).Box(1, "mdat").U64((1ull << 32) + 24).Zeros(8).Box(8, "free"), {}, {24});
        at("mdat size 0 read like 1", Lead(T).Box(0, "mdat").U64(24).Zeros(8).Box(8, "free"), {}, {24});
        at("ordinary mdat is not jumped", Lead(T).Box(64, "mdat").Zeros(56), {}, {4});
        at("co64 by its size", Lead(T).Box(24, "co64").Zeros(16).Box(8, "free"), {}, {24});

        at("wide gets size 8", Lead(T).Box(0x77, "wide").Zeros(16), {{-4, 8}}, {8});

        // A brand where a type belongs: "ftyp" restored, the jump uses the low byte of the size.
        for (const char *brand : {"isom", "qt  ", "f4v ", "M4VP", "3gp5"}) {
            const QByteArray in = Lead(T).Put(T - 8, 0x20).U32(0xDEAD).Raw(QByteArray(brand, 4)).Zeros(40);
            QTest::newRow(qPrintable(QString("brand '") + brand + "'"))
                << in << Patched(in, {{T - 4, Fcc("ftyp")}}) << Path(T, {T + 28});
        }
        at("brand after a 288-byte file-type box is mis-skipped",
           Lead(T).Put(T - 8, 0x120).U32(0xDEAD).Fcc("mp42").Zeros(40), {{-4, Fcc("ftyp")}}, {28});

        // Movie box and movie header.
        at("moov intact", MovieAt(T, 108, Fcc("mvhd"), 1000, 2000), {}, {116});
        at("moov: header type lost", MovieAt(T, 108, 0, 1000, 2000), {{8, Fcc("mvhd")}}, {116});
        at("moov: header size lost", MovieAt(T, 0x1234, Fcc("mvhd"), 1000, 2000), {{4, 108}}, {116});
        // Durations with no zero byte, so that a copy from or to a shifted place cannot pass.
        at("moov: zero duration taken from the first track", MovieAt(T, 108, Fcc("mvhd"), 0, 0x01020304),
           {{28, 0x01020304}}, {116});
        at("moov: header size and type lost", MovieAt(T, 0, 0, 1000, 2000), {{4, 108}, {8, Fcc("mvhd")}},
           {116});
        at("moov: cmov restores dcom and writes over the movie size",
           Lead(T).U32(0x200).Fcc("moov").U32(0x100).Fcc("cmov").Zeros(128),
           {{12, 12}, {16, Fcc("dcom")}, {8, Fcc("cmov")}, {-8, 108}, {-4, Fcc("mvhd")}}, {104});
        at("moov: dcom found by its size",
           Lead(T).U32(0x200).Fcc("moov").U32(0x100).U32(0).U32(12).Zeros(128),
           {{16, Fcc("dcom")}, {8, Fcc("cmov")}, {-8, 108}, {-4, Fcc("mvhd")}}, {104});
        at("moov: CNCV gets a udta parent",
           Lead(T).U32(0x200).Fcc("moov").U32(0x20).Zeros(4).U32(0x14).Fcc("CNCV").Zeros(40),
           {{8, Fcc("udta")}}, {40});
        {
            Builder in = Lead(T).U32(0x200).U32(108).Zeros(16).U32(600).U32(0).Zeros(80);
            in.Box(0x60, "trak").Box(92, "tkhd").Zeros(20).U32(0x05060708).Zeros(16);
            at("size 108: mvhd and moov restored, duration copied", in,
               {{4, Fcc("mvhd")}, {-4, Fcc("moov")}, {24, 0x05060708}}, {4, 8});
        }
        {
            Builder in = Lead(T).U32(0x999).Fcc("mvhd").Zeros(12).U32(600).U32(0).Zeros(80);
            in.Box(0x60, "trak").Box(92, "tkhd").Zeros(20).U32(0x090A0B0C).Zeros(16);
            at("mvhd: size 108 and moov restored, duration copied", in,
               {{-4, 108}, {-8, Fcc("moov")}, {20, 0x090A0B0C}}, {4});
        }
        at("cmov restores moov", Lead(T).Box(0x50, "cmov").Zeros(32), {{-8, Fcc("moov")}}, {12});

        // Track level.
        auto trak = [&](quint32 size, quint32 type) {
            return Lead(T).Box(0x300, "trak").U32(size).U32(type).Zeros(84).Box(8, "free").Data();
        };
        at("trak intact", trak(92, Fcc("tkhd")), {}, {100});
        at("trak: tkhd type lost", trak(92, 0), {{8, Fcc("tkhd")}}, {100});
        at("trak: tkhd size lost", trak(0x77, Fcc("tkhd")), {{4, 92}}, {100});
        at("trak: neither size nor type", trak(0, 0), {{4, 92}, {8, Fcc("tkhd")}}, {100});
        at("tkhd restores size and trak", Lead(T).Box(0x11, "tkhd").Zeros(16), {{-4, 92}, {-8, Fcc("trak")}},
           {4});
        at("tapt gets size 68", Lead(T).Box(0, "tapt").Zeros(16), {{-4, 68}}, {4});
        at("edts restores elst", Lead(T).Box(0x24, "edts").U32(0x1C).U32(0).Zeros(20), {{8, Fcc("elst")}},
           {16});
        at("elst restores edts", Lead(T).Box(0x1C, "elst").Zeros(32), {{-8, Fcc("edts")}}, {28});

        // Media level.
        auto mdia = [&](quint32 size, quint32 type) {
            return Lead(T).Box(0x300, "mdia").U32(size).U32(type).Zeros(24).Box(8, "free").Data();
        };
        at("mdia intact", mdia(32, Fcc("mdhd")), {}, {40});
        at("mdia: neither size nor type", mdia(0, 0), {{4, 32}, {8, Fcc("mdhd")}}, {40});
        at("mdhd restores size and mdia", Lead(T).Box(0, "mdhd").Zeros(16), {{-4, 32}, {-8, Fcc("mdia")}},
           {4});

        auto minf = [&](quint32 size, quint32 type, quint32 at16 = 0) {
            return Lead(T).Box(0x100, "minf").U32(size).U32(type).Zeros(4).U32(at16).Zeros(32).Data();
        };
        row("minf: vmhd by size, then its own rule", minf(20, 0),
            {{T + 8, Fcc("vmhd")}, {T + 4, 20}, {T, Fcc("minf")}}, Path(T, {T + 8, T + 12}));
        at("minf: vmhd by type", minf(0x99, Fcc("vmhd")), {{4, 20}}, {24});
        at("minf: smhd by size", minf(16, 0), {{8, Fcc("smhd")}}, {20});
        at("minf: smhd by type", minf(0x99, Fcc("smhd")), {{4, 16}}, {20});
        at("minf: gmhd jumped by its size", minf(0x20, Fcc("gmhd")), {}, {40});
        at("minf: gmin restores gmhd", minf(0x20, 0, Fcc("gmin")), {{8, Fcc("gmhd")}}, {4});
        at("minf: nothing recognised", minf(0x20, 0), {}, {12});

        // Sample table heuristics.
        at("stco before a sound header",
           Lead(T).Box(24, "stco").U32(0).U32(2).U32(0x1000).U32(0x00021D26).U32(16).U32(0).Zeros(8),
           {{24, Fcc("smhd")}}, {32});
        at("stco otherwise reads the next size field",
           Lead(T).Box(24, "stco").U32(0).U32(2).U32(0x1000).U32(0x12345678).U32(16).U32(0).Zeros(8), {},
           {20});
        for (quint32 trigger : {0x4Cu, 0x38Eu, 0x97u}) {
            const QByteArray in =
                Lead(T).Box(24, "stss").U32(0).U32(2).U32(1).U32(trigger).U32(20).U32(0).Zeros(16);
            QTest::newRow(qPrintable("stss ending in " + QString::number(trigger, 16)))
                << in << Patched(in, {{T + 24, Fcc("vmhd")}}) << Path(T, {T + 36});
        }
        at("stss otherwise", Lead(T).Box(24, "stss").U32(0).U32(2).U32(1).U32(0x12).U32(20).U32(0).Zeros(16),
           {}, {24});

        // Media headers and data information.
        at("smhd restores size and minf", Lead(T).Box(0, "smhd").Zeros(16), {{-4, 16}, {-8, Fcc("minf")}},
           {4});
        at("vmhd restores size and minf", Lead(T).Box(0, "vmhd").Zeros(16), {{-4, 20}, {-8, Fcc("minf")}},
           {4});
        at("gmhd restores minf", Lead(T).Box(0x18, "gmhd").Zeros(16), {{-8, Fcc("minf")}}, {4});
        at("dinf gets size 36 and dref", Lead(T).Box(0, "dinf").U32(0x1C).U32(0).Zeros(32),
           {{-4, 36}, {8, Fcc("dref")}}, {36});
        at("dref restores dinf", Lead(T).Box(0, "dref").Zeros(16), {{-12, 36}, {-8, Fcc("dinf")}}, {4});

        // Composition offsets.
        at("ctts of 32 bytes", Lead(T).Box(32, "ctts").Zeros(24).Box(8, "free").Zeros(8), {}, {36});
        at("ctts closer than 128 bytes to the start", Lead(T).Box(48, "ctts").Zeros(40), {}, {4});
        row("ctts search stops above 128", CttsAt(200, -1, {}, Offsets(4)), {}, Path(200, {131}));
        const int C = 300;
        row("ctts of four entries", CttsAt(C, C - 40, {}, Offsets(4)), {}, Path(C, {C + 40}));
        row("ctts with colr exactly 128 bytes before", CttsAt(C, C - 128, {}, Offsets(4)), {},
            Path(C, {C + 40}));
        row("ctts with colr 129 bytes before is jumped", CttsAt(C, C - 129, {}, Offsets(4)), {},
            Path(C, {C + 48}));
        row("ctts without colr is jumped", CttsAt(C, -1, {}, Offsets(4)), {}, Path(C, {C + 48}));
        const QByteArray eight = CttsAt(C, C - 40, {}, Offsets(8));
        QTest::newRow("ctts of eight entries alternates")
            << eight << Alternated(eight, {C + 36, C + 44, C + 52, C + 60}) << Path(C, {C + 72});
        for (quint32 kept : {1u, 2u}) {
            const QByteArray in =
                CttsAt(C, C - 40, {1, 1, 1, 1, 1, kept, 1}, Offsets(5) << 0 << Offsets(10).mid(6));
            QTest::newRow(qPrintable(QString("ctts keeps (%1, 0) before a count of 1").arg(kept)))
                << in << Alternated(in, {C + 36, C + 44, C + 60, C + 68, C + 76, C + 84})
                << Path(C, {C + 96});
        }

        // Free space.
        at("skip then ctts", Lead(T).Box(16, "skip").Zeros(8).Box(24, "ctts").Zeros(16), {}, {32});
        at("skip then another box", Lead(T).Box(16, "skip").Zeros(8).Box(8, "free").Zeros(8), {}, {20});
        at("skip of size 0", Lead(T).Box(0, "skip").Zeros(16), {}, {8});
    }

    void scan()
    {
        QFETCH(QByteArray, input);
        QFETCH(QByteArray, expected);
        QFETCH(Positions, positions);

        QTemporaryDir dir;
        const QString path = dir.filePath("clip.mov");
        QVERIFY(Bytes::WriteFile(path, input));
        QCOMPARE(Run(path), positions);
        const QByteArray out = Bytes::ReadFile(path);
        for (int i = 0; i < qMax(out.size(), expected.size()); i += 4)
            QVERIFY2(
                out.mid(i, 4) == expected.mid(i, 4),
                qPrintable(QString("bytes at %1: %2, expected %3")
                               .arg(i)
                               .arg(QString(out.mid(i, 4).toHex()), QString(expected.mid(i, 4).toHex()))));
        QVERIFY(!pHandle);
    }

    // Writes before the file's start are dropped, endless rounds end, a damaged entry count cannot
    // grow the file: each scan reaches `reach` within 12 steps.
    void edges_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<qulonglong>("reach");

        auto row = [](const char *name, const QByteArray &in, Writes writes, qulonglong reach) {
            QTest::newRow(name) << in << Patched(in, writes) << reach;
        };
        row("tkhd at 4", Builder().U32(92).Fcc("tkhd").Zeros(16), {}, 4);
        row("cmov at 4", Builder().U32(92).Fcc("cmov").Zeros(16), {}, 4);
        row("dref at 8", Builder().U32(92).U32(92).Fcc("dref").Zeros(16), {{0, Fcc("dinf")}}, 8);
        row("brand at 4", Builder().U32(92).Fcc("isom").Zeros(16), {{0, Fcc("ftyp")}}, 4);
        row("ftyp at 0 before a brand", Builder().Fcc("ftyp").Fcc("isom").Zeros(16), {}, 0);
        row("loop: ftyp at 0 and a brand at 4", Builder().Fcc("ftyp").Fcc("mp41").Zeros(64), {}, 0);
        row("loop: ctts of size 0 without colr", Lead(300).Box(0, "ctts").Zeros(64), {}, 300);
        row("loop: co64 of size 0", Lead(300).U32(0).Fcc("co64").Zeros(64), {}, 300);

        const int C = 300;
        Builder b = Lead(C);
        b.Put(C - 40, Fcc("colr")).U32(0xFFFF).Fcc("ctts").U32(0).U32(0xFFFFFFF0);
        for (quint32 o : Offsets(7))
            b.U32(1).U32(o);
        QTest::newRow("ctts with a huge entry count")
            << b.Data() << Alternated(b, {C + 36, C + 44, C + 52, C + 60}) << qulonglong(C);
    }

    void edges()
    {
        QFETCH(QByteArray, input);
        QFETCH(QByteArray, expected);
        QFETCH(qulonglong, reach);
        QTemporaryDir dir;
        const QString path = dir.filePath("clip.mp4");
        QVERIFY(Bytes::WriteFile(path, input));
        const Positions positions = Run(path);
        QCOMPARE(Bytes::ReadFile(path), expected);
        QVERIFY(positions.contains(reach));
        QVERIFY2(positions.size() <= 12, qPrintable(QString::number(positions.size())));
    }

    void stopDuringScan()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("stop.mov");
        QVERIFY(Bytes::WriteFile(path, Lead(96).Box(0x300, "trak").Zeros(96).Box(8, "tkhd").Zeros(16)));
        // The step at 96 still completes (the track header is restored); no further position is read.
        QCOMPARE(Run(path, 96), (Positions{0, 4, 96}));
        QCOMPARE(Bytes::WordAt(Bytes::ReadFile(path), 100), 92u);
        QVERIFY(!pHandle);
    }
    // How many steps the guard admits of a tail of positions followed by a round repeated for ever.
    void guard_data()
    {
        QTest::addColumn<quint64>("fileSize");
        QTest::addColumn<Positions>("tail");
        QTest::addColumn<Positions>("round"); // empty for none
        QTest::addColumn<int>("minAdmitted");
        QTest::addColumn<int>("maxAdmitted");
        Positions forward;
        for (qulonglong p = 0; p < 400; p += 4)
            forward << p;
        const quint64 big = 1 << 20;
        QTest::newRow("a whole forward scan") << quint64(400) << forward << Positions() << 100 << 100;
        QTest::newRow("stationary") << big << Positions{96} << Positions{96} << 2 << 6;
        QTest::newRow("between 0 and 4") << big << Positions() << Positions{0, 4} << 4 << 10;
        QTest::newRow("long tail then a round of five")
            << big << Positions{8, 12, 16, 20, 24, 28, 32} << Positions{100, 104, 96, 200, 300} << 12 << 37;
        // Revisiting one position once is not a loop.
        QTest::newRow("one revisit") << big << Positions{0, 4, 0, 8, 12, 16, 20} << Positions() << 7 << 7;
    }

    void guard()
    {
        QFETCH(quint64, fileSize);
        QFETCH(Positions, tail);
        QFETCH(Positions, round);
        QFETCH(int, minAdmitted);
        QFETCH(int, maxAdmitted);
        ScanGuard guard(fileSize);
        int admitted = 0;
        for (int i = 0; i < tail.size() + (round.isEmpty() ? 0 : 100000); ++i) {
            const qulonglong p = i < tail.size() ? tail.at(i) : round.at((i - tail.size()) % round.size());
            if (!guard.Admit(p))
                break;
            ++admitted;
        }
        QVERIFY2(admitted >= minAdmitted && admitted <= maxAdmitted, qPrintable(QString::number(admitted)));
    }

    void fuzzInputs_data()
    {
        AddReplayRows("corpus", "crashes");
    }

    void fuzzInputs()
    {
        QFETCH(QString, input);
        QTemporaryDir dir;
        const QString problem = CheckStructuralPass(Bytes::ReadFile(input), dir.filePath("input.mov"));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
};

QTEST_GUILESS_MAIN(TstStructuralPass)
#include "tst_structuralpass.moc"
