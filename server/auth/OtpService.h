#pragma once

#include <stdexcept>
#include <string>

#include "auth/TokenService.h"
#include "foundation/Clock.h"
#include "mail/Mailer.h"
#include "store/Database.h"
#include "store/UserStore.h"

namespace vocle::server {

// A request the user can fix (bad address, wrong code); its text is shown as the 400 error.
class SignInError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct SignInResult {
    TokenPair tokens;
    User user;
};

struct OtpPolicy {
    int digits = 6;
    double validSeconds = 600;
    double minIntervalSeconds = 30;
    int maxPerHour = 10;
    int maxAttempts = 5;
};

// Lower-cased, trimmed address, or SignInError when it is not one.
std::string normalizeEmail(const std::string& email);

// Codes are stored as salted SHA-256; only the newest code of an address is live.
class OtpService {
  public:
    OtpService(Database& db, TokenService& tokens, Mailer& mailer, const Clock& clock, std::string mailFrom,
               OtpPolicy policy = {})
        : db_(db),
          tokens_(tokens),
          mailer_(mailer),
          clock_(clock),
          mailFrom_(std::move(mailFrom)),
          policy_(policy) {}

    // Issues and mails a code unless the address is over its limits; the caller answers the same either way.
    void sendCode(const std::string& email);
    SignInResult verify(const std::string& email, const std::string& code);

  private:
    Database& db_;
    TokenService& tokens_;
    Mailer& mailer_;
    const Clock& clock_;
    std::string mailFrom_;
    OtpPolicy policy_;
};

}  // namespace vocle::server
