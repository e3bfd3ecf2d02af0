#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite. Playback tests get a private PulseAudio server
# with a null sink, started here and stopped by its pid, so no sound card is needed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${ONDARO_BUILD_DIR:-$root/build}
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh"

runtime=$(mktemp -d /tmp/ondaro-pulse.XXXXXX)
chmod 700 "$runtime"
export XDG_RUNTIME_DIR=$runtime
unset PULSE_SERVER
pulseaudio -n --daemonize=no --exit-idle-time=-1 --disallow-exit \
    -L "module-null-sink sink_name=null sink_properties=device.description=NullOut" \
    -L module-native-protocol-unix >"$runtime/pulse.log" 2>&1 &
pulse_pid=$!
stop_pulse() {
    kill "$pulse_pid" 2>/dev/null || true
    wait "$pulse_pid" 2>/dev/null || true
    rm -rf "$runtime"
}
trap stop_pulse EXIT
for _ in $(seq 100); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.1
done
pactl info >/dev/null 2>&1 || { echo "PulseAudio null sink did not start:"; cat "$runtime/pulse.log"; }

cd "$build"
ctest --output-on-failure -j"$(nproc)" "$@"
