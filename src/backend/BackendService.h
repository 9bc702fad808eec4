#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/BackendError.h"
#include "core/TokenStore.h"
#include "foundation/Json.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"

namespace vocle {

class HttpClient;
struct HttpResponse;

// A request body serialised once and shared by every attempt.
struct RequestBody {
    std::shared_ptr<const std::string> bytes;  // none: the request has no body
    std::string serialisationError;            // set when the body could not be built

    static RequestBody none() { return {}; }
    static RequestBody json(const Json& object);
    static RequestBody raw(std::string bytes, std::string contentType = "application/json");

    std::string contentType = "application/json";
};

// The request machinery every backend API shares: common headers, token rotation, error mapping and
// retries. The APIs themselves are small clients over it (TranscriptionClient, StreamingClient,
// SettingsClient, SignInClient, SupportService). Lives on the main queue: call it there; every completion
// is delivered there, exactly once, unless the returned subscription was dropped first (which cancels the
// call).
class BackendService {
  public:
    template <class T>
    using Completion = std::function<void(Result<T, BackendError>)>;

    static constexpr int kMaxAttempts = 4;
    static constexpr Seconds kRetryBudget{120.0};

    // Reads the stored session's tokens; `baseURL` has no trailing slash. Without an
    // `http` client the requests go through libcurl (HttpTransport).
    BackendService(std::string baseURL, std::string appVersion, MainQueue& mainQueue,
                   TokenStore& tokens, std::string deviceId,
                   std::shared_ptr<HttpClient> http = nullptr);
    ~BackendService();
    BackendService(const BackendService&) = delete;
    BackendService& operator=(const BackendService&) = delete;

    const std::string& baseURL() const { return baseURL_; }
    const std::string& accessToken() const { return accessToken_; }
    const std::string& refreshToken() const { return refreshToken_; }
    // A non-empty access token is a new session: a later rejection is reported again.
    void setAccessToken(std::string token);
    void setRefreshToken(std::string token) { refreshToken_ = std::move(token); }
    const std::string& deviceId() const { return deviceId_; }
    const std::string& appVersion() const { return appVersion_; }
    static const std::map<std::string, std::string>& languageCodeMapping();

    // Token rotation: both non-empty or nothing happens; the stored session follows.
    void updateTokens(const std::string& accessToken, const std::string& refreshToken);

    // The session held was refused: a 401, or a call that needs a token made without one. Fires on the
    // main queue after the refused call's completion, once per session (until new tokens are set), so
    // that however many calls fail together the user is signed out once.
    Signal<> sessionRejected;
    // A request of any kind was answered successfully (after its completion ran), on the main queue.
    Signal<> requestSucceeded;

    MainQueue& mainQueue() { return mainQueue_; }
    // Where requests go; sign-in requests use it directly, without the common headers.
    const std::shared_ptr<HttpClient>& transport() const { return transport_; }
    // The origin followed by `path`.
    std::string endpoint(const std::string& path) const { return baseURL_ + path; }
    // Whether `url` can be requested at all.
    static bool isValidURL(const std::string& url);
    // Fails the call without a request when no session is held: `authenticationFailed`, reported once.
    template <class T>
    [[nodiscard]] std::optional<Subscription> refuseWithoutSession(Completion<T>& completion) {
        if (!accessToken_.empty()) return std::nullopt;
        auto subscription = deliverError(BackendError::authenticationFailed(), std::move(completion));
        reportRejectedSession();
        return subscription;
    }
    // Starts `requestWithRetry` now, or fails later with invalidURL when the URL cannot be requested.
    template <class T>
    [[nodiscard]] Subscription request(const std::string& path, const std::string& method, RequestBody body,
                                       Completion<T> completion) {
        const std::string url = endpoint(path);
        if (!isValidURL(url)) return deliverError(BackendError::invalidURL(), std::move(completion));
        return requestWithRetry<T>(0, mainQueue_.clock().monotonicNow(), url, method, std::move(body),
                                   std::move(completion));
    }
    void reportRejectedSession();

    // The shared machinery, generic over a record with `static T fromJson(const Json&)`.
    template <class T>
    [[nodiscard]] Subscription requestWithRetry(int attempt, MonotonicTime startTime, const std::string& url,
                                                const std::string& method, RequestBody body,
                                                Completion<T> completion) {
        auto slot = std::make_shared<std::optional<T>>();
        return start(attempt, startTime, url, method, std::move(body), decoderInto(slot), true,
                     deliverFrom(slot, std::move(completion)));
    }
    // Delivers `error` later on the main queue, as a failed request would; nothing is sent.
    template <class T>
    [[nodiscard]] Subscription deliverError(BackendError error, Completion<T> completion) {
        auto slot = std::make_shared<std::optional<T>>();
        return failLater(std::move(error), deliverFrom(slot, std::move(completion)));
    }
    // One attempt, no retry.
    template <class T>
    [[nodiscard]] Subscription performRequest(const std::string& url, const std::string& method,
                                              RequestBody body, Completion<T> completion) {
        auto slot = std::make_shared<std::optional<T>>();
        return start(0, MonotonicTime{}, url, method, std::move(body), decoderInto(slot), false,
                     deliverFrom(slot, std::move(completion)));
    }

  private:
    using Decoder = std::function<void(const Json&)>;  // throws on a body that does not fit
    using Finish = std::function<void(std::optional<BackendError>)>;
    struct Operation;

    template <class T>
    static Decoder decoderInto(std::shared_ptr<std::optional<T>> slot) {
        return [slot](const Json& json) { slot->emplace(T::fromJson(json)); };
    }
    template <class T>
    static Finish deliverFrom(std::shared_ptr<std::optional<T>> slot, Completion<T> completion) {
        return [slot, completion = std::move(completion)](std::optional<BackendError> error) {
            if (error) {
                completion(std::move(*error));
            } else {
                completion(std::move(**slot));
            }
        };
    }

    Subscription start(int attempt, MonotonicTime startTime, const std::string& url,
                       const std::string& method, RequestBody body, Decoder decode, bool retry,
                       Finish finish);
    Subscription failLater(BackendError error, Finish finish);
    Subscription subscriptionFor(const std::shared_ptr<Operation>& op);
    void runAttempt(const std::shared_ptr<Operation>& op, int attempt);
    void sendAttempt(const std::shared_ptr<Operation>& op,
                     std::function<void(std::optional<BackendError>)> next);
    std::optional<BackendError> classify(const HttpResponse& response, const Decoder& decode);
    std::vector<std::string> commonHeaders(const std::string& contentType) const;
    void finish(const std::shared_ptr<Operation>& op, std::optional<BackendError> error);

    const std::string baseURL_;
    std::string accessToken_;
    std::string refreshToken_;
    bool rejectionReported_ = false;
    std::string deviceId_;
    std::string appVersion_;
    MainQueue& mainQueue_;
    TokenStore& tokens_;
    std::shared_ptr<HttpClient> transport_;
    OwnerToken owner_;
};

}  // namespace vocle
