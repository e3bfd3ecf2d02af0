#!/usr/bin/env bash
# Runs a command with a private PulseAudio server whose only sink is a null sink, so that playback
# needs no sound card and never reaches a real one. The server is stopped by its pid afterwards.
# Usage: bash scripts/with-sound.sh COMMAND [ARGS...]
set -euo pipefail
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
"$@"
