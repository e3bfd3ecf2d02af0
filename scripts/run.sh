#!/usr/bin/env bash
# Sets up, builds and starts Ondaro Studio, the on-air window (its Library… button opens the Library
# Manager). Arguments go to the studio: files, stream URLs, M3U playlists, --play.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh"
exec "${ONDARO_BUILD_DIR:-$root/build}/app/ondaro-studio" "$@"
