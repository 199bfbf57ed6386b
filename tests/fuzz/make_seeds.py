#!/usr/bin/env python3
"""Writes the seed corpus for the structural-pass fuzzer into corpus/ (or CORVANE_SEEDS_OUT): one
small layout for each word the scan acts on, led in by a 92-byte "ftyp" box, and the first 16 KiB
of real files made with ffmpeg. Run from anywhere; needs ffmpeg for the real-file seeds."""

import os, struct, subprocess, tempfile

OUT = os.environ.get("CORVANE_SEEDS_OUT", os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus"))
u32 = lambda v: struct.pack(">I", v & 0xFFFFFFFF)
box = lambda size, kind: u32(size) + kind.encode("latin-1")
LEAD = box(92, "ftyp") + bytes(84)
LEAD300 = LEAD + box(204, "junk") + bytes(196)
WORDS = ["ftyp", "mdat", "wide", "isom", "qt  ", "moov", "mvhd", "cmov", "co64", "trak", "tkhd", "tapt", "edts",
         "elst", "mdia", "mdhd", "minf", "stco", "stss", "smhd", "vmhd", "gmhd", "dinf", "dref", "ctts", "skip",
         "udta", "stsd"]

seeds = {"t_" + w.strip(): LEAD + box(48, w) + bytes(160) for w in WORDS}
seeds["size108"] = LEAD + u32(0x200) + u32(108) + bytes(200)
seeds["ctts_colr"] = (LEAD300[:260] + b"colr" + LEAD300[264:] + box(96, "ctts") + u32(0) + u32(10)
                      + b"".join(u32(1) + u32(0x100 * (i + 1)) for i in range(10)))
seeds["ftyp_at_0"], seeds["zeros"] = b"ftypisom" + bytes(64), bytes(64)
with tempfile.TemporaryDirectory() as tmp:
    for name, vcodec, acodec in [("h264.mp4", "libx264", "aac"), ("mpeg4.mov", "mpeg4", "libmp3lame")]:
        path = os.path.join(tmp, name)
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=5:duration=1",
                        "-f", "lavfi", "-i", "sine=duration=1", "-c:v", vcodec, "-c:a", acodec,
                        "-movflags", "+faststart", path], check=True)
        seeds["real_" + name.replace(".", "_")] = open(path, "rb").read(16384)
os.makedirs(OUT, exist_ok=True)
for name, data in seeds.items():
    with open(os.path.join(OUT, name), "wb") as f:
        f.write(data)
print(f"{len(seeds)} seeds in {OUT}")
