#include "platform/linux/DisplaySession.h"

namespace vocle {

namespace {
bool isSet(const Environment& env, const char* name) {
    const auto value = env.get(name);
    return value && !value->empty();
}
}  // namespace

DisplaySession detectDisplaySession(const Environment& env) {
    if (isSet(env, "WAYLAND_DISPLAY") || env.get("XDG_SESSION_TYPE") == "wayland")
        return DisplaySession::wayland;
    if (isSet(env, "DISPLAY")) return DisplaySession::x11;
    return DisplaySession::none;
}

const char* displaySessionName(DisplaySession session) {
    switch (session) {
        case DisplaySession::x11:
            return "x11";
        case DisplaySession::wayland:
            return "wayland";
        case DisplaySession::none:
            return "none";
    }
    return "none";
}

}  // namespace vocle
