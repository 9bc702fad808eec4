#include "http/ApiHandlers.h"

#include "foundation/Log.h"
#include "http/RequestParsing.h"
#include "speech/AudioDecoder.h"

namespace vocle::server {

namespace {

// The statuses /transcribe gives for each failure of recognition, shared by the streams.
template <typename Work>
auto mapTranscriptionErrors(Work&& work) {
    try {
        return work();
    } catch (const UnsupportedAudio& e) {
        throw HttpError(415, e.what());
    } catch (const CorruptAudio& e) {
        throw HttpError(400, e.what());
    } catch (const UnsupportedLanguage& e) {
        throw HttpError(422, e.what());
    } catch (const StreamNotFound& e) {
        throw HttpError(404, e.what());
    } catch (const StreamOutOfOrder& e) {
        throw HttpError(409, e.what());
    } catch (const StreamTooLong& e) {
        throw HttpError(413, e.what());
    } catch (const EngineError& e) {
        log("vocle-server: ❌ transcription failed: ", e.what());
        if (e.upstream) throw HttpError(502, e.what());
        throw HttpError(500, "Transcription failed on the server");
    }
}

constexpr std::string_view kStreamPrefix = "/transcribe/stream";

}  // namespace

ApiResponse ApiHandlers::handle(const ApiRequest& request) {
    ApiResponse response;
    try {
        route(request, response);
    } catch (const HttpError& e) {
        response.status = e.status;
        response.body = Json{{"error", e.what()}};
    } catch (const std::exception& e) {
        log("vocle-server: ❌ ", request.method, " ", request.path, " failed: ", e.what());
        response.status = 500;
        response.body = Json{{"error", "Internal server error"}};
    }
    return response;
}

void ApiHandlers::route(const ApiRequest& r, ApiResponse& response) {
    struct Route {
        const char* method;
        const char* path;
        void (ApiHandlers::*handler)(const ApiRequest&, ApiResponse&);
    };
    static const Route routes[] = {
        {"POST", "/auth/send-otp", &ApiHandlers::sendOtp},
        {"POST", "/auth/verify-otp", &ApiHandlers::verifyOtp},
        {"GET", "/settings", &ApiHandlers::getSettings},
        {"POST", "/settings", &ApiHandlers::postSettings},
        {"POST", "/transcribe", &ApiHandlers::transcribe},
        {"POST", "/support/message", &ApiHandlers::supportMessage},
    };
    if (routeStream(r, response)) return;
    bool pathKnown = false;
    for (const auto& route : routes) {
        if (r.path != route.path) continue;
        pathKnown = true;
        if (r.method == route.method) return (this->*route.handler)(r, response);
    }
    if (pathKnown) throw HttpError(405, "Method not allowed");
    throw HttpError(404, "Not found");
}

std::string ApiHandlers::requireUser(const ApiRequest& request, ApiResponse& response) {
    const std::string header = request.header("authorization");
    if (header.empty()) throw HttpError(401, "Sign in required");
    auto credentials = parseAuthorization(header);
    if (!credentials) throw HttpError(401, "Invalid authorization");
    auto outcome = tokens_.authenticate(*credentials);
    if (!outcome) throw HttpError(401, "Session expired; sign in again");
    if (outcome->rotated) {
        response.headers.emplace_back("X-Access-Token", outcome->rotated->accessToken);
        response.headers.emplace_back("X-Refresh-Token", outcome->rotated->refreshToken);
    }
    response.userId = outcome->userId;
    return outcome->userId;
}

std::optional<std::string> ApiHandlers::optionalUser(const ApiRequest& request, ApiResponse& response) {
    if (request.header("authorization").empty()) return std::nullopt;
    try {
        return requireUser(request, response);
    } catch (const HttpError&) {
        return std::nullopt;  // a stale session must not stop a signed-out user's message
    }
}

void ApiHandlers::sendOtp(const ApiRequest& request, ApiResponse& response) {
    const Json body = parseBodyObject(request.body);
    try {
        otp_.sendCode(parseEmailField(body));
    } catch (const SignInError& e) {
        throw HttpError(400, e.what());
    }
    response.body = Json{{"sent", true}};
}

void ApiHandlers::verifyOtp(const ApiRequest& request, ApiResponse& response) {
    const Json body = parseBodyObject(request.body);
    const std::string email = parseEmailField(body);
    const std::string code = parseCodeField(body);
    try {
        SignInResult result = otp_.verify(email, code);
        response.userId = result.user.id;
        response.body = Json{{"access_token", result.tokens.accessToken},
                             {"refresh_token", result.tokens.refreshToken},
                             {"user", {{"id", result.user.id}, {"email", result.user.email}}}};
    } catch (const SignInError& e) {
        throw HttpError(400, e.what());
    }
}

void ApiHandlers::getSettings(const ApiRequest& request, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    const StoredSettings stored = settings_.load(userId);
    response.body = Json::object();
    if (stored.document) response.body["settings"] = *stored.document;
    response.body["settings_version"] = stored.version;
    response.body["templates"] = templates_.document();
    response.body["templates_version"] = templates_.version();
}

void ApiHandlers::postSettings(const ApiRequest& request, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    const SettingsPost post = parseSettingsPost(parseBodyObject(request.body));
    try {
        const StoredSettings stored = settings_.save(userId, post.settings, post.ifMatchVersion);
        response.body = Json{{"settings", *stored.document}, {"settings_version", stored.version}};
    } catch (const VersionConflict& e) {
        throw HttpError(409, e.what());
    }
}

void ApiHandlers::transcribe(const ApiRequest& request, ApiResponse& response) {
    requireUser(request, response);
    const TranscriptionJob job = parseTranscribeRequest(parseBodyObject(request.body));
    response.body =
        Json{{"transcript", mapTranscriptionErrors([&] { return transcription_.transcribe(job); })}};
}

bool ApiHandlers::routeStream(const ApiRequest& r, ApiResponse& response) {
    const std::string_view path = r.path;
    if (path.substr(0, kStreamPrefix.size()) != kStreamPrefix) return false;
    std::string_view rest = path.substr(kStreamPrefix.size());
    if (rest.empty()) {
        if (r.method != "POST") throw HttpError(405, "Method not allowed");
        openStream(r, response);
        return true;
    }
    if (rest.front() != '/') return false;
    rest.remove_prefix(1);
    const auto slash = rest.find('/');
    const std::string id(rest.substr(0, slash));
    const std::string_view action = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    if (id.empty()) throw HttpError(404, "Not found");
    if (action.empty()) {
        if (r.method != "DELETE") throw HttpError(405, "Method not allowed");
        cancelStream(r, id, response);
    } else if (action == "/audio" || action == "/end") {
        if (r.method != "POST") throw HttpError(405, "Method not allowed");
        action == "/audio" ? streamAudio(r, id, response) : endStream(r, id, response);
    } else {
        throw HttpError(404, "Not found");
    }
    return true;
}

void ApiHandlers::openStream(const ApiRequest& request, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    const TranscriptionJob job = parseStreamOpenRequest(parseBodyObject(request.body));
    const std::string id =
        mapTranscriptionErrors([&] { return streams_.open(userId, job, request.connection); });
    response.body = Json{{"stream_id", id}};
}

void ApiHandlers::streamAudio(const ApiRequest& request, const std::string& id, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    auto seqText = request.query.find("seq");
    const uint64_t seq = parseChunkSequence(seqText == request.query.end() ? std::string() : seqText->second);
    if (request.body.size() % 2 != 0)
        throw HttpError(400, "An audio chunk must hold whole 16-bit samples (an even number of bytes)");
    const auto partial = mapTranscriptionErrors(
        [&] { return streams_.append(userId, id, seq, request.body, request.connection); });
    response.body = Json{{"partial", partial.text}, {"seq", partial.seq}};
}

void ApiHandlers::endStream(const ApiRequest& request, const std::string& id, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    response.body = Json{
        {"transcript", mapTranscriptionErrors([&] { return streams_.end(userId, id, request.connection); })}};
}

void ApiHandlers::cancelStream(const ApiRequest& request, const std::string& id, ApiResponse& response) {
    const std::string userId = requireUser(request, response);
    if (!streams_.cancel(userId, id))
        throw HttpError(404, "No such stream; it ended, was cancelled or expired");
    response.status = 204;
    response.body = Json();
}

void ApiHandlers::supportMessage(const ApiRequest& request, ApiResponse& response) {
    const auto userId = optionalUser(request, response);
    const std::string message = parseSupportMessage(parseBodyObject(request.body), maxSupportMessageChars_);
    const int64_t id =
        support_.add({userId, message, request.header("x-device-id"), request.header("x-app-version")});
    log("vocle-server: support message ", id, " received", userId ? " from user " + *userId : std::string());
    response.body = Json{{"success", true}};
}

}  // namespace vocle::server
