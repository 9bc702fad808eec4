#!/usr/bin/env bash
# Installs what Vocle needs on Debian 12 and builds it into build/. Safe to run again.
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
    # toolchain and tests
    build-essential cmake ninja-build pkg-config git clang libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    # libraries
    nlohmann-json3-dev libcurl4-openssl-dev libcpp-httplib-dev libssl-dev libsqlite3-dev
    libpulse-dev libsndfile1-dev libavcodec-dev libavformat-dev libavutil-dev libswresample-dev
    libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us
    # services and tools the tests and the local run use (the sound tests run on PulseAudio and on PipeWire)
    pulseaudio pulseaudio-utils ffmpeg sox pocketsphinx pocketsphinx-testdata xvfb ccache
    pipewire pipewire-pulse wireplumber
    # the desktop: Qt 6, X11 with XTest and XInput2, AT-SPI, the session bus
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-qpa-plugins libgl-dev
    libx11-dev libxtst-dev libxi-dev libxfixes-dev libatspi2.0-dev libdbus-1-dev
    at-spi2-core dbus dbus-x11 openbox xterm xdotool x11-utils xclip imagemagick fonts-dejavu-core
    desktop-file-utils xdg-utils librsvg2-bin curl
    # Wayland: the client library and its scanner, xkbcommon, and a headless sway session with foot,
    # XWayland, Qt's Wayland platform, wl-clipboard, wtype and grim for the tests
    libwayland-dev libwayland-bin libxkbcommon-dev sway foot xwayland qt6-wayland wl-clipboard wtype grim
    x11-xserver-utils
    # a headless KDE Plasma session for the portal tests: KWin (kglobalaccel inside), the desktop portals with
    # the KDE backend, Qt 5's Wayland platform, which that backend needs, and Breeze title bars for screenshots
    kwin-wayland kwin-style-breeze xdg-desktop-portal xdg-desktop-portal-kde qtwayland5
    # a headless GNOME session: mutter, the desktop portal with its GNOME backend, the media-keys settings
    # schema for custom shortcuts, wayland-info to read the compositor's globals, GStreamer's PipeWire source for
    # screenshots of mutter's screen cast
    mutter xdg-desktop-portal-gnome gnome-settings-daemon-common wayland-utils
    gstreamer1.0-pipewire gstreamer1.0-tools
    # a notification daemon for the desktop-notice tests
    dunst
    # GSettings for GNOME's custom keyboard shortcuts: GIO and the gsettings tool (the schema: above)
    libglib2.0-dev libglib2.0-bin
    # desktop tests: a real browser for the address-bar path, speech for dictation
    chromium espeak-ng
    # a GTK window beside the Qt ones for the accessibility-bus tests
    zenity
    # the server's PostgreSQL store and its tests
    libpq-dev postgresql
)

missing=()
for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    SUDO=""
    [[ $EUID -ne 0 ]] && SUDO="sudo"
    echo "Installing: ${missing[*]}"
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

BUILD_DIR=${VOCLE_BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"
echo "Built into $BUILD_DIR/"
