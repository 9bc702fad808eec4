#include "platform/wayland/WaylandVirtualKeyboard.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <chrono>

#include "foundation/Log.h"
#include "platform/wayland/WaylandConnection.h"
#include "virtual-keyboard-unstable-v1-client-protocol.h"

namespace vocle::wayland {

std::unique_ptr<WaylandVirtualKeyboard> WaylandVirtualKeyboard::create(WaylandConnection& connection) {
    if (!connection.seat()) return nullptr;
    auto* manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
        connection.bind(&zwp_virtual_keyboard_manager_v1_interface, 1));
    if (!manager) return nullptr;
    auto* keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, connection.seat());
    return std::unique_ptr<WaylandVirtualKeyboard>(new WaylandVirtualKeyboard(connection, manager, keyboard));
}

WaylandVirtualKeyboard::WaylandVirtualKeyboard(WaylandConnection& connection,
                                               zwp_virtual_keyboard_manager_v1* manager,
                                               zwp_virtual_keyboard_v1* keyboard)
    : connection_(connection), manager_(manager), keyboard_(keyboard) {}

WaylandVirtualKeyboard::~WaylandVirtualKeyboard() {
    zwp_virtual_keyboard_v1_destroy(keyboard_);
    zwp_virtual_keyboard_manager_v1_destroy(manager_);
    connection_.flush();
}

void WaylandVirtualKeyboard::keymap(const std::string& xkbText) {
    // The compositor maps the file; the size counts the terminating NUL.
    const int fd = memfd_create("vocle-keymap", MFD_CLOEXEC);
    const size_t size = xkbText.size() + 1;
    if (fd < 0 || write(fd, xkbText.c_str(), size) != static_cast<ssize_t>(size)) {
        log("❌ Virtual keyboard: cannot write the keymap");
        if (fd >= 0) close(fd);
        return;
    }
    zwp_virtual_keyboard_v1_keymap(keyboard_, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                   static_cast<uint32_t>(size));
    close(fd);
    connection_.flush();
}

uint32_t WaylandVirtualKeyboard::timestamp() const {
    using namespace std::chrono;
    return static_cast<uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void WaylandVirtualKeyboard::key(uint32_t evdevCode, bool down) {
    zwp_virtual_keyboard_v1_key(keyboard_, timestamp(), evdevCode,
                                down ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    connection_.flush();
}

void WaylandVirtualKeyboard::modifiers(uint32_t depressed) {
    zwp_virtual_keyboard_v1_modifiers(keyboard_, depressed, 0, 0, 0);
    connection_.flush();
}

}  // namespace vocle::wayland
