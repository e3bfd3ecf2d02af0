#!/usr/bin/env bash
# Draws the application icon (resources/appicon.png, 256 x 256) with ImageMagick:
# a rounded dark-blue tile with an on-air dot on a mast and two pairs of radio-wave arcs.
set -euo pipefail
out="${1:-$(dirname "${BASH_SOURCE[0]}")/../resources/appicon.png}"

# Points of an open arc around the tile's centre, as "x,y x,y ..." (radius, from and to angle in degrees).
arc() {
    awk -v r="$1" -v a="$2" -v b="$3" 'BEGIN {
        for (d = a; d <= b; d += 4) {
            t = d * 3.14159265 / 180
            printf "%.1f,%.1f ", 128 + r * cos(t), 128 + r * sin(t)
        }
    }'
}

convert -size 256x256 xc:none \
    -fill '#1d3557' -draw 'roundrectangle 8,8 247,247 44,44' \
    -fill none -strokewidth 10 -stroke '#f1c453' \
    -draw "stroke-linejoin round stroke-linecap round polyline $(arc 46 -44 44)" -draw "stroke-linejoin round stroke-linecap round polyline $(arc 46 136 224)" \
    -stroke '#a8dadc' \
    -draw "stroke-linejoin round stroke-linecap round polyline $(arc 82 -40 40)" -draw "stroke-linejoin round stroke-linecap round polyline $(arc 82 140 220)" \
    -stroke none -fill '#e63946' -draw 'circle 128,128 128,110' \
    -fill '#f1faee' -draw 'rectangle 121,150 135,210' \
    -draw 'polygon 98,214 158,214 150,200 106,200' \
    -strip PNG32:"$out"
