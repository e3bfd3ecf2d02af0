#!/usr/bin/env bash
# Sets up, builds and starts the Library Manager.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh"
exec "${ONDARO_BUILD_DIR:-$root/build}/app/ondaro" "$@"
