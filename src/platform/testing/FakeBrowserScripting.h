#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "platform/workspace.h"

namespace vocle::testing {

// Scripted browser scripting: each source answers with the outcomes queued for it, in order; a
// source with nothing queued answers with the default outcome (a "not running"-free error).
class FakeBrowserScripting final : public BrowserScripting {
  public:
    bool isAvailable() const override;
    ScriptOutcome execute(const std::string& source) override;

    void setAvailable(bool available);
    void enqueue(const std::string& source, ScriptOutcome outcome);
    void setDefaultOutcome(ScriptOutcome outcome);
    std::vector<std::string> executed() const;

  private:
    mutable std::mutex mutex_;
    bool available_ = true;
    std::map<std::string, std::deque<ScriptOutcome>> queued_;
    ScriptOutcome default_ = ScriptOutcome::failure(-1728, std::string("Can't get window 1."));
    std::vector<std::string> executed_;
};

}  // namespace vocle::testing
