#!/usr/bin/env bash
# Starts (or reuses) PipeWire with its PulseAudio server (pipewire-pulse) and WirePlumber on a private
# runtime directory, and gives it the test devices of start-test-pulseaudio.sh (vocle_speaker,
# vocle_mic_feed, vocle_mic; see make-test-sound-devices.sh). Nothing of the desktop's own sound
# server is touched: the daemons get their own runtime, state and configuration folders and a
# session bus of their own (WirePlumber does not run without one).
#
# The directory is $VOCLE_PIPEWIRE_RUNTIME_DIR, else "$PULSE_RUNTIME_PATH-pipewire" (so each checkout
# that keeps a PulseAudio of its own keeps a PipeWire of its own), else ${TMPDIR:-/tmp}/vocle-pipewire-UID.
# Standard output is `export PULSE_SERVER=unix:DIR/pulse/native`, so that
#   source <(scripts/start-test-pipewire.sh)
# points later clients at it. `start-test-pipewire.sh --stop` ends the daemons this script started.
# Works as root (CI). Idempotent, and safe to call from several test processes at once.
set -euo pipefail

if [[ -n "${VOCLE_PIPEWIRE_RUNTIME_DIR:-}" ]]; then
    dir="$VOCLE_PIPEWIRE_RUNTIME_DIR"
elif [[ -n "${PULSE_RUNTIME_PATH:-}" ]]; then
    dir="${PULSE_RUNTIME_PATH%/}-pipewire"
else
    dir="${TMPDIR:-/tmp}/vocle-pipewire-$(id -u)"
fi
socket="$dir/pulse/native"
pids="$dir/daemons.pid"

stop() {
    [[ -f "$pids" ]] || return 0
    while read -r pid name; do
        # Only processes this script started: the recorded pid must still run the recorded program.
        if [[ "$(cat "/proc/$pid/comm" 2>/dev/null)" == "$name" ]]; then
            kill "$pid" 2>/dev/null || true
        fi
    done <"$pids"
    rm -f "$pids"
}

mkdir -p "$dir"
chmod 700 "$dir"
exec 9>"$dir.lock"
flock 9

if [[ "${1:-}" == "--stop" ]]; then
    stop
    echo "start-test-pipewire: stopped the daemons in $dir" >&2
    exit 0
fi

for tool in pipewire pipewire-pulse wireplumber dbus-daemon pactl; do
    command -v "$tool" >/dev/null || {
        echo "start-test-pipewire: $tool not found (apt-get install pipewire pipewire-pulse wireplumber dbus pulseaudio-utils)" >&2
        exit 1
    }
done

export PULSE_SERVER="unix:$socket"
answers() { pactl info 2>/dev/null | grep -q '^Server Name: .*PipeWire'; }

if ! answers; then
    stop
    # WirePlumber's state (stream volumes, defaults) starts empty, as on a fresh machine.
    rm -rf "$dir/pulse" "$dir/pipewire-0" "$dir/pipewire-0.lock" "$dir/bus" "$dir/state"
    mkdir -p "$dir/state" "$dir/config" "$dir/log"
    # The daemons must not inherit the lock (fd 9), or they would hold it for as long as they run.
    bus="$(dbus-daemon --session --fork --address="unix:path=$dir/bus" --print-address=1 --print-pid=3 \
        3>"$dir/bus.pid" 9>&-)"
    echo "$(cat "$dir/bus.pid") dbus-daemon" >"$pids"
    # pipewire-pulse finds its socket folder through PULSE_RUNTIME_PATH before XDG_RUNTIME_DIR.
    launch() {
        env -u PULSE_SERVER -u PULSE_RUNTIME_PATH XDG_RUNTIME_DIR="$dir" PIPEWIRE_RUNTIME_DIR="$dir" \
            XDG_STATE_HOME="$dir/state" XDG_CONFIG_HOME="$dir/config" DBUS_SESSION_BUS_ADDRESS="$bus" \
            setsid "$1" </dev/null >"$dir/log/$1.log" 2>&1 9>&- &
        echo "$! $1" >>"$pids"
    }
    launch pipewire
    for _ in $(seq 1 50); do
        [[ -S "$dir/pipewire-0" ]] && break
        sleep 0.1
    done
    launch wireplumber
    launch pipewire-pulse
    for _ in $(seq 1 100); do
        answers && break
        sleep 0.1
    done
    answers || {
        echo "start-test-pipewire: pipewire-pulse does not answer on $socket; see $dir/log" >&2
        exit 1
    }
fi

exec "$(dirname "$0")/make-test-sound-devices.sh" start-test-pipewire
