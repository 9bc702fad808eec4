#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/MainQueue.h"
#include "foundation/Signal.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/FocusedApplicationTracker.h"
#include "platform/workspace.h"

namespace vocle {

// The frontmost application as the accessibility bus (AT-SPI2) sees it: window activations and focus
// changes name the process they come from, which is named through DesktopEntryIndex. Works on any
// desktop, whether or not its compositor lists its windows; applications that do not publish their
// widgets (accessibility off, some toolkits) stay unseen. libatspi blocks, so a thread of its own
// listens; activations are delivered on the main queue.
class AtspiWorkspace final : public Workspace {
  public:
    // Starts listening at once; our own process (`ownProcess`) is never reported.
    AtspiWorkspace(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index, int ownProcess);
    ~AtspiWorkspace() override;

    std::optional<RunningApplication> frontmostApplication() const override;
    // The applications on the accessibility bus.
    std::vector<RunningApplication> runningApplications() const override;
    // Told only when a different application comes to the front.
    Subscription observeActivations(ActivationHandler handler) override;

    // True once the listener has reached the bus and looked at the applications already there.
    bool isListening() const;

    // How often the listener looks for applications that joined the bus or ended.
    static constexpr int kDesktopCheckMs = 2000;
    // After the application in front lost its window's activation and no other told of gaining it, the
    // windows are asked which one is active (some toolkits announce only their first activation).
    static constexpr int kActiveWindowProbeMs = 150;

  private:
    struct Pending;
    struct Seen {
        int processId = 0;
        std::string name;
        bool active = false;
    };
    struct DesktopChanges {
        std::vector<Seen> joined;
        std::vector<int> left;
    };
    void listen();
    // Applications that joined or left the bus since the last look. Call with atspi::lock().
    DesktopChanges lookAtDesktop(bool always);
    // The application whose window is active, if one is. Call with atspi::lock().
    std::optional<Seen> findActiveApplication();
    void wake();

    MainQueue& main_;
    std::shared_ptr<const DesktopEntryIndex> index_;
    mutable std::mutex mutex_;
    FocusedApplicationTracker tracker_;
    bool listening_ = false;
    Signal<std::optional<RunningApplication>> activations_;
    std::shared_ptr<Pending> pending_;
    // The listener's own: the applications on the bus by bus name, with their processes.
    std::map<std::string, int> buses_;
    int lastDesktopCount_ = -1;
    int wakeFd_ = -1;
    std::thread listener_;
};

}  // namespace vocle
