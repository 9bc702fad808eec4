#include "http/StaticRoutes.h"

#include <httplib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "foundation/Json.h"

namespace vocle::server {

namespace {

std::filesystem::path defaultDataDir() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        for (const auto& candidate : {exe.parent_path().parent_path() / "share" / "vocle",
                                      exe.parent_path().parent_path().parent_path() / "data"}) {
            if (std::filesystem::exists(candidate / "appcast.xml", ec)) return candidate;
        }
    }
    // A build from the source tree: server/http/ -> data/.
    return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "data";
}

}  // namespace

StaticRoutes StaticRoutes::fromEnvironment(const Environment& env) {
    const auto dir = defaultDataDir();
    auto pick = [&](const char* variable, const char* name) {
        if (auto v = env.get(variable); v && !v->empty()) return std::filesystem::path(*v);
        return dir / name;
    };
    return StaticRoutes({{"/appcast.xml", pick("VOCLE_SERVER_APPCAST_FILE", "appcast.xml"), "application/rss+xml; charset=utf-8"},
                         {"/docs", pick("VOCLE_SERVER_DOCS_FILE", "docs.html"), "text/html; charset=utf-8"}});
}

std::optional<StaticRoutes::Answer> StaticRoutes::serve(const std::string& path) const {
    for (const auto& route : routes_) {
        if (route.path != path) continue;
        std::ifstream in(route.file, std::ios::binary);
        if (!in) return Answer{404, toCompactJson(Json{{"error", "Not found"}}), "application/json"};
        std::ostringstream body;
        body << in.rdbuf();
        return Answer{200, body.str(), route.contentType};
    }
    return std::nullopt;
}

void StaticRoutes::registerOn(httplib::Server& server) const {
    for (const auto& route : routes_) {
        const StaticRoutes self = *this;
        server.Get(route.path, [self, path = route.path](const httplib::Request&, httplib::Response& res) {
            const auto answer = self.serve(path);
            res.status = answer->status;
            res.set_content(answer->body, answer->contentType);
        });
    }
}

}  // namespace vocle::server
