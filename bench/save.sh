#!/usr/bin/env bash
# Times the copies of a save against cp. A 1 GiB and a 4 GiB file (a short clip followed by a large
# "free" box of random bytes, so that it plays and gets saved) go
#   - through the saving worker (bench_save, with a progress bar on the window's thread), against
#     one `cp --reflink=never` of the file, and
#   - through `corvane-repair --structural-only` (a copy into its working folder, one out to the
#     destination, and the working copy removed), against two `cp --reflink=never` and an `rm`
#     doing the same,
# with a warm page cache, in the same run. Prints the median time of N runs of each, the throughput
# ratio (cp's time / ours), the peak memory and, for the saving worker, the longest gap between two
# ticks of a 10 ms timer on the window's thread, beside the longest gap as long a time with nothing
# to do (what a busy machine gives anyway).
#
#   bench/save.sh [--runs N] [--sizes "1 4"] [--dir DIR] [BUILD_DIR]
#
# BUILD_DIR defaults to build/; only corvane-repair and bench_save are built. The test files go into
# a folder made in DIR (default BUILD_DIR) and are removed at the end; it needs about four times the
# largest size free. Exits 1 when a target is missed: a ratio below 0.8, peak memory of 100 MB or
# more, or a timer gap of 100 ms or more.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
runs=3
sizes="1 4"
build=$root/build
dir=""
while [ $# -gt 0 ]; do
    case $1 in
    --runs) runs=${2:?--runs needs a number}; shift 2 ;;
    --sizes) sizes=${2:?--sizes needs sizes in GiB}; shift 2 ;;
    --dir) dir=${2:?--dir needs a folder}; shift 2 ;;
    -h | --help) sed -n '2,21p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
    esac
done
case $runs in '' | *[!0-9]* | 0) echo "bench: --runs needs a positive number" >&2; exit 2 ;; esac

for tool in /usr/bin/time ffmpeg perl; do
    command -v "$tool" >/dev/null || { echo "bench: $tool is missing" >&2; exit 2; }
done

cmake --build "$build" --target corvane-repair bench_save >/dev/null
repair=$build/cli/corvane-repair
saver=$build/bench/bench_save
export QT_QPA_PLATFORM=offscreen

mkdir -p "${dir:-$build}"
work=$(mktemp -d "${dir:-$build}/corvane-save-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

ffmpeg -hide_banner -nostdin -v error -y -f lavfi -i testsrc=size=320x240:duration=2 \
    -c:v libx264 -pix_fmt yuv420p -movflags +faststart "$work/clip.mp4"

# timed COMMAND...: runs COMMAND on a clean page cache state (dirty pages written first) and sets
# $secs and $kb (its peak memory); its standard output goes to $work/stdout.
timed() {
    sync
    local start end
    start=$(date +%s%N)
    if ! /usr/bin/time -f %M -o "$work/kb" "$@" >"$work/stdout" 2>"$work/err"; then
        echo "bench: failed: $*" >&2
        cat "$work/err" >&2
        exit 2
    fi
    end=$(date +%s%N)
    secs=$(awk -v ms=$(((end - start) / 1000000)) 'BEGIN { printf "%.3f", ms / 1000 }')
    kb=$(tail -n 1 "$work/kb")
}

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

missed=0
printf '%-8s %-34s %9s %9s %7s %9s\n' size copy ours_s cp_s ratio peak_MB
for gib in $sizes; do
    src=$work/clip-${gib}G.mp4
    bytes=$((gib * 1024 * 1024 * 1024))
    payload=$((bytes - $(stat -c %s "$work/clip.mp4") - 16))
    { cat "$work/clip.mp4"; perl -e 'print pack("NA4Q>", 1, "free", $ARGV[0] + 16)' "$payload"
      head -c "$payload" /dev/urandom; } >"$src"
    cat "$src" >/dev/null # a warm page cache for everyone

    saves=() cps=() clis=() cps2=() save_kb=0 cli_kb=0 gap=0 idle_gap=0 signals=0
    for _ in $(seq "$runs"); do
        rm -rf "$work/out" "$work/tmp" && mkdir -p "$work/out" "$work/tmp"
        timed "$saver" "$src" "$work/out"
        read -r _ own _ n _ g _ idle <"$work/stdout"
        saves+=("$own") && save_kb=$((kb > save_kb ? kb : save_kb))
        gap=$((g > gap ? g : gap)) && idle_gap=$((idle > idle_gap ? idle : idle_gap)) && signals=$n
        timed cp --reflink=never "$src" "$work/out/cp.mp4" && cps+=("$secs")

        rm -rf "$work/out" "$work/tmp" && mkdir -p "$work/out" "$work/tmp"
        timed "$repair" --structural-only --output "$work/out" --temp "$work/tmp" "$src"
        clis+=("$secs") && cli_kb=$((kb > cli_kb ? kb : cli_kb))
        rm -rf "$work/out" "$work/tmp" && mkdir -p "$work/out" "$work/tmp"
        timed sh -c 'cp --reflink=never "$1" "$2/x" && cp --reflink=never "$2/x" "$3/x" && rm "$2/x"' \
            sh "$src" "$work/tmp" "$work/out"
        cps2+=("$secs")
    done
    rm -rf "$work/out" "$work/tmp" "$src"

    for line in "saving worker|$(median "${saves[@]}")|$(median "${cps[@]}")|$save_kb" \
        "corvane-repair --structural-only|$(median "${clis[@]}")|$(median "${cps2[@]}")|$cli_kb"; do
        IFS='|' read -r what ours cp peak <<<"$line"
        ratio=$(awk -v a="$cp" -v b="$ours" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')
        printf '%-8s %-34s %9s %9s %7s %9d\n' "${gib} GiB" "$what" "$ours" "$cp" "$ratio" $((peak / 1024))
        awk -v r="$ratio" 'BEGIN { exit !(r < 0.8) }' && missed=1
        [ $((peak / 1024)) -ge 100 ] && missed=1
    done
    echo "${gib} GiB: longest gap between 10 ms ticks on the window's thread while saving: ${gap} ms" \
        "(${signals} progress signals); as long idle afterwards: ${idle_gap} ms"
    [ "$gap" -ge 100 ] && missed=1
done
exit $missed
