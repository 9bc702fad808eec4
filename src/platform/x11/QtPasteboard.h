#pragma once

#include "platform/events.h"

namespace vocle::x11 {

// The CLIPBOARD selection through Qt: the application owns it and serves it to other clients from its
// event loop, so the text stays pasteable after the window that was in front closes. GUI thread only.
class QtPasteboard final : public Pasteboard {
  public:
    void clearContents() override;
    void setString(const std::string& text) override;
    std::optional<std::string> string() const override;
};

}  // namespace vocle::x11
