#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/events.h"
#include "platform/remote_input.h"

namespace vocle {

// How a paste reaches the focused window on a Wayland desktop, in the order tried.
enum class PasteRoute { virtualKeyboard, remoteDesktop, xtest, clipboardOnly };

struct PasteOffers {
    bool virtualKeyboard = false;  // the compositor offers the virtual-keyboard protocol
    bool xtest = false;            // an XWayland display with XTest is reachable
    bool xwaylandFocused = false;  // the focused window is an XWayland (X11) window
    bool remoteDesktop = false;    // the desktop granted us a keyboard through its RemoteDesktop portal
};

// The first route the desktop offers: the virtual keyboard (wlroots) and the RemoteDesktop portal (GNOME,
// KDE Plasma) reach every window, XWayland's included; XTest reaches only X11 windows; otherwise the text
// waits on the clipboard.
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
    bool deliveryPending() override;
    Seconds clipboardSettleTime() override;

    // The desktop's keyboard grant and the keys sent through it. Where neither the virtual keyboard nor
    // XTest can serve a paste and the user was never asked, that paste asks for the grant (the text
    // waits on the clipboard meanwhile); a refused or revoked grant is asked again only by the user.
    void setRemoteDesktop(SyntheticKeys* keys, RemoteInput* grant);

    PasteRoute route() const { return route_; }

  private:
    SyntheticKeys* current() const;

    SyntheticKeys* virtualKeyboard_;
    SyntheticKeys* xtest_;
    SyntheticKeys* remoteKeys_ = nullptr;
    RemoteInput* remoteGrant_ = nullptr;
    std::function<bool()> xwaylandFocused_;
    std::function<std::optional<std::string>()> focusedAppId_;
    PasteRoute route_ = PasteRoute::clipboardOnly;
    std::optional<PasteRoute> logged_;
};

}  // namespace vocle
