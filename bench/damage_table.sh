#!/usr/bin/env bash
# Damages copies of short recordings in several ways, repairs each with corvane-repair and with
#   ffmpeg -err_detect ignore_err -i DAMAGED -c:v libx264 -preset veryfast -c:a aac OUT
# and prints what each result plays: video frames (seconds of sound for a file without video),
# counted as the tests count them (the last "frame=" / "out_time_us=" of ffmpeg -progress).
#
#   bench/damage_table.sh [--seconds S] [--size WxH] [BUILD_DIR]
#
# Recordings (S seconds, default 20, at WxH, default 640x360, 25 fps): H.264 + AAC .mp4 with the
# index at the end, faststart and fragmented; HEVC + AAC .mp4; MPEG-4 Part 2 + MP3 .mov; H.264 +
# AAC .mov with a timecode track; AAC .m4a. Damage: 64 KiB zeroed in the middle, a byte flipped
# every 32 KiB of the middle 80%, the first NAL length of video packet 40 set to 0x7FFFFFFF,
# the last 40% cut off, the first 1 KiB zeroed. Exits 1 when a repair plays less than 99% of what
# the ffmpeg command's output plays, or a result that plays nothing is called repaired.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=20
size=640x360
build=$root/build
while [ $# -gt 0 ]; do
    case $1 in
    --seconds) seconds=${2:?}; shift 2 ;;
    --size) size=${2:?}; shift 2 ;;
    -h | --help) sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
    esac
done
cmake --build "$build" --target corvane-repair >/dev/null
repair=$build/cli/corvane-repair

work=$(mktemp -d "${TMPDIR:-/tmp}/corvane-damage.XXXXXX")
trap 'rm -rf "$work"' EXIT
ff() { ffmpeg -hide_banner -nostdin -v error -y "$@"; }

picture=(-f lavfi -i "testsrc2=size=$size:rate=25:duration=$seconds")
sound=(-f lavfi -i "sine=frequency=440:sample_rate=44100:duration=$seconds")
echo "Making the recordings ($seconds s, $size)..."
mkdir -p "$work/rec"
ff "${picture[@]}" "${sound[@]}" -c:v libx264 -pix_fmt yuv420p -c:a aac "$work/rec/h264-aac.mp4"
ff "${picture[@]}" "${sound[@]}" -c:v libx264 -pix_fmt yuv420p -c:a aac -movflags +faststart \
    "$work/rec/h264-faststart.mp4"
ff "${picture[@]}" "${sound[@]}" -c:v libx264 -pix_fmt yuv420p -c:a aac \
    -movflags frag_keyframe+empty_moov "$work/rec/h264-fragmented.mp4"
ff "${picture[@]}" "${sound[@]}" -c:v libx265 -preset ultrafast -tag:v hvc1 -pix_fmt yuv420p -c:a aac \
    -x265-params log-level=error "$work/rec/hevc-aac.mp4"
ff "${picture[@]}" "${sound[@]}" -c:v mpeg4 -q:v 4 -c:a libmp3lame "$work/rec/mpeg4-mp3.mov"
ff "${picture[@]}" "${sound[@]}" -c:v libx264 -pix_fmt yuv420p -c:a aac -timecode 01:00:00:00 \
    "$work/rec/h264-timecode.mov"
ff "${sound[@]}" -c:a aac -b:a 192k "$work/rec/aac.m4a"

# plays FILE: "frames seconds" as the ffmpeg command decodes them.
plays() {
    local frames us
    frames=$( (ffmpeg -hide_banner -nostdin -v error -i "$1" -map 0:v:0 -fps_mode passthrough -f null - \
        -progress pipe:1 2>/dev/null || true) | sed -n 's/^frame=//p' | tail -n 1)
    us=$( (ffmpeg -hide_banner -nostdin -v error -i "$1" -map 0:a:0 -f null - -progress pipe:1 2>/dev/null ||
        true) | sed -n 's/^out_time_us=//p' | tail -n 1)
    case $us in '' | *[!0-9]*) us=0 ;; esac
    case $frames in '' | *[!0-9]*) frames=0 ;; esac
    echo "$frames $(awk -v u="$us" 'BEGIN { printf "%.2f", u / 1e6 }')"
}

