#include "backend/BackendService.h"

#include <algorithm>
#include <cmath>

#include "backend/DecimalText.h"
#include "backend/HttpTransport.h"
#include "backend/LanguageCodes.h"
#include "backend/ResponseRecords.h"
#include "foundation/Base64.h"
#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "foundation/Timer.h"

namespace vocle {

struct BackendService::Operation {
    std::string url;
    std::string method;
    RequestBody body;
    Decoder decode;
    Finish finish;
    bool retry = true;
    MonotonicTime startTime;
    bool done = false;  // delivered or cancelled; main queue only
    Timer timer;
    uint64_t transferId = 0;
};

RequestBody RequestBody::json(const Json& object) {
    RequestBody body;
    try {
        body.bytes = std::make_shared<const std::string>(object.dump());
    } catch (const std::exception& e) {
        body.serialisationError = e.what();
    }
    return body;
}

RequestBody RequestBody::raw(std::string bytes, std::string contentType) {
    RequestBody body;
    body.bytes = std::make_shared<const std::string>(std::move(bytes));
    body.contentType = std::move(contentType);
    return body;
}

BackendService::BackendService(std::string baseURL, std::string appVersion, MainQueue& mainQueue,
                               TokenStore& tokens, std::string deviceId,
                               std::shared_ptr<HttpClient> http)
    : baseURL_(std::move(baseURL)),
      appVersion_(std::move(appVersion)),
      mainQueue_(mainQueue),
      tokens_(tokens),
      transport_(http ? std::move(http) : std::make_shared<HttpTransport>()) {
    if (auto session = tokens_.load()) {
        accessToken_ = session->accessToken;
        refreshToken_ = session->refreshToken;
    }
    deviceId_ = std::move(deviceId);
}

BackendService::~BackendService() = default;

const std::map<std::string, std::string>& BackendService::languageCodeMapping() {
    return vocle::languageCodeMapping();
}

bool BackendService::isValidURL(const std::string& url) {
    return HttpTransport::isValidURL(url);
}

void BackendService::setAccessToken(std::string token) {
    if (!token.empty()) rejectionReported_ = false;
    accessToken_ = std::move(token);
}

void BackendService::reportRejectedSession() {
    if (rejectionReported_) return;
    rejectionReported_ = true;
    // Posted: the refused call's own completion (and its log line) comes first.
    mainQueue_.post(owner_.guard([this] { sessionRejected.emit(); }));
}

void BackendService::updateTokens(const std::string& accessToken, const std::string& refreshToken) {
    if (accessToken.empty() || refreshToken.empty()) return;
    rejectionReported_ = false;
    accessToken_ = accessToken;
    refreshToken_ = refreshToken;
    tokens_.updateTokens(accessToken, refreshToken);
}

std::vector<std::string> BackendService::commonHeaders(const std::string& contentType) const {
    std::vector<std::string> headers{"Content-Type: " + contentType};
    if (!accessToken_.empty()) {
        std::string auth = "Authorization: Bearer " + accessToken_;
        if (!refreshToken_.empty()) auth += ";refresh=" + refreshToken_;
        headers.push_back(std::move(auth));
    }
    if (!deviceId_.empty()) headers.push_back("X-Device-Id: " + deviceId_);
    if (!appVersion_.empty()) headers.push_back("X-App-Version: " + appVersion_);
    return headers;
}

Subscription BackendService::subscriptionFor(const std::shared_ptr<Operation>& op) {
    return Subscription(
        [weakOp = std::weak_ptr<Operation>(op), weakTransport = std::weak_ptr<HttpClient>(transport_)] {
            auto op = weakOp.lock();
            if (!op || op->done) return;
            op->done = true;
            op->timer.cancel();
            if (auto transport = weakTransport.lock(); transport && op->transferId)
                transport->cancel(op->transferId);
        });
}

Subscription BackendService::failLater(BackendError error, Finish finish) {
    auto op = std::make_shared<Operation>();
    op->finish = std::move(finish);
    mainQueue_.post(owner_.guard([this, op, error = std::move(error)] { this->finish(op, error); }));
    return subscriptionFor(op);
}

void BackendService::finish(const std::shared_ptr<Operation>& op, std::optional<BackendError> error) {
    if (op->done) return;
    op->done = true;
    auto deliver = std::move(op->finish);
    op->finish = nullptr;
    op->decode = nullptr;
    op->body = {};
    const bool succeeded = !error;
    if (deliver) deliver(std::move(error));
    if (succeeded) requestSucceeded.emit();
}

Subscription BackendService::start(int attempt, MonotonicTime startTime, const std::string& url,
                                   const std::string& method, RequestBody body, Decoder decode, bool retry,
                                   Finish finish) {
    auto op = std::make_shared<Operation>();
    op->url = url;
    op->method = method;
    op->body = std::move(body);
    op->decode = std::move(decode);
    op->finish = std::move(finish);
    op->retry = retry;
    op->startTime = startTime;
    if (retry) {
        runAttempt(op, attempt);
    } else {
        sendAttempt(op,
                    [this, op](std::optional<BackendError> error) { this->finish(op, std::move(error)); });
    }
    return subscriptionFor(op);
}

void BackendService::runAttempt(const std::shared_ptr<Operation>& op, int attempt) {
    if (op->done) return;
    const Seconds elapsed = mainQueue_.clock().monotonicNow() - op->startTime;
    if (elapsed >= kRetryBudget) {
        log("Total retry timeout exceeded after ", decimalText(elapsed.count()), "s");
        // Delivered from the queue so that a caller never sees its completion before the call returns.
        mainQueue_.post(
            owner_.guard([this, op] { finish(op, BackendError::network("The request timed out.")); }));
        return;
    }
    log("Network request attempt ", attempt + 1, "/", kMaxAttempts);
    sendAttempt(op, [this, op, attempt](std::optional<BackendError> error) {
        if (!error) {
            finish(op, std::nullopt);
            return;
        }
        const bool retriable = error->isRetriable();
        const std::string message = error->errorDescription();
        if (attempt > kMaxAttempts - 2 || !retriable) {
            log("Not retrying error: ", message, " (attempt ", attempt + 1,
                ", shouldRetry: ", boolText(retriable), ")");
            finish(op, std::move(error));
            return;
        }
        const double delay = std::min(std::pow(2.0, attempt), 8.0);
        log("Retrying after ", decimalText(delay), "s delay due to: ", message);
        op->transferId = 0;
        op->timer.start(mainQueue_, Seconds(delay),
                        owner_.guard([this, op, attempt] { runAttempt(op, attempt + 1); }));
    });
}

void BackendService::sendAttempt(const std::shared_ptr<Operation>& op,
                                 std::function<void(std::optional<BackendError>)> next) {
    if (!op->body.serialisationError.empty()) {
        mainQueue_.post(owner_.guard([op, next, error = op->body.serialisationError] {
            if (!op->done) next(BackendError::network(error));
        }));
        return;
    }
    HttpRequest request;
    request.method = op->method;
    request.url = op->url;
    request.headers =
        commonHeaders(op->body.contentType);  // rebuilt per attempt: a rotated token is used at once
    request.body = op->body.bytes;
    // Answered on a worker thread; handled on the main queue, where the tokens and the operation live.
    op->transferId = transport_->send(
        std::move(request),
        bindToMain(mainQueue_, owner_, [op, next = std::move(next), this](HttpResponse response) {
            if (op->done) return;
            op->transferId = 0;
            next(classify(response, op->decode));
        }));
}

std::optional<BackendError> BackendService::classify(const HttpResponse& response, const Decoder& decode) {
    if (response.transportFailed) return BackendError::network(response.transportError);
    if (response.status <= 0) return BackendError::unknown();

    auto access = response.header("x-access-token");
    auto refresh = response.header("x-refresh-token");
    if (access && refresh && !access->empty() && !refresh->empty()) updateTokens(*access, *refresh);

    const long status = response.status;
    if (status == 401) {
        reportRejectedSession();
        return BackendError::authenticationFailed();
    }
    if (status >= 200 && status <= 299) {
        try {
            // 204 has no body by definition; the record decides whether nothing will do.
            decode(status == 204 ? Json() : parseJson(response.body));
        } catch (const std::exception& e) {
            return BackendError::decoding(e.what());
        }
        return std::nullopt;
    }
    std::string message = isValidUtf8(response.body) ? response.body : "Unknown error";
    try {
        Json json = Json::parse(response.body);
        if (json.is_object()) {
            auto it = json.find("error");
            if (it != json.end() && it->is_string()) message = it->get<std::string>();
        }
    } catch (const std::exception&) {
        // Plain text: keep it as it is.
    }
    return BackendError::server(static_cast<int>(status), std::move(message));
}

}  // namespace vocle
