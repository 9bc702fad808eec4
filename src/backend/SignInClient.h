#pragma once

#include <functional>
#include <string>

#include "backend/BackendService.h"
#include "core/SupabaseSession.h"

namespace vocle {

// Outcome of POST "/auth/verify-otp".
struct VerifyOTPResult {
    enum class Outcome { verified, invalidCode, unexpectedResponse };
    Outcome outcome = Outcome::invalidCode;
    SupabaseSession session;  // filled when verified: tokens and the user as the backend reports them

    // `isHttp` is false when the transport failed or the answer was not HTTP.
    static VerifyOTPResult fromResponse(bool isHttp, long status, const std::string& body);
};

// The e-mail code sign-in: straight to the origin, no authorization or device headers, no retry.
// Completions run on the main queue, unless the subscription was dropped first.
class SignInClient {
  public:
    explicit SignInClient(BackendService& backend) : backend_(backend) {}

    // POST "/auth/send-otp"; the answer is not examined, `done` runs whatever happened.
    [[nodiscard]] Subscription sendOTP(const std::string& email, std::function<void()> done);
    // POST "/auth/verify-otp".
    [[nodiscard]] Subscription verifyOTP(const std::string& email, const std::string& code,
                                         std::function<void(VerifyOTPResult)> completion);

  private:
    // Sends `body` to `path` and hands the answer (or a transport failure) to `handle` on the main queue.
    Subscription post(const std::string& path, const Json& body,
                      std::function<void(const HttpResponse&)> handle);

    BackendService& backend_;
    OwnerToken owner_;
};

}  // namespace vocle
