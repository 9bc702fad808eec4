#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace httplib {
class Server;
}

namespace vocle::server {

// Files the product's web origin serves beside the API: the update feed "/appcast.xml" and the
// documentation page "/docs". Each file is read on every request, so an operator's edit is live at once;
// a missing file answers 404.
//
// The operator points them elsewhere with VOCLE_SERVER_APPCAST_FILE and VOCLE_SERVER_DOCS_FILE; by
// default they come from the installed data folder (share/vocle beside the program), else the source
// tree's data/.
class StaticRoutes {
  public:
    struct Route {
        std::string path;
        std::filesystem::path file;
        std::string contentType;
    };
    struct Answer {
        int status = 404;
        std::string body;
        std::string contentType;
    };

    static StaticRoutes fromEnvironment(const Environment& env);
    explicit StaticRoutes(std::vector<Route> routes) : routes_(std::move(routes)) {}

    const std::vector<Route>& routes() const { return routes_; }
    // The answer for a GET of `path`; none when the path is not one of ours.
    std::optional<Answer> serve(const std::string& path) const;
    // Adds the GET handlers; call before any catch-all route.
    void registerOn(httplib::Server& server) const;

  private:
    std::vector<Route> routes_;
};

}  // namespace vocle::server
