#pragma once

#include "platform/workspace.h"

namespace vocle {

// Linux browsers take no scripts that name their active tab; the address comes from accessibility.
class NoBrowserScripting final : public BrowserScripting {
  public:
    bool isAvailable() const override { return false; }
    ScriptOutcome execute(const std::string& source) override;
};

}  // namespace vocle
