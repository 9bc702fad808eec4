find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3 REQUIRED)
find_package(GTest REQUIRED)
find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswresample)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
# No imported target: Debian's sphinxbase.pc names an include folder that does not exist.
pkg_check_modules(POCKETSPHINX pocketsphinx sphinxbase)

# The desktop: Qt 6 (app, ui, and the Qt-backed platform services), X11 with XTest and XInput2, AT-SPI.
find_package(Qt6 REQUIRED COMPONENTS Core Gui Widgets DBus Svg Test)
pkg_check_modules(X11 REQUIRED IMPORTED_TARGET x11 xtst xi xfixes)
pkg_check_modules(ATSPI REQUIRED IMPORTED_TARGET atspi-2 gobject-2.0)
# vocle-cli talks to the running app over the session bus without Qt.
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
# GSettings: GNOME's custom keyboard shortcuts.
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0)
# The server's PostgreSQL store (and the request fuzzer, which compiles the store in).
pkg_check_modules(LIBPQ REQUIRED IMPORTED_TARGET libpq)
# Wayland: the client library, its scanner for the protocol glue, and xkbcommon (the keymap's tests).
pkg_check_modules(WAYLAND REQUIRED IMPORTED_TARGET wayland-client)
pkg_check_modules(XKBCOMMON REQUIRED IMPORTED_TARGET xkbcommon)
find_program(WAYLAND_SCANNER wayland-scanner REQUIRED)
