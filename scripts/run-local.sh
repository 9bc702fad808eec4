#!/usr/bin/env bash
# Starts the local backend on 127.0.0.1:8765 (data under $XDG_DATA_HOME/vocle-server) and the Vocle app
# against it. Sign-in codes the server mails to its outbox are also printed here. Without a display (X11
# or Wayland) it says so and keeps the server in the foreground.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${VOCLE_BUILD_DIR:-build}
DATA_HOME=${XDG_DATA_HOME:-$HOME/.local/share}
SERVER_DATA="$DATA_HOME/vocle-server"
mkdir -p "$SERVER_DATA"

if [[ ! -x $BUILD_DIR/server/vocle-server ]]; then
    echo "vocle-server is not built yet; run ./scripts/setup.sh first." >&2
    exit 1
fi

"$BUILD_DIR/server/vocle-server" --listen 127.0.0.1:8765 --data-dir "$SERVER_DATA" &
server=$!

# Prints each new sign-in code as it lands in the outbox, so nobody has to go looking for the file.
watch_outbox() {
    local outbox="$SERVER_DATA/outbox" seen="" file code to
    while kill -0 "$server" 2>/dev/null; do
        if [[ -d $outbox ]]; then
            for file in "$outbox"/*.eml; do
                [[ -e $file && " $seen " != *" $file "* ]] || continue
                seen="$seen $file"
                [[ -n ${started_watching:-} ]] || continue
                # Mail lines end in CRLF.
                to=$(tr -d '\r' < "$file" | sed -n 's/^To: *//p' | head -n 1)
                code=$(tr -d '\r' < "$file" | awk '/sign-in code is:/ {found=1; next} found && NF {print $1; exit}')
                [[ -n $code ]] && echo ">>> Sign-in code for ${to:-you}: $code"
            done
        fi
        started_watching=1
        sleep 1
    done
}
watch_outbox &
watcher=$!
trap 'kill $server $watcher 2>/dev/null || true' EXIT
for _ in $(seq 50); do
    (exec 3<>/dev/tcp/127.0.0.1/8765) 2>/dev/null && break
    sleep 0.1
done

echo "vocle-server is listening on http://127.0.0.1:8765 (data: $SERVER_DATA)."
echo "Sign-in codes are written as e-mails to $SERVER_DATA/outbox/ and shown here as they arrive."

if [[ -x $BUILD_DIR/app/vocle && ( -n ${DISPLAY:-} || -n ${WAYLAND_DISPLAY:-} ) ]]; then
    echo "Starting Vocle; quit it from its tray menu or with Ctrl+C here."
    platform=()
    # A Wayland session without XWayland: Qt must not look for an X server.
    [[ -z ${DISPLAY:-} ]] && platform=(env QT_QPA_PLATFORM=wayland)
    VOCLE_BACKEND_URL=http://127.0.0.1:8765 "${platform[@]}" "$BUILD_DIR/app/vocle"
else
    if [[ ! -x $BUILD_DIR/app/vocle ]]; then
        echo "The Vocle app is not built ($BUILD_DIR/app/vocle); run ./scripts/setup.sh first." >&2
    else
        echo "No display (neither DISPLAY nor WAYLAND_DISPLAY is set), so the Vocle app cannot open its windows here." >&2
        echo "Run this from a desktop session, or use the server with vocle-cli meanwhile." >&2
    fi
    cat <<MSG
In another terminal, try:
  $BUILD_DIR/tools/vocle-cli/vocle-cli signin you@example.com
  $BUILD_DIR/tools/vocle-cli/vocle-cli record 5 /tmp/take.wav
  $BUILD_DIR/tools/vocle-cli/vocle-cli transcribe /tmp/take.wav
Press Ctrl+C to stop the server.
MSG
    wait $server
fi
