#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/events.h"

namespace vocle::testing {

// Records synthetic key events; the test says which modifiers the user holds and which window is in
// front.
class FakeSyntheticKeys final : public SyntheticKeys {
  public:
    struct Posted {
        uint16_t keyCode;
        bool down;
        friend bool operator==(const Posted&, const Posted&) = default;
    };

    void postKey(uint16_t keyCode, bool down) override { posted.push_back({keyCode, down}); }
    uint64_t heldModifiers() override {
        ++heldModifierQueries;
        return held;
    }
    void releaseHeldModifiers() override {
        ++releaseCalls;
        held = 0;
    }
    std::optional<std::string> focusedWindowClass() override { return windowClass; }
    bool nonModifierKeyHeld() override { return otherKeyHeld; }

    uint64_t held = 0;
    bool otherKeyHeld = false;
    std::optional<std::string> windowClass;
    std::vector<Posted> posted;
    int releaseCalls = 0;
    int heldModifierQueries = 0;
};

// An in-memory clipboard.
class FakePasteboard final : public Pasteboard {
  public:
    void clearContents() override {
        ++clearCount;
        text_.reset();
    }
    void setString(const std::string& text) override { text_ = text; }
    std::optional<std::string> string() const override { return text_; }
    int clearCount = 0;

  private:
    std::optional<std::string> text_;
};

}  // namespace vocle::testing
