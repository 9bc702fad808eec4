#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/AppConstants.h"
#include "foundation/DispatchQueue.h"
#include "foundation/VirtualMainQueue.h"
#include "modes/AutoModeManager.h"
#include "modes/RandomSource.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeWorkspace.h"

using namespace vocle;
using vocle::testing::FakeAccessibility;
using vocle::testing::FakeBrowserScripting;
using vocle::testing::FakeWorkspace;
using vocle::testing::makeApplication;

namespace {

const RunningApplication kChrome = makeApplication("com.google.Chrome", "Google Chrome", 300);

// The reads really run on worker threads in the application; the hand-back to the main queue must hold.
TEST(AutoModeManagerThreads, ReadsOnARealBackgroundQueueComeBackToTheMainQueue) {
    VirtualMainQueue queue;
    NotificationCenter center;
    FakeWorkspace workspace;
    FakeBrowserScripting scripts;
    FakeAccessibility ax;
    SystemRandomSource random;
    BackgroundQueue background(2);  // joined before the fakes its tasks use go away
    std::vector<std::string> domains;
    auto sub = center.addObserver(Notifications::autoSwitchModeForWebsite, [&](const Notification& n) {
        domains.push_back(n.string("domain").value_or(""));
    });
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0],
                    ScriptOutcome::result("https://threads.example/"));
    workspace.activate(kChrome);
    AutoModeManager manager(queue, background, center, workspace, scripts, ax, random);
    manager.start();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (domains.empty() && std::chrono::steady_clock::now() < deadline) {
        queue.runUntilIdle();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(domains, (std::vector<std::string>{"threads.example"}));
}

}  // namespace
