// The structural pass: walks each working copy four bytes at a time with one position and acts on
// the word found there. It is a lookup driven by the word, not a parser of the box tree: several
// branches deliberately leave the position somewhere other than on the next box's type field.

#include "repair/RepairContext.h"
#include "repair/SafeFile.h"
#include "repair/ScanGuard.h"
#include "repair/ThreadVideoRepair.h"

#include <QFile>
#include <QFileInfo>

using RepairIO::ReadSize;
using RepairIO::ReadWord;
using RepairIO::WriteWord;

namespace {

// Colour box of a video sample description; a "ctts" is only rebuilt when one stands shortly before.
constexpr quint64 ColourSearchSpan = 128;
// A composition-offset box of exactly this size is skipped as it is.
constexpr quint32 CompactCttsSize = 32;

// Last words of a chunk-offset or sync-sample box after which the repair takes the next box to be a
// sound or a video media header. Heuristic constants of the repair, kept exactly.
constexpr quint32 StcoSoundTrigger = 0x00021D26;
constexpr quint32 StssVideoTriggers[] = {0x0000004C, 0x0000038E, 0x00000097};

bool IsStssVideoTrigger(quint32 word)
{
    for (quint32 t : StssVideoTriggers)
        if (word == t)
            return true;
    return false;
}

} // namespace

void ThreadVideoRepair::RepairFiles(QStringList files)
{
    // A stop inside an earlier run's re-encoding pass may have left its output open in pHandle;
    // opening the first working copy over it would lose the stream and its descriptor.
    if (pHandle) {
        fclose(pHandle);
        pHandle = nullptr;
    }

    const int n = files.size();
    Q_EMIT OverAllMaxProgress(static_cast<unsigned long>(n));

    for (int i = 0; i < n && !bStopFlag; ++i) {
        const QString &path = files.at(i);
        const QFileInfo info(path);
        const quint64 size = info.exists() ? quint64(info.size()) : 0;
        Q_EMIT OverAllProgressValue(static_cast<unsigned long>(i));
        Q_EMIT Info(tr("Repairing ") + info.fileName() + tr(" file"));
        Q_EMIT MaxProgress(static_cast<unsigned long>(size));

        dwOffset = 0;
        pHandle = OpenExistingNoFollow(QFile::encodeName(path));
        if (pHandle) {
            unsigned char firstEight[8] = {0};
            (void)fread(firstEight, 1, sizeof firstEight, pHandle);
            bool zero = true;
            for (unsigned char b : firstEight)
                zero = zero && b == 0;
            const quint64 changedBefore = RepairIO::ChangedWords();
            if (!bStopFlag)
                ScanFile(size, zero);
            fclose(pHandle);
            pHandle = nullptr;
            if (RepairIO::ChangedWords() != changedBefore)
                m_rewrittenCopies.insert(path);
        }
    }

    if (!bStopFlag)
        RebuildLostIndexes(files);
    if (m_reEncode)
        ReRepairFiles(files);
}

void ThreadVideoRepair::ScanFile(quint64 fileSize, bool firstEightZero)
{
    ScanGuard guard(fileSize);
    for (;;) {
        if (dwOffset > fileSize || !guard.Admit(dwOffset))
            return;
        Q_EMIT ProgressValue(static_cast<unsigned long>(dwOffset));
        if (firstEightZero)
            return;
        const quint64 T = dwOffset;
        if (!Dispatch(ReadWord(T), T))
            return;
        dwOffset += 4;
        if (bStopFlag)
            return;
    }
}

