#pragma once

#include <memory>

#include "http/ApiHandlers.h"
#include "http/HttpExchange.h"

namespace vocle::server {

// cpp-httplib's parsing and routing, driven with requests the event loop has already read in full:
// the library answers malformed requests and its own 404/413 itself, in JSON; everything else goes to
// ApiHandlers. One log line per request. process() may run on several threads at once.
class LibraryBridge {
  public:
    LibraryBridge(ApiHandlers& api, size_t maxBodyBytes);
    ~LibraryBridge();
    LibraryBridge(const LibraryBridge&) = delete;
    LibraryBridge& operator=(const LibraryBridge&) = delete;

    FinishedRequest process(const PendingRequest& request);

  private:
    class Dispatcher;
    std::unique_ptr<Dispatcher> dispatcher_;
};

}  // namespace vocle::server
