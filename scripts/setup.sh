#!/usr/bin/env bash
# Installs the Debian packages Ondaro needs to build, test and run. Does nothing when all are
# present; runs apt-get update only when something is missing. Works as root or through sudo.
set -euo pipefail

packages=(
    g++ cmake make pkg-config
    qt6-base-dev qt6-multimedia-dev libqt6sql6-sqlite qt6-qpa-plugins libgl-dev
    libtag1-dev libsqlite3-dev
    libavformat-dev libavcodec-dev libswresample-dev libavutil-dev libebur128-dev
    libqt6sql6-psql postgresql postgresql-15
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
    gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-pulseaudio
    pulseaudio pulseaudio-utils
    sox libsox-fmt-all ffmpeg
    xvfb xauth imagemagick python3
)

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
if [[ $(id -u) -eq 0 ]]; then
    sudo=()
else
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
