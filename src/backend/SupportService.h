#pragma once

#include <string>

#include "backend/BackendService.h"

namespace vocle {

// The help screen's contact form: POST "/support/message" through the backend's request machinery.
class SupportService {
  public:
    explicit SupportService(BackendService& backend) : backend_(backend) {}

    // A message that is empty after trimming fails with serverError(400, "Message cannot be empty")
    // without a request, so callers have a single error path.
    [[nodiscard]] Subscription sendMessage(const std::string& message,
                                           BackendService::Completion<bool> completion);
    // The request itself (no emptiness check, no token needed); delivers the "success" member.
    [[nodiscard]] Subscription sendSupportMessage(const std::string& message,
                                                  BackendService::Completion<bool> completion);

  private:
    BackendService& backend_;
};

}  // namespace vocle
