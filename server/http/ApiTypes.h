#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Json.h"

namespace vocle::server {

// A request as the handlers see it, independent of the HTTP library; header names are lower-case.
struct ApiRequest {
    std::string method;
    std::string path;
    std::map<std::string, std::string> headers;
    std::map<std::string, std::string> query;
    std::string body;
    // Which client connection carried the request (0 when driven without sockets).
    uint64_t connection = 0;

    std::string header(const std::string& lowerName) const {
        auto it = headers.find(lowerName);
        return it == headers.end() ? std::string() : it->second;
    }
};

struct ApiResponse {
    int status = 200;
    Json body = Json::object();
    std::vector<std::pair<std::string, std::string>> headers;
    std::string userId;  // for the request log only
};

// A failure with the status and the text the client gets as {"error": text}.
class HttpError : public std::runtime_error {
  public:
    HttpError(int status, const std::string& message) : std::runtime_error(message), status(status) {}
    int status;
};

inline ApiResponse errorResponse(int status, const std::string& message) {
    ApiResponse r;
    r.status = status;
    r.body = Json{{"error", message}};
    return r;
}

}  // namespace vocle::server
