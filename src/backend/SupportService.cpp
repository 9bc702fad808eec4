#include "backend/SupportService.h"

#include "foundation/Text.h"

namespace vocle {

Subscription SupportService::sendMessage(const std::string& message,
                                         BackendService::Completion<bool> completion) {
    const std::string trimmed = trimWhitespace(message);
    if (trimmed.empty()) {
        // Same delivery as every backend outcome: later, on the main queue.
        return backend_.deliverError<bool>(BackendError::server(400, "Message cannot be empty"),
                                           std::move(completion));
    }
    return backend_.sendSupportMessage(trimmed, std::move(completion));
}

}  // namespace vocle
