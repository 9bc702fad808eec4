#pragma once

#include <httplib.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Json.h"
#include "foundation/VirtualMainQueue.h"

namespace vocle::testing {

// An in-test backend on a loopback port that answers the settings and sign-in requests the way the
// real server does: bearer tokens checked on "/settings", versioned settings, a template catalogue,
// one-time codes. Tests can make it refuse the session or fail outright.
class LoopbackBackend {
  public:
    struct Request {
        std::string method;
        std::string path;
        std::string authorization;
        Json body;
    };

    LoopbackBackend() {
        server_.Get("/settings", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            record(req);
            if (!authorised(req, res)) return;
            Json out{{"settings_version", settingsVersion_}, {"templates_version", 7}};
            if (settings_) out["settings"] = *settings_;
            if (templates_) out["templates"] = *templates_;
            res.set_content(out.dump(), "application/json");
        });
        server_.Post("/settings", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            record(req);
            if (!authorised(req, res)) return;
            if (failStatus_) {
                res.status = *failStatus_;
                res.set_content(R"({"error":"backend down"})", "application/json");
                return;
            }
            const Json body = Json::parse(req.body);
            settings_ = body.value("settings", Json::object());
            ++settingsVersion_;
            res.set_content(Json{{"settings", *settings_}, {"settings_version", settingsVersion_}}.dump(),
                            "application/json");
        });
        server_.Post("/auth/send-otp", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            record(req);
            if (failStatus_) {
                res.status = *failStatus_;
                return;
            }
            res.set_content(R"({"success":true})", "application/json");
        });
        server_.Post("/auth/verify-otp", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            record(req);
            Json body;
            try {
                body = Json::parse(req.body);
            } catch (const std::exception&) {
                res.status = 400;
                return;
            }
            if (verifyBody_) {
                res.set_content(*verifyBody_, "application/json");
                return;
            }
            if (body.value("token", "") != code || body.value("email", "") != expectedEmail_) {
                res.status = 400;
                res.set_content(R"({"error":"Invalid or expired code"})", "application/json");
                return;
            }
            res.set_content(Json{{"access_token", validAccessToken},
                                 {"refresh_token", "refresh-1"},
                                 {"user", {{"id", "user-42"}, {"email", expectedEmail_}}}}
                                .dump(),
                            "application/json");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~LoopbackBackend() {
        server_.stop();
        thread_.join();
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // The catalogue GET "/settings" carries; none leaves "templates" out.
    void setTemplates(std::optional<Json> templates) {
        std::lock_guard lock(mutex_);
        templates_ = std::move(templates);
    }
    // Answers every authorised POST "/settings" (and send-otp) with this status.
    void failWith(std::optional<int> status) {
        std::lock_guard lock(mutex_);
        failStatus_ = status;
    }
    // Answers "/settings" with 401 whatever the token.
    void rejectSessions(bool reject) {
        std::lock_guard lock(mutex_);
        rejectSessions_ = reject;
    }
    void expectEmail(std::string email) {
        std::lock_guard lock(mutex_);
        expectedEmail_ = std::move(email);
    }
    // A fixed 200 body for "/auth/verify-otp".
    void answerVerifyWith(std::string body) {
        std::lock_guard lock(mutex_);
        verifyBody_ = std::move(body);
    }

    std::vector<Request> requests(const std::string& method, const std::string& path) const {
        std::lock_guard lock(mutex_);
        std::vector<Request> out;
        for (const auto& r : requests_)
            if (r.method == method && r.path == path) out.push_back(r);
        return out;
    }
    std::optional<Json> storedSettings() const {
        std::lock_guard lock(mutex_);
        return settings_;
    }

    static Json catalogue() {
        return Json{
            {"mode_types", Json::array({Json{{"id", "11111111-1111-1111-1111-111111111111"},
                                             {"name", "Raw"},
                                             {"prompt", ""},
                                             {"language", "English"}},
                                        Json{{"id", "22222222-2222-2222-2222-222222222222"},
                                             {"name", "Clean"},
                                             {"prompt", "Remove fillers."},
                                             {"language", "English"},
                                             {"description", "Fillers removed and proper punctuation."},
                                             {"display", true}}})}};
    }

    std::string validAccessToken = "access-1";
    std::string code = "123456";

  private:
    void record(const httplib::Request& req) {
        Json body;
        if (!req.body.empty()) {
            try {
                body = Json::parse(req.body);
            } catch (const std::exception&) {
                body = req.body;
            }
        }
        requests_.push_back({req.method, req.path, req.get_header_value("Authorization"), body});
    }
    bool authorised(const httplib::Request& req, httplib::Response& res) {
        const std::string auth = req.get_header_value("Authorization");
        const std::string expected = "Bearer " + validAccessToken;
        if (rejectSessions_ || auth.rfind(expected, 0) != 0) {
            res.status = 401;
            res.set_content(R"({"error":"Invalid token"})", "application/json");
            return false;
        }
        return true;
    }

    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    std::optional<Json> settings_;
    int64_t settingsVersion_ = 0;
    std::optional<Json> templates_ = catalogue();
    std::optional<int> failStatus_;
    bool rejectSessions_ = false;
    std::string expectedEmail_ = "ada@example.org";
    std::optional<std::string> verifyBody_;
};

// Runs the virtual main queue (without moving its clock) until `done` holds or real time runs out;
// network answers arrive on the transport's thread and are posted to the queue.
inline bool runUntil(VirtualMainQueue& queue, const std::function<bool()>& done, double realSeconds = 10.0) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(realSeconds);
    while (std::chrono::steady_clock::now() < deadline) {
        queue.runUntilIdle();
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    queue.runUntilIdle();
    return done();
}

}  // namespace vocle::testing
