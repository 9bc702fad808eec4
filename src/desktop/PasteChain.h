#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/events.h"

namespace vocle {

// How a paste reaches the focused window on a Wayland desktop, in the order tried.
enum class PasteRoute { virtualKeyboard, xtest, clipboardOnly };

struct PasteOffers {
    bool virtualKeyboard = false;  // the compositor offers the virtual-keyboard protocol
    bool xtest = false;            // an XWayland display with XTest is reachable
    bool xwaylandFocused = false;  // the focused window is an XWayland (X11) window
};

// The first route the desktop offers: the virtual keyboard reaches every window, XWayland's included;
// XTest reaches only X11 windows; otherwise the text waits on the clipboard.
PasteRoute choosePasteRoute(const PasteOffers& offers);
const char* pasteRouteName(PasteRoute route);

// Synthetic keys over whichever route choosePasteRoute picks. The route is chosen in canDeliver(),
// which the clipboard manager asks once before each paste, and holds for that paste's keys; a change
// of route is logged.
class PasteChain final : public SyntheticKeys {
  public:
    // Either key path may be null (not offered). `xwaylandFocused` tells whether an X11 window has the
    // focus; `focusedAppId` names the focused native window (for the terminal rule).
    PasteChain(SyntheticKeys* virtualKeyboard, SyntheticKeys* xtest, std::function<bool()> xwaylandFocused,
               std::function<std::optional<std::string>()> focusedAppId);

    void postKey(uint16_t keyCode, bool down) override;
    uint64_t heldModifiers() override;
    bool nonModifierKeyHeld() override;
    void releaseHeldModifiers() override;
    std::optional<std::string> focusedWindowClass() override;
    bool canDeliver() override;

    PasteRoute route() const { return route_; }

  private:
    SyntheticKeys* current() const;

    SyntheticKeys* virtualKeyboard_;
    SyntheticKeys* xtest_;
    std::function<bool()> xwaylandFocused_;
    std::function<std::optional<std::string>()> focusedAppId_;
    PasteRoute route_ = PasteRoute::clipboardOnly;
    std::optional<PasteRoute> logged_;
};

}  // namespace vocle
