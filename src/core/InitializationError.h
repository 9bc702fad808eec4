#pragma once

#include <string>
#include <optional>

namespace vocle {

// Start-up failures shown on the loading overlay.
class InitializationError {
public:
    static InitializationError networkError(std::string message) { return InitializationError(std::move(message)); }
    static InitializationError noTemplates() { return InitializationError(); }

    bool isNoTemplates() const { return !message_; }
    std::string description() const {
        return message_ ? "Network error: " + *message_ : "Failed to load mode types from server";
    }

private:
    InitializationError() = default;
    explicit InitializationError(std::string message) : message_(std::move(message)) {}
    std::optional<std::string> message_;
};

}  // namespace vocle
