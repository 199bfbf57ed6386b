#!/usr/bin/env bash
# Installs the Debian 12 packages needed to build, run and test the program. Quiet and
# non-interactive; does nothing when everything is already there.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    qtbase5-dev qtbase5-dev-tools qtmultimedia5-dev libqt5multimedia5-plugins
    libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libswscale-dev libavdevice-dev
    ffmpeg xvfb xauth poppler-utils xdg-utils x11-utils time
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
