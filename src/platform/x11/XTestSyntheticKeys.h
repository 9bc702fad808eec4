#pragma once

#include "platform/events.h"
#include "platform/x11/KeysymTable.h"

namespace vocle::x11 {

// Synthetic key presses through the XTest extension on a private connection; the server delivers them
// to the focused window as if typed. Main thread only.
class XTestSyntheticKeys final : public SyntheticKeys {
  public:
    XTestSyntheticKeys();
    ~XTestSyntheticKeys() override;
    XTestSyntheticKeys(const XTestSyntheticKeys&) = delete;
    XTestSyntheticKeys& operator=(const XTestSyntheticKeys&) = delete;

    // False without an X server or without XTest.
    bool isAvailable() const { return display_ && hasXTest_; }

    void postKey(uint16_t keyCode, bool down) override;
    uint64_t heldModifiers() override;
    void releaseHeldModifiers() override;
    bool nonModifierKeyHeld() override;
    std::optional<std::string> focusedWindowClass() override;

  private:
    Display* display_ = nullptr;
    bool hasXTest_ = false;
};

}  // namespace vocle::x11
