#!/usr/bin/env python3
"""Writes the seed corpus for the structural-pass fuzzer into corpus/: one small layout for each
word the scan acts on, led in by a 92-byte "ftyp" box, and the first 16 KiB of real files made
with ffmpeg. For the sample walker's fuzzer, walker-corpus/ gets stretches of the media data of
real files, each led by the byte that picks the tracks it is walked with. Run from anywhere; needs
ffmpeg for the real-file seeds."""

import os
import struct
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "corpus")


def u32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


def box(size, kind):
    return u32(size) + kind.encode("latin-1")


def lead(t):
    b = box(92, "ftyp") + bytes(84)
    if t > 96:
        b += box(t - 96, "junk") + bytes(t - 104)
    return b


WORDS = ["ftyp", "mdat", "wide", "isom", "qt  ", "moov", "mvhd", "cmov", "co64", "trak", "tkhd",
         "tapt", "edts", "elst", "mdia", "mdhd", "minf", "stco", "stss", "smhd", "vmhd", "gmhd",
         "dinf", "dref", "ctts", "skip", "udta", "stsd"]


def seeds():
    for word in WORDS:
        yield "t_" + word.strip(), lead(96) + box(48, word) + bytes(160)
    yield "size108", lead(96) + u32(0x200) + u32(108) + bytes(200)
    yield "ctts_colr", lead(300)[:260] + b"colr" + lead(300)[264:] + box(96, "ctts") + u32(0) + \
        u32(10) + b"".join(u32(1) + u32(0x100 * (i + 1)) for i in range(10))
    yield "ftyp_at_0", b"ftypisom" + bytes(64)
    yield "zeros", bytes(64)


def real_files():
    with tempfile.TemporaryDirectory() as tmp:
        for name, vcodec, acodec in [("h264.mp4", "libx264", "aac"), ("mpeg4.mov", "mpeg4", "libmp3lame")]:
            path = os.path.join(tmp, name)
            subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=5:duration=1",
                            "-f", "lavfi", "-i", "sine=duration=1", "-c:v", vcodec, "-c:a", acodec,
                            "-movflags", "+faststart", path], check=True)
            with open(path, "rb") as f:
                yield "real_" + name.replace(".", "_"), f.read(16384)


def media_data(path):
    data = open(path, "rb").read()
    at = 0
    while at + 8 <= len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"mdat":
            return data[at + 8:at + size]
        at += max(size, 8)
    return b""


def walker_files():
    # pick byte: bit 0 HEVC, bits 1-2 length size (0: 4 bytes), bit 4 sound, bits 3+4 sound alone,
    # bit 5 MPEG-4 Part 2 pictures, bit 6 MP3 sound
    recordings = [("h264.mp4", ["-c:v", "libx264", "-c:a", "aac"], 0x10),
                  ("hevc.mp4", ["-c:v", "libx265", "-x265-params", "log-level=error", "-c:a", "aac"], 0x11),
                  ("aac.m4a", ["-vn", "-c:a", "aac"], 0x18),
                  ("vop.mov", ["-c:v", "mpeg4", "-c:a", "libmp3lame"], 0x70)]
    with tempfile.TemporaryDirectory() as tmp:
        for name, args, pick in recordings:
            path = os.path.join(tmp, name)
            subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=10:duration=2",
                            "-f", "lavfi", "-i", "sine=duration=2"] + args + [path], check=True)
            media = media_data(path)
            for start in (0, len(media) // 3):
                yield "walk_%s_%d" % (name.replace(".", "_"), start), bytes([pick]) + media[start:start + 8192]


def write(folder, items):
    os.makedirs(folder, exist_ok=True)
    count = 0
    for name, data in items:
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)
        count += 1
    print(f"{count} seeds in {folder}")


def main():
    write(OUT, list(seeds()) + list(real_files()))
    write(os.path.join(HERE, "walker-corpus"), walker_files())


if __name__ == "__main__":
    main()
