#include "backend/SignInClient.h"

#include "backend/HttpClient.h"
#include "foundation/BindToMain.h"
#include "foundation/Text.h"

namespace vocle {

VerifyOTPResult VerifyOTPResult::fromResponse(bool isHttp, long status, const std::string& body) {
    VerifyOTPResult result;
    if (!isHttp || status != 200 || body.empty()) return result;  // invalidCode
    result.outcome = Outcome::unexpectedResponse;
    Json json;
    try {
        json = parseJson(body);
    } catch (const DecodingError&) {
        return result;
    }
    if (!json.is_object()) return result;
    auto access = json.find("access_token");
    auto refresh = json.find("refresh_token");
    auto user = json.find("user");
    if (access == json.end() || !access->is_string() || refresh == json.end() || !refresh->is_string() ||
        user == json.end() || !user->is_object()) {
        return result;
    }
    auto text = [&](const char* key) {
        auto it = user->find(key);
        return it != user->end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    result.outcome = Outcome::verified;
    result.session =
        SupabaseSession{access->get<std::string>(), refresh->get<std::string>(), text("id"), text("email")};
    return result;
}

namespace {
struct AuthCall {
    bool done = false;
    uint64_t transferId = 0;
};
}  // namespace

Subscription SignInClient::post(const std::string& path, const Json& json,
                                std::function<void(const HttpResponse&)> handle) {
    auto call = std::make_shared<AuthCall>();
    auto deliver = [call, handle = std::move(handle)](const HttpResponse& response) {
        if (call->done) return;
        call->done = true;
        handle(response);
    };
    MainQueue& queue = backend_.mainQueue();
    const std::shared_ptr<HttpClient>& transport = backend_.transport();
    const std::string url = backend_.endpoint(path);
    if (!BackendService::isValidURL(url)) {
        queue.post(owner_.guard([deliver] { deliver(HttpResponse{true, "Invalid URL"}); }));
    } else {
        HttpRequest request;
        request.method = "POST";
        request.url = url;
        request.headers = {"Content-Type: application/json"};
        request.body =
            RequestBody::json(json).bytes;  // none when it could not be serialised: sent without a body
        call->transferId = transport->send(std::move(request), bindToMain(queue, owner_, deliver));
    }
    return Subscription([call, weakTransport = std::weak_ptr<HttpClient>(transport)] {
        if (call->done) return;
        call->done = true;
        if (auto transport = weakTransport.lock(); transport && call->transferId)
            transport->cancel(call->transferId);
    });
}

Subscription SignInClient::sendOTP(const std::string& email, std::function<void()> done) {
    return post("/auth/send-otp", Json{{"email", email}},
                [done = std::move(done)](const HttpResponse&) { done(); });
}

Subscription SignInClient::verifyOTP(const std::string& email, const std::string& code,
                                     std::function<void(VerifyOTPResult)> completion) {
    return post("/auth/verify-otp", Json{{"email", email}, {"token", code}},
                [completion = std::move(completion)](const HttpResponse& response) {
                    completion(VerifyOTPResult::fromResponse(!response.transportFailed && response.status > 0,
                                                             response.status, response.body));
                });
}

}  // namespace vocle
