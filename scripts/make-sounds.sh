#!/usr/bin/env bash
# Regenerates the start and stop sound effects (data/sounds/start.aiff, stop.aiff) with sox: two short
# soft tones, rising for "start" and falling for "stop". The files are committed; run this only to
# change them.
set -euo pipefail
out="$(cd "$(dirname "$0")/.." && pwd)/data/sounds"
mkdir -p "$out"
command -v sox >/dev/null || { echo "make-sounds: sox is not installed (apt-get install sox)" >&2; exit 1; }

tone() {  # tone FREQ SECONDS FILE
    sox -n -r 44100 -c 1 -b 16 "$3" synth "$2" sine "$1" fade h 0.01 "$2" 0.06 gain -9
}
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
tone 660 0.09 "$tmp/a.wav"
tone 990 0.12 "$tmp/b.wav"
sox "$tmp/a.wav" "$tmp/b.wav" "$out/start.aiff"
sox "$tmp/b.wav" "$tmp/a.wav" "$out/stop.aiff"
echo "make-sounds: wrote $out/start.aiff and $out/stop.aiff"
