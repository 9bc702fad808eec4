#pragma once

#include <string>

namespace vocle::server {

// The listening socket of vocle-server.
//
// A crashed server leaves its connections in TIME-WAIT for up to a minute. Binding with SO_REUSEADDR
// lets a restart take the port at once, but without SO_REUSEPORT, so a second live server can never
// share the port and silently take half of the requests; a live listener is told apart from
// leftovers by whether a connection to it succeeds.
class ListenSocket {
  public:
    // Whether a server accepts connections on host:port now.
    static bool hasLiveListener(const std::string& host, int port);
    // Options for a listening socket that is about to be bound.
    static void applyOptions(int fd);
    // Binds and listens (SOMAXCONN backlog, non-blocking); port 0 picks a free one. Returns the
    // descriptor and sets `boundPort`. Throws std::runtime_error with the reason.
    static int open(const std::string& host, int port, int& boundPort);
    static std::string portInUseMessage(const std::string& host, int port);
};

}  // namespace vocle::server
