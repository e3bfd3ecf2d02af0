#!/usr/bin/env bash
# Takes docs/studio-timed.png: Ondaro Studio on air under Xvfb (null sink, private home), with a hard
# timed news six minutes after the first row starts, so the picture shows the fixed start time, a
# row struck out to meet it and the on-air countdown with its over/under.
# Usage: bash scripts/screenshot-timed.sh [BUILDDIR] [OUTPUT]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build}
output=${2:-$here/docs/studio-timed.png}
work=$(mktemp -d /tmp/ondaro-shot.XXXXXX)
trap 'rm -rf "$work"' EXIT

tone() { # tone FILE SECONDS FREQUENCY
    ffmpeg -loglevel error -f lavfi -i "sine=frequency=$3:duration=$2" -ac 1 -ar 22050 -b:a 32k "$1"
}
mkdir -p "$work/audio" "$work/home"
tone "$work/audio/Lena Marsh - Harbour Lights.mp3" 200 440
tone "$work/audio/The Quiet Hours - Paper Moon.mp3" 220 494
tone "$work/audio/Okafor Trio - Slow River.mp3" 210 523
tone "$work/audio/Newsroom - Top of the Hour.mp3" 180 330
tone "$work/audio/Juno Vale - Northern Line.mp3" 230 587
tone "$work/audio/Station ID - Ondaro FM.mp3" 8 660
tone "$work/audio/Mira Castell - Open Roads.mp3" 240 392

# The news is due six minutes after the list starts; the promo ten minutes after the news.
news=$(date -d '+6 minutes 5 seconds' +%H:%M:%S)
promo=$(date -d '+17 minutes' +%H:%M:%S)
list="$work/hour.m3u"
{
    echo "#EXTM3U"
    echo "$work/audio/Lena Marsh - Harbour Lights.mp3"
    echo "$work/audio/The Quiet Hours - Paper Moon.mp3"
    echo "$work/audio/Okafor Trio - Slow River.mp3"
    echo "#ONDARO-TIME:hard $news"
    echo "$work/audio/Newsroom - Top of the Hour.mp3"
    echo "$work/audio/Juno Vale - Northern Line.mp3"
    echo "#ONDARO-TIME:soft $promo"
    echo "$work/audio/Station ID - Ondaro FM.mp3"
    echo "$work/audio/Mira Castell - Open Roads.mp3"
} >"$list"

# Run inside the X server and the sound server: start the studio, let it go on air, grab the screen.
cat >"$work/shoot.sh" <<SHOT
HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share" \
    "$build/app/ondaro-studio" --play "$list" &
studio=\$!
sleep 12
import -window root "$work/root.png"
kill "\$studio" 2>/dev/null || true
wait "\$studio" 2>/dev/null || true
SHOT
xvfb-run -a -s "-screen 0 1280x860x24" bash "$here/scripts/with-sound.sh" bash "$work/shoot.sh"
convert "$work/root.png" -crop 1280x860+0+0 +repage "$output"
echo "$output"
