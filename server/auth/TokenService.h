#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Clock.h"
#include "store/Database.h"

namespace vocle::server {

struct TokenPair {
    std::string accessToken;
    std::string refreshToken;
};

// The two tokens of the client's "Authorization" header: "Bearer {access}" or
// "Bearer {access};refresh={refresh}".
struct BearerCredentials {
    std::string accessToken;
    std::string refreshToken;  // empty when the header has none
};

std::optional<BearerCredentials> parseAuthorization(std::string_view header);

struct AuthOutcome {
    std::string userId;
    std::optional<TokenPair> rotated;  // new tokens for "X-Access-Token"/"X-Refresh-Token"
};

// Opaque random tokens; only their SHA-256 is stored. An expired access token is renewed when it comes
// with a valid refresh token of the same user; the presented refresh token is revoked in the same step.
class TokenService {
  public:
    TokenService(Database& db, const Clock& clock, double accessTtl, double refreshTtl)
        : db_(db), clock_(clock), accessTtl_(accessTtl), refreshTtl_(refreshTtl) {}

    TokenPair issue(SqlConnection& c, const std::string& userId);
    // None means 401.
    std::optional<AuthOutcome> authenticate(const BearerCredentials& credentials);
    // Drops tokens that can no longer authenticate anything; returns how many went.
    int purgeExpired();

  private:
    Database& db_;
    const Clock& clock_;
    double accessTtl_;
    double refreshTtl_;
};

}  // namespace vocle::server
