#!/usr/bin/env bash
# Gives the sound server that pactl reaches (PULSE_SERVER, or the usual client rules) the test devices:
#   vocle_speaker   a null sink, the default output (its monitor is what system-audio capture records)
#   vocle_mic_feed  a null sink that tests play a speech file into
#   vocle_mic       a virtual microphone remapped from vocle_mic_feed's monitor, the default input
# The same commands build them on PulseAudio and on PipeWire's pipewire-pulse. Idempotent.
# Standard output is `export PULSE_SERVER=unix:…/native` for the caller's shell; messages go to
# standard error, prefixed with $1 (the calling script's name).
set -euo pipefail
me="${1:-make-test-sound-devices}"

has() { pactl list short "$1" | awk '{print $2}' | grep -qx "$2"; }

has sinks vocle_speaker ||
    pactl load-module module-null-sink sink_name=vocle_speaker \
        sink_properties=device.description=Vocle_Test_Speaker >/dev/null
has sinks vocle_mic_feed ||
    pactl load-module module-null-sink sink_name=vocle_mic_feed \
        sink_properties=device.description=Vocle_Microphone_Feed >/dev/null
has sources vocle_mic ||
    pactl load-module module-remap-source master=vocle_mic_feed.monitor source_name=vocle_mic \
        source_properties=device.description=Vocle_Test_Microphone >/dev/null
# PipeWire creates the nodes behind a module asynchronously; the defaults need them to exist.
for _ in $(seq 1 50); do
    has sinks vocle_speaker && has sinks vocle_mic_feed && has sources vocle_mic && break
    sleep 0.1
done
has sources vocle_mic || {
    echo "$me: the virtual microphone vocle_mic did not appear" >&2
    exit 1
}
pactl set-default-sink vocle_speaker
pactl set-default-source vocle_mic
pactl set-sink-volume vocle_speaker 100%
pactl set-sink-mute vocle_speaker 0

server="$(pactl info | sed -n 's/^Server String: //p')"
case "$server" in
    /*) server="unix:$server" ;;
esac
echo "$me: $server ready (vocle_speaker, vocle_mic_feed, vocle_mic)" >&2
printf 'export PULSE_SERVER=%q\n' "$server"
