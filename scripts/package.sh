#!/usr/bin/env bash
# Builds the Debian package from build/, installs it with apt-get and starts each installed program once.
# Needs root (or sudo) for the install; run after ./scripts/setup.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${VOCLE_BUILD_DIR:-build}
SUDO=""
[[ $EUID -ne 0 ]] && SUDO="sudo"

# The package installs under /usr; only the files that embed the prefix rebuild.
cmake -S . -B "$BUILD_DIR" -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)" >/dev/null
(cd "$BUILD_DIR" && cpack -G DEB >/dev/null)
deb=$(ls -t "$BUILD_DIR"/vocle_*.deb | head -n1)
echo "Built $deb"
dpkg-deb --contents "$deb" | awk '{print $6}' | grep -E 'bin/|\.desktop$|systemd|icons/hicolor|vocle-server/web|sounds/' || true
$SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "./$deb" >/dev/null
echo "Installed $(dpkg-query -W -f='${Package} ${Version}' vocle)"

work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT

/usr/bin/vocle-cli --help >/dev/null
/usr/bin/vocle-server --help >/dev/null
/usr/bin/vocle-server --listen 127.0.0.1:8799 --data-dir "$work/server" >"$work/server.log" 2>&1 &
for _ in $(seq 100); do
    (exec 3<>/dev/tcp/127.0.0.1/8799) 2>/dev/null && break
    sleep 0.1
done
grep -q "listening on 127.0.0.1:8799" "$work/server.log" || { cat "$work/server.log"; exit 1; }
curl -fsS http://127.0.0.1:8799/appcast.xml | grep -q "<rss" || { echo "the installed server does not serve /appcast.xml" >&2; exit 1; }
curl -fsS http://127.0.0.1:8799/docs | grep -qi "<html" || { echo "the installed server does not serve /docs" >&2; exit 1; }
echo "vocle-server from the package listens and serves /appcast.xml and /docs"

if [[ -x /usr/bin/vocle ]]; then
    desktop-file-validate /usr/share/applications/vocle.desktop
    XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" VOCLE_BACKEND_URL=http://127.0.0.1:8799 \
        timeout 20 xvfb-run -a -s "-screen 0 1280x800x24" /usr/bin/vocle >"$work/vocle.log" 2>&1 &
    app=$!
    for _ in $(seq 150); do
        grep -q "AppState: User needs to sign in first" "$work/vocle.log" && break
        sleep 0.1
    done
    grep -q "AppState: User needs to sign in first" "$work/vocle.log" || { cat "$work/vocle.log"; exit 1; }
    kill "$app" 2>/dev/null || true
    echo "vocle from the package starts and asks for sign-in"
fi
