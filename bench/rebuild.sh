#!/usr/bin/env bash
# Times the rebuild of a lost index against `cp --reflink=never` of the same file, and measures its
# peak memory on a larger file.
#
#   bench/rebuild.sh [--runs N] [--size GB] [--large GB] [BUILD_DIR]
#
# Makes a 60 s 1280x720 H.264 + AAC recording (20 Mb/s, index at the end), then "cut" recordings
# with no index by repeating its media data up to --size GB (default 1) and --large GB (default 4),
# as a camera that lost power would leave them. The rebuild stage runs alone (corvane-rebuild-index:
# no copy into a working folder, no re-encode), with a reference made by the same encoder settings.
# Each command runs N times (default 3) with a warm page cache, each after a sync; medians count. Targets: the rebuild
# at most 2 times cp's time on the --size file, and under 300 MB peak memory on the --large one.
# Exits 1 when a target is missed, 2 when a step fails. Needs about 3 x (size + large) GB of disk in
# ${TMPDIR:-/tmp}.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=3
size=1
large=4
build=$root/build
while [ $# -gt 0 ]; do
    case $1 in
    --runs) runs=${2:?--runs needs a number}; shift 2 ;;
    --size) size=${2:?--size needs a number}; shift 2 ;;
    --large) large=${2:?--large needs a number}; shift 2 ;;
    -h | --help) sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
    esac
done

cmake --build "$build" --target corvane-rebuild-index >/dev/null
rebuild=$build/bench/corvane-rebuild-index

work=$(mktemp -d "${TMPDIR:-/tmp}/corvane-rebuild-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "Making the recording and its reference..."
make_clip() { # SECONDS PATTERN OUT
    ffmpeg -hide_banner -nostdin -v error -y -f lavfi -i "$2=size=1280x720:rate=30:duration=$1" \
        -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=$1" -c:v libx264 -preset ultrafast \
        -b:v 20M -maxrate 20M -bufsize 20M -pix_fmt yuv420p -g 30 -c:a aac -ac 2 -b:a 128k "$3"
}
make_clip 60 testsrc2 "$work/recording.mp4"
make_clip 5 testsrc "$work/reference.mp4"

# cut GB OUT: an "ftyp", then an "mdat" running to the end of the file, filled with the recording's
# media data over and over until it holds GB gigabytes.
cut() {
    python3 - "$work/recording.mp4" "$1" "$2" <<'PY'
import struct, sys
src, gb, out = sys.argv[1], float(sys.argv[2]), sys.argv[3]
data = open(src, "rb").read()
at, media, ftyp = 0, b"", b""
while at + 8 <= len(data):
    size, kind = struct.unpack(">I4s", data[at:at + 8])
    if kind == b"ftyp": ftyp = data[at:at + size]
    if kind == b"mdat": media = data[at + 8:at + size]
    at += size
with open(out, "wb") as f:
    f.write(ftyp + struct.pack(">I4s", 0, b"mdat"))
    left = int(gb * (1 << 30))
    while left > 0:
        f.write(media[:left]); left -= len(media)
PY
}
cut "$size" "$work/cut.mp4"
cut "$large" "$work/large.mp4"

# measure COMMAND...: "seconds kilobytes" of one run under /usr/bin/time -v.
measure() {
    /usr/bin/time -v -o "$work/time.txt" "$@" >"$work/last.txt" 2>&1 || { cat "$work/last.txt" >&2; exit 2; }
    awk -F': ' '/Elapsed \(wall clock\) time/ { n = split($2, p, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + p[i] }
        /Maximum resident set size/ { kb = $2 } END { printf "%.2f %d\n", s, kb }' "$work/time.txt"
}

# median COMMAND...: the median "seconds kilobytes" of $runs runs.
median() {
    for ((i = 1; i <= runs; i++)); do
        rm -f "$work/out.mp4" "$work/copy.mp4"
        sync # the last run's output written back first, so that no run pays for another's
        measure "$@"
    done | sort -n | awk '{ s[NR] = $1; k[NR] = $2 } END { m = int((NR + 1) / 2); print s[m], k[m] }'
}

cat "$work/cut.mp4" "$work/large.mp4" >/dev/null # a warm page cache for every run
echo "Timing cp and the rebuild on $size GB ($runs runs each)..."
read -r cp_s _ <<<"$(median cp --reflink=never "$work/cut.mp4" "$work/copy.mp4")"
read -r rb_s rb_kb <<<"$(median "$rebuild" "$work/reference.mp4" "$work/cut.mp4" "$work/out.mp4")"
cat "$work/last.txt"
echo "Peak memory of the rebuild on $large GB..."
rm -f "$work/out.mp4" "$work/copy.mp4"
sync
read -r lg_s lg_kb <<<"$(measure "$rebuild" "$work/reference.mp4" "$work/large.mp4" "$work/out.mp4")"
cat "$work/last.txt"

awk -v cp="$cp_s" -v rb="$rb_s" -v rk="$rb_kb" -v ls="$lg_s" -v lk="$lg_kb" -v size="$size" -v large="$large" 'BEGIN {
    ratio = rb / cp
    printf "\n%-34s %10s %14s\n", "", "time (s)", "peak RSS (MB)"
    printf "%-34s %10.2f %14s\n", "cp --reflink=never, " size " GB", cp, "-"
    printf "%-34s %10.2f %14.1f\n", "rebuild, " size " GB", rb, rk / 1024
    printf "%-34s %10.2f %14.1f\n", "rebuild, " large " GB", ls, lk / 1024
    printf "\nratio rebuild / cp: %.2f (target at most 2)\n", ratio
    printf "peak memory on %s GB: %.1f MB (target under 300 MB)\n", large, lk / 1024
    ok = ratio <= 2 && lk / 1024 < 300
    print ok ? "Targets met." : "Target missed."
    exit !ok
}'