// Acts on the word read at T and sets dwOffset to where the next step starts (before its +4).
// Returns false when the word is unknown, which ends the scan of the file.
bool ThreadVideoRepair::Dispatch(quint32 word, quint64 T)
{
    switch (word) {
    // Boxes jumped over by their size; the next step reads the type of the box that follows.
    case Fcc("ftyp"): case Fcc("pdin"): case Fcc("moof"): case Fcc("mfra"): case Fcc("junk"):
    case Fcc("pnot"): case Fcc("pict"): case Fcc("meta"): case Fcc("meco"): case Fcc("uuid"):
    case Fcc("prfl"): case Fcc("clip"): case Fcc("matt"): case Fcc("tref"): case Fcc("load"):
    case Fcc("imap"): case Fcc("udta"): case Fcc("hint"): case Fcc("hdlr"): case Fcc("stts"):
    case Fcc("stsc"): case Fcc("stsh"): case Fcc("sbgp"): case Fcc("cslg"): case Fcc("sdtp"):
    case Fcc("stps"): case Fcc("stsz"): case Fcc("sgpd"): case Fcc("stsd"): case Fcc("iods"): {
        quint32 s = ReadSize(T - 4);
        if (s == 0)
            s = 4;
        dwOffset = T - 4 + s;
        return true;
    }
    case Fcc("mdat"): {
        // Only a 64-bit (or zero) size is followed, by its low half; an ordinary 32-bit media data
        // box is deliberately not jumped over, so the scan reads into its payload.
        const quint32 sizeField = ReadWord(T - 4);
        if (sizeField == 1 || sizeField == 0)
            dwOffset = T + ReadSize(T + 8) - 4;
        return true;
    }
    case Fcc("wide"):
        WriteWord(T - 4, BoxSize::Wide);
        dwOffset = T + 4;
        return true;

    // A brand where a type is expected: the file-type box lost its type. Only the lowest byte of
    // its size is added, so a file-type box of 256 bytes or more is mis-skipped; kept as it is.
    case Fcc("qt  "): case Fcc("isom"): case Fcc("mp41"): case Fcc("mp42"): case Fcc("mmp4"):
    case Fcc("m4a "): case Fcc("m4p "): case Fcc("m4v "): case Fcc("mjp2"): case Fcc("msnv"):
    case Fcc("3g2a"): case Fcc("3gp5"): case Fcc("3gp4"): case Fcc("f4v "): case Fcc("M4VP"):
        WriteWord(T - 4, Fcc("ftyp"));
        dwOffset = T - 8;
        dwOffset = T - 8 + (ReadSize(dwOffset) & 0xFF);
        return true;

    case Fcc("moov"):
        RepairMvhdHeader();
        return true;
    case BoxSize::Mvhd:
        RepairMoovHeader();
        return true;
    case Fcc("mvhd"):
        RepairMvhdLength();
        return true;
    case Fcc("cmov"):
        WriteWord(T - 8, Fcc("moov"));
        dwOffset = T + 8;
        return true;
    case Fcc("co64"):
        dwOffset = T + ReadSize(T - 4) - 4;
        return true;

    case Fcc("trak"):
        RepairTkhdHeader();
        return true;
    case BoxSize::Tkhd:
        return true;
    case Fcc("tkhd"):
        WriteWord(T - 4, BoxSize::Tkhd);
        WriteWord(T - 8, Fcc("trak"));
        return true;
    case Fcc("tapt"):
        WriteWord(T - 4, BoxSize::Tapt);
        return true;
    case Fcc("edts"):
        WriteWord(T + 8, Fcc("elst"));
        dwOffset = T + 12;
        return true;
    case Fcc("elst"):
        WriteWord(T - 8, Fcc("edts"));
        dwOffset = T + 24;
        return true;

    case Fcc("mdia"):
        RepairMediaHeader();
        return true;
    case Fcc("mdhd"):
        WriteWord(T - 4, BoxSize::Mdhd);
        WriteWord(T - 8, Fcc("mdia"));
        return true;
    case Fcc("minf"):
        RepairMinfHeader();
        return true;

    case Fcc("stco"): {
        const quint64 last = T + ReadSize(T - 4) - 8;
        if (ReadWord(last) == StcoSoundTrigger) {
            WriteWord(last + 8, Fcc("smhd"));
            dwOffset = last + 12;
        } else {
            dwOffset = last; // the next step reads the following box's size field; kept as it is
        }
        return true;
    }
    case Fcc("stss"): {
        const quint64 next = T + ReadSize(T - 4);
        if (IsStssVideoTrigger(ReadWord(next - 8))) {
            WriteWord(next, Fcc("vmhd"));
            dwOffset = next + 8;
        } else {
            dwOffset = next - 4;
        }
        return true;
    }

    case Fcc("smhd"):
        WriteWord(T - 4, BoxSize::Smhd);
        WriteWord(T - 8, Fcc("minf"));
        return true;
    case Fcc("vmhd"):
        WriteWord(T - 4, BoxSize::Vmhd);
        WriteWord(T - 8, Fcc("minf"));
        return true;
    case Fcc("gmhd"):
        WriteWord(T - 8, Fcc("minf"));
        return true;

    case Fcc("dinf"):
        RepairDinfLength();
        return true;
    case Fcc("dref"):
        WriteWord(T - 12, BoxSize::Dinf);
        WriteWord(T - 8, Fcc("dinf"));
        return true;

    case Fcc("ctts"):
        SearchCompositionOffsets(T);
        return true;
    case Fcc("skip"):
        RepairSkipHeader();
        return true;

    default:
        return false;
    }
}

// A "ctts" is rebuilt only for a video track, recognised by a colour box ("colr") of its sample
// description within 128 bytes before it.
void ThreadVideoRepair::SearchCompositionOffsets(quint64 T)
{
    if (ReadWord(T - 4) == CompactCttsSize) {
        // A 32-byte table is left alone; the next step lands 4 bytes past the following box's
        // type field, kept as it is.
        dwOffset = T + 32;
        return;
    }
    if (T < ColourSearchSpan)
        return;

    for (quint64 p = T;; --p) {
        if (bStopFlag) {
            dwOffset = p;
            return;
        }
        if (ReadWord(p) == Fcc("colr")) {
            dwOffset = T;
            if (ReadWord(T) == Fcc("ctts"))
                RepairCttsHeader();
            return;
        }
        if (p == T - ColourSearchSpan) {
            dwOffset = T + ReadSize(T - 4) - 4;
            return;
        }
        dwOffset = p - 1;
        if (p - 1 < ColourSearchSpan)
            return;
    }
}
