#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite. Playback tests get a private PulseAudio server
# with a null sink (scripts/with-sound.sh), so no sound card is needed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${ONDARO_BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh"

cd "$build"
bash "$root/scripts/with-sound.sh" ctest --output-on-failure -j"$(nproc)" "$@"
