#pragma once

#include <string>

#include "backend/BackendService.h"

namespace vocle {

// The help screen's contact form: trims the message and sends it through the backend client.
class SupportService {
  public:
    explicit SupportService(BackendService& backend) : backend_(backend) {}

    // A message that is empty after trimming fails with serverError(400, "Message cannot be empty")
    // without a request, so callers have a single error path.
    [[nodiscard]] Subscription sendMessage(const std::string& message,
                                           BackendService::Completion<bool> completion);

  private:
    BackendService& backend_;
};

}  // namespace vocle
