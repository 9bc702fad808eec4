#include "backend/SupportService.h"

#include "backend/ResponseRecords.h"
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
    return sendSupportMessage(trimmed, std::move(completion));
}

Subscription SupportService::sendSupportMessage(const std::string& message,
                                                BackendService::Completion<bool> completion) {
    auto report = [completion = std::move(completion)](Result<SuccessResponse, BackendError> result) {
        if (result.ok()) {
            completion(result.value().success);
        } else {
            completion(result.error());
        }
    };
    return backend_.request<SuccessResponse>(
        "/support/message", "POST", RequestBody::json(Json{{"message", message}}), std::move(report));
}

}  // namespace vocle
