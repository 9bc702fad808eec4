#include <gtest/gtest.h>

#include "platform/linux/DisplaySession.h"
#include "platform/wayland/WaylandDesktop.h"

using namespace vocle;
using namespace vocle::wayland;

namespace {

using Vars = std::map<std::string, std::string>;

TEST(SessionDetectionTest, WaylandWinsOverTheXWaylandDisplayAndEmptyValuesCountAsUnset) {
    EXPECT_EQ(detectDisplaySession(MapEnvironment(Vars{{"WAYLAND_DISPLAY", "wayland-1"}, {"DISPLAY", ":0"}})),
              DisplaySession::wayland);
    EXPECT_EQ(detectDisplaySession(MapEnvironment(Vars{{"XDG_SESSION_TYPE", "wayland"}})),
              DisplaySession::wayland);
    EXPECT_EQ(detectDisplaySession(MapEnvironment(Vars{{"WAYLAND_DISPLAY", ""}, {"DISPLAY", ":1"}})),
              DisplaySession::x11);
    EXPECT_EQ(detectDisplaySession(MapEnvironment(Vars{{"XDG_SESSION_TYPE", "x11"}, {"DISPLAY", ":1"}})),
              DisplaySession::x11);
    EXPECT_EQ(detectDisplaySession(MapEnvironment(Vars{{"XDG_SESSION_TYPE", "tty"}})), DisplaySession::none);
}

TEST(SessionDetectionTest, TheStartUpLineNamesOnlyTheProtocolsWeUseInAFixedOrder) {
    const std::vector<WaylandGlobal> globals = {{1, "wl_compositor", 5},
                                                {2, "zwlr_foreign_toplevel_manager_v1", 3},
                                                {3, "zwp_virtual_keyboard_manager_v1", 1},
                                                {4, "zwlr_data_control_manager_v1", 2},
                                                {5, "xdg_wm_base", 4}};
    EXPECT_EQ(usableProtocols(globals),
              (std::vector<std::string>{"virtual keyboard", "data control", "foreign toplevel"}));
    EXPECT_TRUE(usableProtocols({{1, "wl_seat", 7}}).empty());
}

}  // namespace
