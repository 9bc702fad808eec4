#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "foundation/MainQueue.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/workspace.h"

typedef struct _XDisplay Display;

namespace vocle {

// The frontmost application on an X11 desktop with an EWMH window manager: `_NET_ACTIVE_WINDOW`, named by
// its desktop-file id (DesktopEntryIndex over `_GTK_APPLICATION_ID` and `WM_CLASS`), with its process
// from `_NET_WM_PID`. A watcher thread on its own connection follows PropertyNotify on the root window
// and posts activations to the main queue; queries use a second connection.
class X11Workspace final : public Workspace {
  public:
    // Null (and a log line) when the display cannot be opened. `displayName` empty: $DISPLAY.
    static std::unique_ptr<X11Workspace> open(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index,
                                              const std::string& displayName = {});
    ~X11Workspace() override;

    std::optional<RunningApplication> frontmostApplication() const override;
    // One entry per application process among `_NET_CLIENT_LIST`, in the list's order.
    std::vector<RunningApplication> runningApplications() const override;
    // Told only when a different application (id or process) comes to the front.
    Subscription observeActivations(ActivationHandler handler) override;

  private:
    struct Handlers;
    X11Workspace(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index, Display* query, Display* watch);
    void watch();

    MainQueue& main_;
    std::shared_ptr<const DesktopEntryIndex> index_;
    mutable std::mutex queryMutex_;
    Display* query_;
    Display* watch_;
    int wakeFd_ = -1;
    std::shared_ptr<Handlers> handlers_;
    // The application last told to observers; only the watcher thread touches it after construction.
    std::optional<RunningApplication> lastActive_;
    std::thread watcher_;
};

}  // namespace vocle
