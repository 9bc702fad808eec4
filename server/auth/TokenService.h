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

// Opaque tokens; only their SHA-256 is stored. An expired access token is renewed when it comes with a
// valid refresh token of the same sign-in (rotation chain, "family"); both are revoked and a new pair
// issued. Requests that carry the same spent pair within `rotationGrace` seconds of the rotation (a
// client's concurrent requests) receive that same new pair: it is derived from the presented refresh
// token and a salt kept with it, so any instance on the database can hand it out and the database alone
// cannot. A rotated refresh token presented after the grace window is taken as stolen and ends every
// session of its chain.
class TokenService {
  public:
    TokenService(Database& db, const Clock& clock, double accessTtl, double refreshTtl, double rotationGrace = 30)
        : db_(db), clock_(clock), accessTtl_(accessTtl), refreshTtl_(refreshTtl), rotationGrace_(rotationGrace) {}

    // A new pair starting a rotation chain of its own.
    TokenPair issue(SqlConnection& c, const std::string& userId);
    // None means 401.
    std::optional<AuthOutcome> authenticate(const BearerCredentials& credentials);
    // Drops tokens that can no longer authenticate anything; returns how many went.
    int purgeExpired();

  private:
    void insertPair(SqlConnection& c, const std::string& userId, const std::string& family, const TokenPair& pair,
                    double now);
    static TokenPair successorOf(const std::string& refreshToken, const std::string& salt);

    Database& db_;
    const Clock& clock_;
    double accessTtl_;
    double refreshTtl_;
    double rotationGrace_;
};

}  // namespace vocle::server
