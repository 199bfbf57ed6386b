#!/usr/bin/env python3
"""Seeds for the structural-pass fuzzer in corpus/ (or CORVANE_SEEDS_OUT): a layout per word the scan
acts on after a 92-byte "ftyp", and the heads of ffmpeg-made files; for the sample walker's fuzzer, in
walker-corpus/ beside it, media data of such files led by the byte that picks its tracks."""

import os, struct, subprocess, tempfile

OUT = os.environ.get("CORVANE_SEEDS_OUT", os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus"))
u32 = lambda v: struct.pack(">I", v & 0xFFFFFFFF)
box = lambda size, kind: u32(size) + kind.encode("latin-1")
LEAD = box(92, "ftyp") + bytes(84)
LEAD300 = LEAD + box(204, "junk") + bytes(196)
WORDS = ["ftyp", "mdat", "wide", "isom", "qt  ", "moov", "mvhd", "cmov", "co64", "trak", "tkhd", "tapt", "edts",
         "elst", "mdia", "mdhd", "minf", "stco", "stss", "smhd", "vmhd", "gmhd", "dinf", "dref", "ctts", "skip",
         "udta", "stsd"]


def record(path, args, duration=1, rate=5):
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc=size=64x48:rate={rate}:duration={duration}",
                    "-f", "lavfi", "-i", f"sine=duration={duration}"] + args + [path], check=True)
    return open(path, "rb").read()


def media_data(data):
    at = 0
    while at + 8 <= len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"mdat":
            return data[at + 8:at + size]
        at += max(size, 8)
    return b""


def write(folder, seeds):
    os.makedirs(folder, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)
    print(f"{len(seeds)} seeds in {folder}")


seeds = {"t_" + w.strip(): LEAD + box(48, w) + bytes(160) for w in WORDS}
seeds["size108"] = LEAD + u32(0x200) + u32(108) + bytes(200)
seeds["ctts_colr"] = (LEAD300[:260] + b"colr" + LEAD300[264:] + box(96, "ctts") + u32(0) + u32(10)
                      + b"".join(u32(1) + u32(0x100 * (i + 1)) for i in range(10)))
seeds["ftyp_at_0"], seeds["zeros"] = b"ftypisom" + bytes(64), bytes(64)
# The walker's pick byte: bit 0 HEVC, bits 1-2 length size (0: 4 bytes), bit 4 sound, bits 3+4
# sound alone, bit 5 MPEG-4 Part 2 pictures, bit 6 MP3 sound.
walker = {}
with tempfile.TemporaryDirectory() as tmp:
    for name, vcodec, acodec in [("h264.mp4", "libx264", "aac"), ("mpeg4.mov", "mpeg4", "libmp3lame")]:
        data = record(os.path.join(tmp, name), ["-c:v", vcodec, "-c:a", acodec, "-movflags", "+faststart"])
        seeds["real_" + name.replace(".", "_")] = data[:16384]
    for name, args, pick in [("h264.mp4", ["-c:v", "libx264", "-c:a", "aac"], 0x10),
                             ("hevc.mp4", ["-c:v", "libx265", "-x265-params", "log-level=error", "-c:a", "aac"], 0x11),
                             ("aac.m4a", ["-vn", "-c:a", "aac"], 0x18),
                             ("vop.mov", ["-c:v", "mpeg4", "-c:a", "libmp3lame"], 0x70)]:
        media = media_data(record(os.path.join(tmp, "w-" + name), args, duration=2, rate=10))
        for start in (0, len(media) // 3):
            walker["walk_%s_%d" % (name.replace(".", "_"), start)] = bytes([pick]) + media[start:start + 8192]
write(OUT, seeds)
write(os.path.join(os.path.dirname(OUT), "walker-corpus"), walker)
