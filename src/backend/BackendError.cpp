#include "backend/BackendError.h"

namespace vocle {

namespace {
const std::string kGeneric = "Something went wrong. Please try again.";
}

std::string BackendError::errorDescription() const {
    switch (kind) {
        case Kind::networkError:
            return "No internet connection. Check your network and try again.";
        case Kind::serverError:
            return status >= 500 ? "Our servers are having issues. Please try again in a moment." : kGeneric;
        case Kind::authenticationFailed:
            return "Please sign in again.";
        case Kind::decodingError:
        case Kind::invalidURL:
        case Kind::unknownError:
            break;
    }
    return kGeneric;
}

bool BackendError::isRetriable() const {
    switch (kind) {
        case Kind::networkError:
        case Kind::unknownError:
            return true;
        case Kind::serverError:
            return (status >= 500 && status <= 599) || status == 408 || status == 429;
        case Kind::decodingError:
        case Kind::invalidURL:
        case Kind::authenticationFailed:
            break;
    }
    return false;
}

Error BackendError::toError() const {
    return Error{"BackendError", static_cast<int>(kind), errorDescription()};
}

const char* kindName(BackendError::Kind kind) {
    switch (kind) {
        case BackendError::Kind::networkError:
            return "networkError";
        case BackendError::Kind::decodingError:
            return "decodingError";
        case BackendError::Kind::serverError:
            return "serverError";
        case BackendError::Kind::invalidURL:
            return "invalidURL";
        case BackendError::Kind::authenticationFailed:
            return "authenticationFailed";
        case BackendError::Kind::unknownError:
            return "unknownError";
    }
    return "unknownError";
}

}  // namespace vocle
