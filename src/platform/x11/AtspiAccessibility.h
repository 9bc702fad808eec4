#pragma once

#include <memory>
#include <string>

#include "platform/accessibility.h"

namespace vocle {

// The accessibility interface on AT-SPI2 (libatspi). Roles are named in the "AX…" vocabulary
// (axRoleName); the focused window is the application's ACTIVE frame.
//
// A browser window also answers with one extra first child: an "AXTextField" holding the address of the
// document it shows (Chromium: the frame's hyperlink; Firefox: the "DocURL" of its web document). The
// address bar itself is too deep in both browsers for a bounded walk and shows the address without its
// scheme; the window's own address is exact and found at once.
//
// Every call may come from any thread (reads run on background queues); they are serialized here,
// because libatspi is not thread-safe, and run with short D-Bus time-outs. libatspi's connection to the
// accessibility bus is attached to a private main context, never to the one Qt's loop runs.
class AtspiAccessibility final : public Accessibility {
  public:
    AtspiAccessibility();
    ~AtspiAccessibility() override;

    // Whether the desktop's accessibility bus is enabled (org.a11y.Status.IsEnabled on org.a11y.Bus);
    // with `prompt`, turns it on when it is off.
    bool isProcessTrusted(bool prompt) override;

    AXElement applicationElement(int processIdentifier) override;
    AXRead<AXElement> focusedWindow(const AXElement& application) override;
    AXRead<std::string> role(const AXElement& element) override;
    AXRead<std::string> stringValue(const AXElement& element) override;
    AXRead<std::vector<AXElement>> children(const AXElement& element) override;

    // The "AX…" role of an AT-SPI role (an AtspiRole value); `singleLine` tells a one-line text from a
    // text area. Unmapped roles are "AXUnknown".
    static std::string axRoleName(int atspiRole, bool singleLine);

    // Children fetched per element at most: the reader looks at 20, and every child is a round trip.
    static constexpr int kMaxChildren = 64;

  private:
    bool ensureConnected();
};

}  // namespace vocle
