#include "desktop/PasteChain.h"

#include "foundation/Log.h"

namespace vocle {

PasteRoute choosePasteRoute(const PasteOffers& offers) {
    if (offers.virtualKeyboard) return PasteRoute::virtualKeyboard;
    if (offers.remoteDesktop) return PasteRoute::remoteDesktop;
    if (offers.xtest && offers.xwaylandFocused) return PasteRoute::xtest;
    return PasteRoute::clipboardOnly;
}

const char* pasteRouteName(PasteRoute route) {
    switch (route) {
        case PasteRoute::virtualKeyboard:
            return "virtual keyboard";
        case PasteRoute::remoteDesktop:
            return "RemoteDesktop portal";
        case PasteRoute::xtest:
            return "XTest";
        case PasteRoute::clipboardOnly:
            return "clipboard only";
    }
    return "?";
}

PasteChain::PasteChain(SyntheticKeys* virtualKeyboard, SyntheticKeys* xtest,
                       std::function<bool()> xwaylandFocused,
                       std::function<std::optional<std::string>()> focusedAppId)
    : virtualKeyboard_(virtualKeyboard),
      xtest_(xtest),
      xwaylandFocused_(std::move(xwaylandFocused)),
      focusedAppId_(std::move(focusedAppId)) {}

void PasteChain::setRemoteDesktop(SyntheticKeys* keys, RemoteInput* grant) {
    remoteKeys_ = keys;
    remoteGrant_ = grant;
}

bool PasteChain::canDeliver() {
    PasteOffers offers;
    offers.virtualKeyboard = virtualKeyboard_ != nullptr;
    offers.xtest = xtest_ != nullptr;
    offers.remoteDesktop = !offers.virtualKeyboard && remoteKeys_ && remoteGrant_ &&
                           remoteGrant_->state() == RemoteInputState::granted;
    // Asked only when it matters: the X server round trip is not free.
    offers.xwaylandFocused = !offers.virtualKeyboard && !offers.remoteDesktop && offers.xtest &&
                             xwaylandFocused_ && xwaylandFocused_();
    route_ = choosePasteRoute(offers);
    if (logged_ != route_) {
        log("Paste path: ", pasteRouteName(route_));
        logged_ = route_;
    }
    if (route_ == PasteRoute::clipboardOnly && remoteKeys_ && remoteGrant_ &&
        remoteGrant_->state() == RemoteInputState::notGranted) {
        // The desktop's dialog comes up now; the paste waits for its answer (deliveryPending).
        log("Remote input: asking the desktop for keyboard access");
        remoteGrant_->request();
    }
    return route_ != PasteRoute::clipboardOnly;
}

bool PasteChain::deliveryPending() {
    return route_ == PasteRoute::clipboardOnly && remoteKeys_ && remoteGrant_ &&
           remoteGrant_->state() == RemoteInputState::asking;
}

SyntheticKeys* PasteChain::current() const {
    switch (route_) {
        case PasteRoute::virtualKeyboard:
            return virtualKeyboard_;
        case PasteRoute::remoteDesktop:
            return remoteKeys_;
        case PasteRoute::xtest:
            return xtest_;
        case PasteRoute::clipboardOnly:
            return nullptr;
    }
    return nullptr;
}

void PasteChain::postKey(uint16_t keyCode, bool down) {
    if (auto* keys = current()) keys->postKey(keyCode, down);
}

bool PasteChain::nonModifierKeyHeld() {
    return xtest_ && route_ != PasteRoute::virtualKeyboard && xtest_->nonModifierKeyHeld();
}

uint64_t PasteChain::heldModifiers() {
    // Only the X server can tell which keys are down, and only while one of its windows has the focus;
    // the virtual keyboard's modifiers are its own, so nothing the user holds leaks into its chord. The
    // portal's keys join the user's on the desktop's seat but cannot read it: XWayland is asked then.
    return xtest_ && route_ != PasteRoute::virtualKeyboard ? xtest_->heldModifiers() : 0;
}

Seconds PasteChain::clipboardSettleTime() {
    auto* keys = current();
    return keys ? keys->clipboardSettleTime() : Seconds(0);
}

void PasteChain::releaseHeldModifiers() {
    if (auto* keys = current()) keys->releaseHeldModifiers();
}

std::optional<std::string> PasteChain::focusedWindowClass() {
    if (route_ == PasteRoute::xtest) return xtest_->focusedWindowClass();
    auto appId = focusedAppId_ ? focusedAppId_() : std::nullopt;
    // The portal's keys reach X11 windows too; their class comes from XWayland.
    if (!appId && route_ == PasteRoute::remoteDesktop && xtest_ && xwaylandFocused_ && xwaylandFocused_())
        return xtest_->focusedWindowClass();
    return appId;
}

}  // namespace vocle
