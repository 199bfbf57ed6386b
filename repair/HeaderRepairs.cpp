// Header repair routines. Each is called by the structural pass when its trigger word stands at the
// scan position T (= dwOffset on entry); each leaves dwOffset where the scan goes on, and the pass
// then adds 4. Offsets below are relative to T.

#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

using RepairIO::ReadSize;
using RepairIO::ReadWord;
using RepairIO::WriteWord;

namespace {

// When a movie header's duration is zero, take the first track's: with a 108-byte movie header
// followed directly by a track box, the track header's duration stands 120 bytes further on.
void CopyZeroDuration(quint64 duration)
{
    if (ReadWord(duration) == 0)
        WriteWord(duration, ReadWord(duration + 120));
}

} // namespace

// "moov" at T: its first child's size at T + 4, type at T + 8.
void ThreadVideoRepair::RepairMvhdHeader()
{
    const quint64 T = dwOffset;

    // Compressed movie: restore "cmov" and its "dcom" child.
    if (ReadWord(T + 8) == Fcc("cmov")) {
        WriteWord(T + 12, BoxSize::Dcom);
        WriteWord(T + 16, Fcc("dcom"));
    } else if (ReadWord(T + 12) == BoxSize::Dcom) {
        WriteWord(T + 16, Fcc("dcom"));
        WriteWord(T + 8, Fcc("cmov"));
    }

    CopyZeroDuration(T + 28);

    if (ReadWord(T + 4) == BoxSize::Mvhd)
        WriteWord(T + 8, Fcc("mvhd"));
    else if (ReadWord(T + 8) == Fcc("mvhd"))
        WriteWord(T + 4, BoxSize::Mvhd);

    const quint32 child = ReadWord(T + 4);
    if (child != BoxSize::Mvhd && child != Fcc("mvhd")) {
        const quint32 w = ReadWord(T + 16);
        quint64 base = T + 16;
        if (w == Fcc("dcom")) {
            WriteWord(T + 8, Fcc("cmov"));
            base = T + 4;
        }
        if (w == Fcc("CNCV")) {
            // A user-data box whose first child is the "CNCV" box.
            WriteWord(base - 8, Fcc("udta"));
        } else {
            // After "dcom" this writes over the word before the movie box and over its own size
            // field; that is the intended behaviour.
            WriteWord(base - 12, BoxSize::Mvhd);
            WriteWord(base - 8, Fcc("mvhd"));
        }
        dwOffset = base - 12;
    } else {
        dwOffset = T + 4;
    }

    dwOffset += ReadSize(dwOffset);
}

// Size word 108 at T: a movie header that lost its type and its parent's type.
void ThreadVideoRepair::RepairMoovHeader()
{
    const quint64 T = dwOffset;
    WriteWord(T + 4, Fcc("mvhd"));
    WriteWord(T - 4, Fcc("moov"));
    CopyZeroDuration(T + 24);
    // The next step reads the "mvhd" just written and repairs the header's length.
}

// "mvhd" at T: a movie header that lost its size and its parent's type.
void ThreadVideoRepair::RepairMvhdLength()
{
    const quint64 T = dwOffset;
    WriteWord(T - 4, BoxSize::Mvhd);
    WriteWord(T - 8, Fcc("moov"));
    CopyZeroDuration(T + 20);
    // The next step reads the header's version and flags, which normally ends the scan.
}

void ThreadVideoRepair::RepairFirstChild(quint32 size, quint32 type)
{
    const quint64 T = dwOffset;
    if (ReadWord(T + 4) == size)
        WriteWord(T + 8, type);
    else if (ReadWord(T + 8) == type)
        WriteWord(T + 4, size);

    const quint32 now = ReadWord(T + 4);
    if (now != size && now != type) {
        WriteWord(T + 4, size);
        WriteWord(T + 8, type);
    }
    dwOffset = T + 4 + size;
}

void ThreadVideoRepair::RepairTkhdHeader()
{
    RepairFirstChild(BoxSize::Tkhd, Fcc("tkhd"));
}

