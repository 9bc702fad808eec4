#pragma once

#include <memory>

#include "foundation/MainQueue.h"
#include "platform/x11/QtLocalKeyMonitor.h"
#include "platform/x11/QtPasteboard.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/XInputKeyMonitor.h"
#include "platform/x11/XTestSyntheticKeys.h"

namespace vocle::x11 {

// The keyboard and clipboard services of one X11 session, wired together: the hot keys and the global
// monitor share the list of grabbed combinations, so a press is reported once. Build on the GUI thread
// after the QGuiApplication; hand the members to ShortcutManager and ClipboardManager.
struct X11KeyServices {
    explicit X11KeyServices(MainQueue& mainQueue)
        : hotKeys(mainQueue, grabbed), globalMonitor(mainQueue, grabbed) {}

    std::shared_ptr<GrabbedCombinations> grabbed = std::make_shared<GrabbedCombinations>();
    X11HotKeys hotKeys;
    XInputKeyMonitor globalMonitor;
    QtLocalKeyMonitor localMonitor;
    XTestSyntheticKeys syntheticKeys;
    QtPasteboard pasteboard;
};

}  // namespace vocle::x11
