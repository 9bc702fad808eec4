#!/usr/bin/env bash
# Starts the local backend on 127.0.0.1:8765 (data under $XDG_DATA_HOME/vocle-server) and, once the
# desktop app exists, the app against it. Until then it leaves the server in the foreground.
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
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 50); do
    (exec 3<>/dev/tcp/127.0.0.1/8765) 2>/dev/null && break
    sleep 0.1
done

if [[ -x $BUILD_DIR/app/vocle ]]; then
    VOCLE_BACKEND_URL=http://127.0.0.1:8765 "$BUILD_DIR/app/vocle"
else
    cat <<MSG
vocle-server is listening on http://127.0.0.1:8765 (data: $SERVER_DATA).
Sign-in codes are written to $SERVER_DATA/outbox/.
In another terminal, try:
  $BUILD_DIR/tools/vocle-cli/vocle-cli signin you@example.com
  $BUILD_DIR/tools/vocle-cli/vocle-cli record 5 /tmp/take.wav
  $BUILD_DIR/tools/vocle-cli/vocle-cli transcribe /tmp/take.wav
Press Ctrl+C to stop the server.
MSG
    wait $server
fi