# damage KIND FILE: damages FILE in place; fails when the kind does not apply.
damage() {
    local n
    n=$(stat -c %s "$2")
    case $1 in
    zeroed)
        dd if=/dev/zero of="$2" bs=65536 count=1 seek=$((n / 2 - 32768)) oflag=seek_bytes conv=notrunc \
            status=none ;;
    flipped)
        local at byte
        for ((at = n / 10; at < n * 9 / 10; at += 32768)); do
            byte=$(od -An -tu1 -j "$at" -N1 "$2" | tr -d ' ')
            printf "\\$(printf %03o $((byte ^ 255)))" | dd of="$2" bs=1 seek="$at" conv=notrunc status=none
        done ;;
    nal)
        local codec pos
        codec=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_name -of csv=p=0 "$2")
        case $codec in h264 | hevc) ;; *) return 1 ;; esac
        pos=$(ffprobe -v error -select_streams v:0 -show_entries packet=pos -of csv=p=0 "$2" | sed -n 41p)
        [ -n "$pos" ] || return 1
        printf '\177\377\377\377' | dd of="$2" bs=1 seek="$pos" conv=notrunc status=none ;;
    truncated) truncate -s $((n * 6 / 10)) "$2" ;;
    start) dd if=/dev/zero of="$2" bs=1024 count=1 conv=notrunc status=none ;;
    esac
}

kinds=(zeroed flipped nal truncated start)
names=(h264-aac.mp4 h264-faststart.mp4 h264-fragmented.mp4 hevc-aac.mp4 mpeg4-mp3.mov h264-timecode.mov aac.m4a)
declare -A cell
cases=0 short=0 dishonest=0 worse=0
for kind in "${kinds[@]}"; do
    for name in "${names[@]}"; do
        dir=$work/$kind
        mkdir -p "$dir/in" "$dir/out" "$dir/tmp"
        in=$dir/in/$name
        cp "$work/rec/$name" "$in"
        if ! damage "$kind" "$in"; then
            cell[$kind,$name]="n/a"
            continue
        fi
        echo "Repairing $kind $name..." >&2
        report=$("$repair" --output "$dir/out" --temp "$dir/tmp" "$in" 2>/dev/null || true)
        status=${report%%:*}
        ours="0 0"
        [ -f "$dir/out/Repaired-Video-Files/$name" ] && ours=$(plays "$dir/out/Repaired-Video-Files/$name")
        theirs="0 0"
        if ff -err_detect ignore_err -i "$in" -c:v libx264 -preset veryfast -c:a aac "$dir/ffmpeg-$name" 2>/dev/null; then
            theirs=$(plays "$dir/ffmpeg-$name")
        fi
        damaged=$(plays "$in")
        read -r of os <<<"$ours"
        read -r tf ts <<<"$theirs"
        read -r df ds <<<"$damaged"
        # Files without video are counted in seconds of sound.
        if [ "$name" = aac.m4a ]; then o=$os t=$ts d=$ds; else o=$of t=$tf d=$df; fi
        cases=$((cases + 1))
        mark=""
        if awk -v o="$o" -v t="$t" 'BEGIN { exit !(o < 0.99 * t) }'; then short=$((short + 1)); mark="!"; fi
        if awk -v o="$o" -v d="$d" 'BEGIN { exit !(o < d) }'; then worse=$((worse + 1)); mark="!"; fi
        if [ "$status" = "Successfully Repaired" ] && awk -v o="$o" 'BEGIN { exit !(o == 0) }'; then
            dishonest=$((dishonest + 1)); mark="!"
        fi
        [ "$status" = "Successfully Repaired" ] || mark="$mark F"
        cell[$kind,$name]="$o/$t ($d)$mark"
        rm -rf "$dir"
    done
done

printf '\nPlayed after repair, ours/ffmpeg (the damaged file itself): video frames, seconds of sound for .m4a.\n'
printf 'F: reported "Repair Failed"; !: below 99%% of ffmpeg, below the damaged file, or an empty result called repaired.\n\n'
printf '%-10s' "damage"
for name in "${names[@]}"; do printf ' %24s' "$name"; done
printf '\n'
for kind in "${kinds[@]}"; do
    printf '%-10s' "$kind"
    for name in "${names[@]}"; do printf ' %24s' "${cell[$kind,$name]}"; done
    printf '\n'
done
printf '\n%d cases: %d below 99%% of ffmpeg, %d playing less than the damaged file, %d empty results called repaired.\n' \
    "$cases" "$short" "$worse" "$dishonest"
[ $((short + worse + dishonest)) -eq 0 ]
