#pragma once

#include <cstdint>
#include <string>

namespace vocle::server {

// A complete request as the event loop read it, on its way to a worker.
struct PendingRequest {
    uint64_t connection = 0;
    std::string bytes;
    bool closeAfter = false;  // the client has already half-closed
    std::string clientAddress;
    int clientPort = 0;
    std::string localAddress;
    int localPort = 0;
};

// A worker's answer on its way back to the event loop.
struct FinishedRequest {
    uint64_t connection = 0;
    std::string response;  // empty: close without answering
    bool close = false;
    bool clientAskedToClose = false;  // the request said "Connection: close"
};

// The {"error"} text of answers given without a handler.
inline std::string statusMessage(int status) {
    switch (status) {
        case 400:
            return "Bad request";
        case 404:
            return "Not found";
        case 405:
            return "Method not allowed";
        case 413:
            return "Request body too large";
        case 414:
            return "Request URI too long";
        default:
            return status >= 500 ? "Internal server error" : "Request failed";
    }
}

}  // namespace vocle::server
