#!/usr/bin/env bash
# Runs every test: unit, integration (real PulseAudio, loopback HTTP, SQLite, speech recognition) and e2e.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${VOCLE_BUILD_DIR:-build}

# Integration tests talk to a private PulseAudio daemon with virtual devices.
if [[ -x scripts/start-test-pulseaudio.sh ]]; then
    # shellcheck disable=SC1090
    source <(scripts/start-test-pulseaudio.sh)
fi

ctest --test-dir "$BUILD_DIR" --output-on-failure -j2 --timeout 600 "$@"
