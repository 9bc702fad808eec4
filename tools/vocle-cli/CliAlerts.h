#pragma once

#include <iosfwd>

#include "foundation/MainQueue.h"
#include "platform/alerts.h"

namespace vocle::cli {

// Alerts for a terminal: the title and text go to standard error and the first button is the answer,
// delivered on the main queue as a dismissed dialog would be.
class CliAlerts final : public Alerts {
  public:
    CliAlerts(std::ostream& err, MainQueue& mainQueue) : err_(err), mainQueue_(mainQueue) {}
    void show(const AlertRequest& request, std::function<void(int response)> onResponse) override;

  private:
    std::ostream& err_;
    MainQueue& mainQueue_;
};

}  // namespace vocle::cli
