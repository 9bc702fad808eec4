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

RequestBody RequestBody::raw(std::string bytes) {
    RequestBody body;
    body.bytes = std::make_shared<const std::string>(std::move(bytes));
    return body;
}

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

std::vector<std::string> BackendService::commonHeaders() const {
    std::vector<std::string> headers{"Content-Type: application/json"};
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
    request.headers = commonHeaders();  // rebuilt per attempt: a rotated token is used at once
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
            decode(parseJson(response.body));
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

Json BackendService::transcriptionModeObject(const Mode& mode) {
    Json m = Json::object();
    m["id"] = mode.id.string();
    m["name"] = mode.name;
    m["type"] = mode.type.value_or("raw");
    m["prompt"] = mode.prompt;
    m["language"] = languageCode(mode.language);
    if (mode.modeTypeId) m["mode_type_id"] = *mode.modeTypeId;
    return m;
}

std::string BackendService::transcriptionBody(const std::string& audioData, const Mode& mode,
                                              const std::string& vocabWords,
                                              const std::vector<Replacement>& textReplacements) {
    Json replacements = Json::array();
    for (const auto& r : textReplacements)
        replacements.push_back(Json{{"from", r.original}, {"to", r.replacement}});
    const Json rest{{"mode", transcriptionModeObject(mode)},
                    {"vocab_words", vocabWords},
                    {"text_replacements", std::move(replacements)}};
    const std::string restText = rest.dump();  // "{...}"; may throw on text that is not UTF-8

    // {"audio":"<base64>",<rest without its opening brace>
    static constexpr std::string_view head = "{\"audio\":\"";
    const size_t encoded = base64::encodedSize(audioData.size());
    std::string body;
    body.reserve(head.size() + encoded + 2 + restText.size());
    body.append(head);
    body.resize(head.size() + encoded);
    base64::encodeInto(audioData.data(), audioData.size(), body.data() + head.size());
    body.append("\",");
    body.append(restText, 1, std::string::npos);
    return body;
}

Subscription BackendService::transcribeAudio(std::string audioData, const Mode& mode,
                                             const std::string& vocabWords,
                                             const std::vector<Replacement>& textReplacements,
                                             Completion<std::string> completion) {
    log("BackendService - transcribeAudio called");
    log("Audio data size: ", audioData.size(), " bytes");
    log("Base URL: ", baseURL_);
    log("Access token: ", accessToken_.empty() ? "empty" : "provided");

    auto report = [completion = std::move(completion)](Result<TranscribeResponse, BackendError> result) {
        if (result.ok()) {
            log("Received transcription response");
            completion(std::move(result.value().transcript));
        } else {
            log("Transcription request failed: ", result.error().errorDescription());
            completion(result.error());
        }
    };
    auto fail = [&](BackendError error) {
        return deliverError<TranscribeResponse>(std::move(error), report);
    };

    if (accessToken_.empty()) {
        log("ERROR: Access token is empty");
        auto subscription = fail(BackendError::authenticationFailed());
        reportRejectedSession();
        return subscription;
    }
    const std::string url = baseURL_ + "/transcribe";
    if (!HttpTransport::isValidURL(url)) {
        log("ERROR: Invalid URL: ", baseURL_, "/transcribe");
        return fail(BackendError::invalidURL());
    }
    log("Using endpoint: ", url);

    const std::string code = languageCode(mode.language);
    log("Mode details:");
    log("  - Name: ", mode.name);
    log("  - Type: ", mode.type.value_or("raw"));
    log("  - Prompt: ", mode.prompt);
    log("  - Language: ", mode.language, " \u2192 ", code);

    log("Text replacements being sent to backend:");
    for (size_t i = 0; i < textReplacements.size(); ++i) {
        log("  ", i + 1, ". \"", textReplacements[i].original, "\" \u2192 \"",
            textReplacements[i].replacement, "\"");
    }

    RequestBody body;
    try {
        body = RequestBody::raw(transcriptionBody(audioData, mode, vocabWords, textReplacements));
    } catch (const std::exception& e) {
        body.serialisationError = e.what();
    }
    // The body now holds the audio; the raw bytes are not needed again.
    std::string().swap(audioData);
    log("Sending transcription request with mode: ", mode.name);

    return requestWithRetry<TranscribeResponse>(0, mainQueue_.clock().monotonicNow(), url, "POST",
                                                std::move(body), std::move(report));
}

Subscription BackendService::fetchSettings(Completion<SettingsEnvelope> completion) {
    if (accessToken_.empty()) {
        auto subscription = deliverError(BackendError::authenticationFailed(), std::move(completion));
        reportRejectedSession();
        return subscription;
    }
    const std::string url = baseURL_ + "/settings";
    if (!HttpTransport::isValidURL(url))
        return deliverError(BackendError::invalidURL(), std::move(completion));
    return requestWithRetry<SettingsEnvelope>(0, mainQueue_.clock().monotonicNow(), url, "GET",
                                              RequestBody::none(), std::move(completion));
}

Subscription BackendService::backupSettings(const SettingsDoc& settings,
                                            std::optional<int64_t> ifMatchVersion,
                                            Completion<BackupResponse> completion) {
    if (accessToken_.empty()) {
        auto subscription = deliverError(BackendError::authenticationFailed(), std::move(completion));
        reportRejectedSession();
        return subscription;
    }
    const std::string url = baseURL_ + "/settings";
    if (!HttpTransport::isValidURL(url))
        return deliverError(BackendError::invalidURL(), std::move(completion));
    Json body = Json::object();
    try {
        // Round-trip through text, as the document is sent: a member that cannot be encoded is left out.
        body["settings"] = Json::parse(settings.toJson().dump());
    } catch (const std::exception&) {
    }
    if (ifMatchVersion) body["if_match_version"] = *ifMatchVersion;
    return requestWithRetry<BackupResponse>(0, mainQueue_.clock().monotonicNow(), url, "POST",
                                            RequestBody::json(body), std::move(completion));
}

Subscription BackendService::sendSupportMessage(const std::string& message, Completion<bool> completion) {
    auto report = [completion = std::move(completion)](Result<SuccessResponse, BackendError> result) {
        if (result.ok()) {
            completion(result.value().success);
        } else {
            completion(result.error());
        }
    };
    const std::string url = baseURL_ + "/support/message";
    if (!HttpTransport::isValidURL(url))
        return deliverError<SuccessResponse>(BackendError::invalidURL(), report);
    return requestWithRetry<SuccessResponse>(0, mainQueue_.clock().monotonicNow(), url, "POST",
                                             RequestBody::json(Json{{"message", message}}),
                                             std::move(report));
}

namespace {
struct AuthCall {
    bool done = false;
    uint64_t transferId = 0;
};
}  // namespace

Subscription BackendService::sendOTP(const std::string& email, std::function<void()> done) {
    auto call = std::make_shared<AuthCall>();
    auto deliver = [call, done = std::move(done)] {
        if (call->done) return;
        call->done = true;
        done();
    };
    const std::string url = baseURL_ + "/auth/send-otp";
    if (!HttpTransport::isValidURL(url)) {
        mainQueue_.post(owner_.guard(deliver));
    } else {
        HttpRequest request;
        request.method = "POST";
        request.url = url;
        request.headers = {"Content-Type: application/json"};
        RequestBody body = RequestBody::json(Json{{"email", email}});
        request.body = body.bytes;  // none when it could not be serialised: sent without a body
        call->transferId = transport_->send(
            std::move(request), bindToMain(mainQueue_, owner_, [deliver](HttpResponse) { deliver(); }));
    }
    return Subscription([call, weakTransport = std::weak_ptr<HttpClient>(transport_)] {
        if (call->done) return;
        call->done = true;
        if (auto transport = weakTransport.lock(); transport && call->transferId)
            transport->cancel(call->transferId);
    });
}

Subscription BackendService::verifyOTP(const std::string& email, const std::string& code,
                                       std::function<void(VerifyOTPResult)> completion) {
    auto call = std::make_shared<AuthCall>();
    auto deliver = [call, completion = std::move(completion)](VerifyOTPResult result) {
        if (call->done) return;
        call->done = true;
        completion(std::move(result));
    };
    const std::string url = baseURL_ + "/auth/verify-otp";
    if (!HttpTransport::isValidURL(url)) {
        mainQueue_.post(owner_.guard([deliver] { deliver(VerifyOTPResult{}); }));
    } else {
        HttpRequest request;
        request.method = "POST";
        request.url = url;
        request.headers = {"Content-Type: application/json"};
        request.body = RequestBody::json(Json{{"email", email}, {"token", code}}).bytes;
        call->transferId = transport_->send(
            std::move(request), bindToMain(mainQueue_, owner_, [deliver](const HttpResponse& response) {
                deliver(VerifyOTPResult::fromResponse(!response.transportFailed && response.status > 0,
                                                      response.status, response.body));
            }));
    }
    return Subscription([call, weakTransport = std::weak_ptr<HttpClient>(transport_)] {
        if (call->done) return;
        call->done = true;
        if (auto transport = weakTransport.lock(); transport && call->transferId)
            transport->cancel(call->transferId);
    });
}

}  // namespace vocle
