#!/usr/bin/env bash
# Starts (or reuses) a PulseAudio daemon for the audio integration tests and makes sure it has
# (through make-test-sound-devices.sh):
#   vocle_speaker   a null sink, the default output (its monitor is what system-audio capture records)
#   vocle_mic_feed  a null sink that tests play a speech file into
#   vocle_mic       a virtual microphone remapped from vocle_mic_feed's monitor, the default input
# Idempotent: a second call finds the server and only adds what is missing.
#
# Standard output is one line for the caller's shell, `export PULSE_SERVER=unix:…/native`, so that
#   source <(scripts/start-test-pulseaudio.sh)
# points every later client at this server; messages go to standard error.
#
# Works as root (CI): a per-user daemon (not --system) with -n and --exit-idle-time=-1. PulseAudio
# warns that it is "not intended to be run as root" and runs anyway. Its socket is found by the
# usual client rules (PULSE_SERVER, $XDG_RUNTIME_DIR/pulse, or ~/.config/pulse/*-runtime), so call
# this script with the same environment as the tests.
set -euo pipefail

log_file="${VOCLE_PULSE_LOG:-${TMPDIR:-/tmp}/vocle-test-pulseaudio.log}"

for tool in pulseaudio pactl; do
    command -v "$tool" >/dev/null || {
        echo "start-test-pulseaudio: $tool not found (apt-get install pulseaudio pulseaudio-utils)" >&2
        exit 1
    }
done

# A PULSE_SERVER left over from an earlier run may point at a daemon that is gone.
if [[ -n "${PULSE_SERVER:-}" ]] && ! pactl info >/dev/null 2>&1; then
    unset PULSE_SERVER
fi

if ! pactl info >/dev/null 2>&1; then
    pulseaudio --daemonize=yes --exit-idle-time=-1 -n \
        --load="module-native-protocol-unix auth-anonymous=1" \
        --log-target="file:$log_file" || {
        echo "start-test-pulseaudio: the daemon did not start; see $log_file" >&2
        exit 1
    }
    for _ in $(seq 1 50); do
        pactl info >/dev/null 2>&1 && break
        sleep 0.1
    done
    pactl info >/dev/null 2>&1 || {
        echo "start-test-pulseaudio: the daemon started but does not answer; see $log_file" >&2
        exit 1
    }
fi

exec "$(dirname "$0")/make-test-sound-devices.sh" start-test-pulseaudio
