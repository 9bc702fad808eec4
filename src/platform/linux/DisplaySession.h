#pragma once

#include "foundation/Environment.h"

namespace vocle {

enum class DisplaySession { x11, wayland, none };

// The kind of graphical session this process runs in, read once at start: a Wayland compositor when
// WAYLAND_DISPLAY is set or XDG_SESSION_TYPE says "wayland", else X11 when DISPLAY is set.
DisplaySession detectDisplaySession(const Environment& env);

const char* displaySessionName(DisplaySession session);

}  // namespace vocle
