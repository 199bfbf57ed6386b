#!/usr/bin/env bash
# Times corvane-repair against a plain ffmpeg re-encode with the same preset and tune, on clips made
# here: 30 s 1280x720 29.97 fps H.264 + AAC against libx264, and 20 s 1280x720 29.97 fps HEVC + AAC
# against libx265. Reports, per clip, the median wall and processor time of its runs, their ratio and
# the peak memory.
#
#   bench/run.sh [--runs N] [--clip h264|hevc] [BUILD_DIR]
#
# BUILD_DIR defaults to build/ at the top of the checkout; only its corvane-repair target is built.
# Each program runs N times (default 3), the two taking turns, and the median run counts. --clip
# times one clip only (both by default). Exits 1 when a target is missed (a ratio of median wall
# times above 1.10, or a corvane-repair run peaking at 300 MB or more), 2 when a step fails.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=3
build=$root/build
clips=()
while [ $# -gt 0 ]; do
    case $1 in
    --runs) runs=${2:?--runs needs a number}; shift 2 ;;
    --clip)
        case ${2:-} in h264 | hevc) clips+=("$2") ;; *) echo "bench: --clip takes h264 or hevc" >&2; exit 2 ;; esac
        shift 2 ;;
    -h | --help) sed -n '2,13p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
    esac
done
case $runs in '' | *[!0-9]* | 0) echo "bench: --runs needs a positive number" >&2; exit 2 ;; esac
[ ${#clips[@]} -gt 0 ] || clips=(h264 hevc)

for tool in /usr/bin/time ffmpeg; do
    command -v "$tool" >/dev/null || { echo "bench: $tool is missing (scripts/deps.sh installs it)" >&2; exit 2; }
done

cmake --build "$build" --target corvane-repair >/dev/null
repair=$build/cli/corvane-repair

work=$(mktemp -d "${TMPDIR:-/tmp}/corvane-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

# make_clip NAME SECONDS VIDEO-OPTIONS...: a 1280x720 29.97 fps clip with a 48 kHz stereo AAC tone.
make_clip() {
    local name=$1 seconds=$2
    shift 2
    echo "Making the $name clip ($seconds s, 1280x720, 29.97 fps, + AAC)..."
    ffmpeg -hide_banner -nostdin -v error -y \
        -f lavfi -i "testsrc2=size=1280x720:rate=30000/1001:duration=$seconds" \
        -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=$seconds" \
        "$@" -pix_fmt yuv420p -c:a aac -ac 2 -b:a 128k "$work/$name.mp4"
}

# measure COMMAND...: runs COMMAND under /usr/bin/time and prints "wall cpu kilobytes".
measure() {
    local report=$work/time.txt
    rm -rf "$work/out" "$work/tmp" && mkdir -p "$work/out" "$work/tmp"
    if ! /usr/bin/time -f '%e %U %S %M' -o "$report" "$@" >"$work/last-output.txt" 2>&1; then
        echo "bench: failed: $*" >&2
        cat "$work/last-output.txt" >&2
        exit 2
    fi
    awk '{ printf "%.2f %.2f %d\n", $1, $2 + $3, $4 }' "$report"
}

# median: the median of the numbers on standard input.
median() {
    sort -g | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# bench_clip NAME ENCODER: times both programs on the clip, taking turns, and prints the figures.
bench_clip() {
    local name=$1 encoder=$2 i
    : >"$work/ffmpeg.txt"
    : >"$work/corvane.txt"
    echo "Timing $name: ffmpeg and corvane-repair, $runs run(s) each..."
    for ((i = 1; i <= runs; i++)); do
        measure ffmpeg -hide_banner -nostdin -v error -y -i "$work/$name.mp4" \
            -c:v "$encoder" -preset veryfast -tune zerolatency -c:a aac "$work/out/ffmpeg.mp4" >>"$work/ffmpeg.txt"
        measure "$repair" --output "$work/out" --temp "$work/tmp" "$work/$name.mp4" >>"$work/corvane.txt"
    done
    local ff_s ff_cpu ff_kb cr_s cr_cpu cr_kb
    ff_s=$(cut -d' ' -f1 "$work/ffmpeg.txt" | median)
    ff_cpu=$(cut -d' ' -f2 "$work/ffmpeg.txt" | median)
    ff_kb=$(cut -d' ' -f3 "$work/ffmpeg.txt" | sort -g | tail -1)
    cr_s=$(cut -d' ' -f1 "$work/corvane.txt" | median)
    cr_cpu=$(cut -d' ' -f2 "$work/corvane.txt" | median)
    cr_kb=$(cut -d' ' -f3 "$work/corvane.txt" | sort -g | tail -1)
    awk -v name="$name" -v cs="$cr_s" -v cc="$cr_cpu" -v ck="$cr_kb" -v fs="$ff_s" -v fc="$ff_cpu" \
        -v fk="$ff_kb" -v runs="$runs" -v encoder="$encoder" 'BEGIN {
        printf "\n%s (median of %d, against ffmpeg with %s)\n", name, runs, encoder
        printf "%-16s %10s %10s %14s\n", "", "wall (s)", "cpu (s)", "peak RSS (MB)"
        printf "%-16s %10.2f %10.2f %14.1f\n", "corvane-repair", cs, cc, ck / 1024
        printf "%-16s %10.2f %10.2f %14.1f\n", "ffmpeg", fs, fc, fk / 1024
        printf "ratio corvane-repair / ffmpeg: %.2f wall, %.2f cpu (target: wall at most 1.10)\n",
               cs / fs, cc / fc
        exit !(cs / fs <= 1.10 && ck / 1024 < 300)
    }' >>"$work/report.txt" || missed=1
    tail -n 6 "$work/report.txt"
}

echo "Load average at the start: $(cut -d' ' -f1-3 /proc/loadavg), $(nproc) processor(s)."
missed=0
for clip in "${clips[@]}"; do
    case $clip in
    h264)
        make_clip h264 30 -c:v libx264
        bench_clip h264 libx264 ;;
    hevc)
        make_clip hevc 20 -c:v libx265 -preset ultrafast -x265-params log-level=error -tag:v hvc1
        bench_clip hevc libx265 ;;
    esac
done
echo "Load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)."
if [ $missed -eq 0 ]; then
    echo "Targets met."
else
    echo "Target missed (ratio above 1.10, or 300 MB or more of memory)."
fi
exit $missed