void ThreadVideoRepair::RepairMediaHeader()
{
    RepairFirstChild(BoxSize::Mdhd, Fcc("mdhd"));
}

// "minf" at T: restore its media header child, found by size or by type.
void ThreadVideoRepair::RepairMinfHeader()
{
    const quint64 T = dwOffset;

    bool videoBySize = false;
    bool videoByType = false;
    if (ReadWord(T + 4) == BoxSize::Vmhd) {
        WriteWord(T + 8, Fcc("vmhd"));
        videoBySize = true;
    } else if (ReadWord(T + 8) == Fcc("vmhd")) {
        WriteWord(T + 4, BoxSize::Vmhd);
        videoByType = true;
    }

    bool sound = false;
    if (ReadWord(T + 4) == BoxSize::Smhd) {
        WriteWord(T + 8, Fcc("smhd"));
        sound = true;
    } else if (ReadWord(T + 8) == Fcc("smhd")) {
        WriteWord(T + 4, BoxSize::Smhd);
        sound = true;
    }

    if (sound) {
        dwOffset = T + 4 + BoxSize::Smhd - 4;
    } else if (videoByType) {
        dwOffset = T + 4 + BoxSize::Vmhd - 4;
    } else if (videoBySize) {
        // Deliberately not moved past the header: the next step reads "vmhd" at T + 8 and the
        // scan's own rule for it restores the parent.
        dwOffset = T + 4;
    } else if (ReadWord(T + 8) == Fcc("gmhd")) {
        quint32 s = ReadSize(T + 4);
        if (s == 0)
            s = 4;
        dwOffset = T + 4 + s;
    } else if (ReadWord(T + 16) == Fcc("gmin")) {
        WriteWord(T + 8, Fcc("gmhd"));
        dwOffset = T;
    } else {
        dwOffset = T + 8;
    }
}

// "dinf" at T: a data information box holding one self-reference "dref" is 36 bytes.
void ThreadVideoRepair::RepairDinfLength()
{
    const quint64 T = dwOffset;
    WriteWord(T - 4, BoxSize::Dinf);
    WriteWord(T + 8, Fcc("dref"));
    dwOffset = T + 8 + BoxSize::Dinf - 12;
}

// "ctts" at T: rebuild the composition offsets of a video track with B-frames as a strict
// alternation of the second and third entries' offsets, one sample each.
void ThreadVideoRepair::RepairCttsHeader()
{
    const quint64 T = dwOffset;
    const quint64 count = ReadSize(T + 8);
    const quint32 a = ReadWord(T + 24);
    const quint32 b = ReadWord(T + 32);
    const quint64 end = T + 8 * count;
    // A damaged entry count must not make the pairs run past the end of the file and grow the
    // working copy: a pair is only written where all of it already exists.
    const quint64 fileEnd = RepairIO::FileLength();

    quint64 p = T + 36;
    while (!bStopFlag && p < end && p + 16 <= fileEnd) {
        WriteWord(p, 1);
        WriteWord(p + 4, a);
        WriteWord(p + 8, 1);
        WriteWord(p + 12, b);

        // An entry of one or two samples with offset zero, followed by a count of 1, is kept.
        const quint32 n = ReadWord(p + 16);
        const bool keep = (n == 1 || n == 2) && ReadWord(p + 20) == 0 && ReadWord(p + 24) == 1;
        p += keep ? 24 : 16;
    }
    dwOffset = p;
}

// "skip" at T: jump over the free space, and past the header of a "ctts" right after it.
void ThreadVideoRepair::RepairSkipHeader()
{
    const quint64 T = dwOffset;
    quint32 s = ReadSize(T - 4);
    if (s == 0)
        s = 4;
    const quint64 q = T + s;
    if (ReadWord(q) == Fcc("ctts")) {
        (void)ReadWord(q + 8);
        dwOffset = q + 12;
    } else {
        // The next step reads one word past the following box's type; kept as it is.
        dwOffset = q;
    }
}
