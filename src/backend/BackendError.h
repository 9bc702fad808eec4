#pragma once

#include <string>
#include <utility>

#include "foundation/Error.h"

namespace vocle {

// Every backend operation ends in exactly one value or one of these.
struct BackendError {
    enum class Kind {
        networkError,
        decodingError,
        serverError,
        invalidURL,
        authenticationFailed,
        unknownError
    };

    Kind kind = Kind::unknownError;
    int status = 0;          // serverError only
    std::string message;     // serverError: the server's message
    std::string underlying;  // networkError / decodingError: what the transport or decoder said

    static BackendError network(std::string underlying) {
        return {Kind::networkError, 0, {}, std::move(underlying)};
    }
    static BackendError decoding(std::string underlying) {
        return {Kind::decodingError, 0, {}, std::move(underlying)};
    }
    static BackendError server(int status, std::string message) {
        return {Kind::serverError, status, std::move(message), {}};
    }
    static BackendError invalidURL() { return {Kind::invalidURL, 0, {}, {}}; }
    static BackendError authenticationFailed() { return {Kind::authenticationFailed, 0, {}, {}}; }
    static BackendError unknown() { return {Kind::unknownError, 0, {}, {}}; }

    // The text the user sees, and the one the retry log prints.
    std::string errorDescription() const;
    // Transport failures, non-HTTP answers, 408, 429 and 5xx may succeed on another attempt.
    bool isRetriable() const;
    // For interfaces that speak `Error`: domain "BackendError", code = the case's position (0 to 5),
    // description = errorDescription().
    Error toError() const;

    friend bool operator==(const BackendError&, const BackendError&) = default;
};

const char* kindName(BackendError::Kind kind);

// The former name of a backend operation's result, kept for code written against it.
template <class T>
using BackendResult = Result<T, BackendError>;

}  // namespace vocle
