// On headless Plasma the real app shows remote input as a step of the Home checklist; pressing the step asks
// the RemoteDesktop portal (Plasma 5.27 grants a keyboard without a dialog) and the step is ticked.
#include <gtest/gtest.h>

#include "ScreenReader.h"
#include "support/desktop/DesktopHarness.h"

using namespace vocle::testing;
using namespace std::chrono_literals;

namespace {

TEST(RemoteInputChecklist, OnPlasmaTheHomeStepAsksThePortalAndIsTickedOnceGranted) {
    DesktopHarness desktop(DesktopSession::Server::kde);
    desktop.enableAccessibility();
    desktop.signIn("checklist@example.com");
    ScreenReader reader("Vocle", desktop.environment());
    desktop.startVocle();
    auto see = [&](const std::string& name, const std::string& role) {
        auto found = reader.waitFor(name, role, 20s);
        if (!found) throw std::runtime_error("no " + role + " \"" + name + "\":\n" + reader.dump());
        return *found;
    };
    // "{completed} of 7 complete": the remote-input step is the seventh.
    auto completed = [&]() -> int {
        for (const auto& w : reader.widgets())
            if (w.role == "label" && w.name.find(" of 7 complete") != std::string::npos)
                return std::stoi(w.name);
        return -1;
    };
    const auto row = see("Grant remote input permission", "label");
    ASSERT_TRUE(waitFor([&] { return completed() >= 0; }, 10s)) << reader.dump();
    const int before = completed();
    EXPECT_NE(desktop.vocleLog().find("Desktop session: wayland ("), std::string::npos) << desktop.vocleLog();
    EXPECT_EQ(desktop.vocleLog().find("Remote input: keyboard granted"), std::string::npos)
        << "granted before anyone asked:\n"
        << desktop.vocleLog();
    const size_t from = desktop.logSize();
    desktop.click(row.centerX(), row.centerY());
    ASSERT_TRUE(desktop.waitForLog("✅ Remote input: keyboard granted", 20s, from))
        << desktop.vocleLog().substr(from) << reader.dump();
    EXPECT_TRUE(waitFor([&] { return completed() == before + 1; }, 10s)) << before << "\n" << reader.dump();
}

}  // namespace
