#!/usr/bin/env bash
# Times corvane-repair against a plain ffmpeg re-encode with the same x264 settings, on a 30 s
# 1280x720 29.97 fps H.264 + AAC clip made here, and reports wall time, their ratio and peak memory.
#
#   bench/run.sh [--runs N] [BUILD_DIR]
#
# BUILD_DIR defaults to build/ at the top of the checkout; only its corvane-repair target is built.
# With --runs N each program runs N times and the fastest run counts. Exits 1 when a target is missed
# (ratio above 1.2, or corvane-repair's peak memory at 300 MB or more).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=1
build=$root/build
while [ $# -gt 0 ]; do
    case $1 in
    --runs) runs=${2:?--runs needs a number}; shift 2 ;;
    -h | --help) sed -n '2,10p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
    esac
done
case $runs in '' | *[!0-9]* | 0) echo "bench: --runs needs a positive number" >&2; exit 2 ;; esac

for tool in /usr/bin/time ffmpeg; do
    command -v "$tool" >/dev/null || { echo "bench: $tool is missing (scripts/deps.sh installs it)" >&2; exit 2; }
done

cmake --build "$build" --target corvane-repair >/dev/null
repair=$build/cli/corvane-repair

work=$(mktemp -d "${TMPDIR:-/tmp}/corvane-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "Making the clip (30 s, 1280x720, 29.97 fps, H.264 + AAC)..."
ffmpeg -hide_banner -nostdin -v error -y \
    -f lavfi -i "testsrc2=size=1280x720:rate=30000/1001:duration=30" \
    -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=30" \
    -c:v libx264 -pix_fmt yuv420p -c:a aac -ac 2 -b:a 128k "$work/clip.mp4"

# measure NAME COMMAND...: runs COMMAND under /usr/bin/time -v and prints "seconds kilobytes".
measure() {
    local report=$work/time-$1.txt
    shift
    if ! /usr/bin/time -v -o "$report" "$@" >"$work/last-output.txt" 2>&1; then
        echo "bench: failed: $*" >&2
        cat "$work/last-output.txt" >&2
        exit 2
    fi
    awk -F': ' '
        /Elapsed \(wall clock\) time/ {
            n = split($2, p, ":"); s = 0
            for (i = 1; i <= n; i++) s = s * 60 + p[i]
        }
        /Maximum resident set size/ { kb = $2 }
        END { printf "%.2f %d\n", s, kb }' "$report"
}

# best NAME COMMAND...: the fastest of $runs runs, with its peak memory, as "seconds kilobytes".
best() {
    local name=$1 result best_s="" best_kb=""
    shift
    for ((i = 1; i <= runs; i++)); do
        rm -rf "$work/out" "$work/tmp" && mkdir -p "$work/out" "$work/tmp"
        result=$(measure "$name" "$@")
        if [ -z "$best_s" ] || awk -v a="${result% *}" -v b="$best_s" 'BEGIN { exit !(a < b) }'; then
            best_s=${result% *}
            best_kb=${result#* }
        fi
    done
    echo "$best_s $best_kb"
}

echo "Timing ffmpeg ($runs run(s))..."
ff=$(best ffmpeg ffmpeg -hide_banner -nostdin -v error -y -i "$work/clip.mp4" \
    -c:v libx264 -preset veryfast -tune zerolatency -c:a aac "$work/out/ffmpeg.mp4")
read -r ff_s ff_kb <<<"$ff"
echo "Timing corvane-repair ($runs run(s))..."
cr=$(best corvane "$repair" --output "$work/out" --temp "$work/tmp" "$work/clip.mp4")
read -r cr_s cr_kb <<<"$cr"

awk -v cs="$cr_s" -v ck="$cr_kb" -v fs="$ff_s" -v fk="$ff_kb" 'BEGIN {
    ratio = cs / fs
    printf "\n%-16s %10s %14s\n", "", "time (s)", "peak RSS (MB)"
    printf "%-16s %10.2f %14.1f\n", "corvane-repair", cs, ck / 1024
    printf "%-16s %10.2f %14.1f\n", "ffmpeg", fs, fk / 1024
    printf "\nratio corvane-repair / ffmpeg: %.2f (target at most 1.20)\n", ratio
    printf "corvane-repair peak memory: %.1f MB (target under 300 MB)\n", ck / 1024
    ok = ratio <= 1.2 && ck / 1024 < 300
    print ok ? "Targets met." : "Target missed."
    exit !ok
}'
