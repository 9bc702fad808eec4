#include "auth/TokenService.h"

#include "auth/Crypto.h"
#include "foundation/Log.h"

namespace vocle::server {

namespace {
bool isTokenText(std::string_view s) {
    if (s.empty() || s.size() > 512) return false;
    for (char ch : s) {
        if (static_cast<unsigned char>(ch) <= 0x20 || ch == ';' || static_cast<unsigned char>(ch) >= 0x7f)
            return false;
    }
    return true;
}
}  // namespace

std::optional<BearerCredentials> parseAuthorization(std::string_view header) {
    while (!header.empty() && (header.front() == ' ' || header.front() == '\t')) header.remove_prefix(1);
    while (!header.empty() && (header.back() == ' ' || header.back() == '\t')) header.remove_suffix(1);
    constexpr std::string_view scheme = "Bearer ";
    if (header.size() < scheme.size()) return std::nullopt;
    for (size_t i = 0; i < scheme.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(header[i])) !=
            std::tolower(static_cast<unsigned char>(scheme[i]))) {
            return std::nullopt;
        }
    }
    header.remove_prefix(scheme.size());
    BearerCredentials result;
    constexpr std::string_view refreshMarker = ";refresh=";
    const auto marker = header.find(refreshMarker);
    if (marker == std::string_view::npos) {
        result.accessToken = std::string(header);
    } else {
        result.accessToken = std::string(header.substr(0, marker));
        result.refreshToken = std::string(header.substr(marker + refreshMarker.size()));
        if (!isTokenText(result.refreshToken)) return std::nullopt;
    }
    if (!isTokenText(result.accessToken)) return std::nullopt;
    return result;
}

TokenPair TokenService::issue(SqlConnection& c, const std::string& userId) {
    const double now = clock_.now();
    TokenPair pair{randomToken(), randomToken()};
    insertPair(c, userId, randomToken(), pair, now);
    // Keeps the table from growing with every rotation: anything long dead for this user goes.
    c.exec("DELETE FROM tokens WHERE user_id = ? AND expires_at < ?", {userId, now - refreshTtl_});
    return pair;
}

void TokenService::insertPair(SqlConnection& c, const std::string& userId, const std::string& family,
                              const TokenPair& pair, double now) {
    c.exec(
        "INSERT INTO tokens (hash, user_id, kind, created_at, expires_at, family) VALUES (?, ?, 'access', ?, ?, ?)",
        {sha256Hex(pair.accessToken), userId, now, now + accessTtl_, family});
    c.exec(
        "INSERT INTO tokens (hash, user_id, kind, created_at, expires_at, family) VALUES (?, ?, 'refresh', ?, ?, ?)",
        {sha256Hex(pair.refreshToken), userId, now, now + refreshTtl_, family});
}

TokenPair TokenService::successorOf(const std::string& refreshToken, const std::string& salt) {
    return {derivedToken(refreshToken, "access:" + salt), derivedToken(refreshToken, "refresh:" + salt)};
}

int TokenService::purgeExpired() {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) {
        // An expired access token still matters while its refresh token can renew it, and a rotated
        // refresh token while it could still be replayed (reuse detection).
        c.exec(
            "DELETE FROM tokens WHERE (kind = 'refresh' AND (expires_at <= ? OR (revoked = 1 AND rotated_at IS "
            "NULL))) OR (kind = 'access' AND expires_at <= ? - ?)",
            {now, now, refreshTtl_});
        return c.changes();
    });
}

std::optional<AuthOutcome> TokenService::authenticate(const BearerCredentials& credentials) {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) -> std::optional<AuthOutcome> {
        const std::string accessHash = sha256Hex(credentials.accessToken);
        auto access = c.queryOne(
            "SELECT user_id, expires_at, revoked, family FROM tokens WHERE hash = ? AND kind = 'access'",
            {accessHash});
        if (access && access->integer(2) == 0 && access->real(1) > now) return AuthOutcome{access->text(0), {}};
        if (credentials.refreshToken.empty()) return std::nullopt;

        const std::string refreshHash = sha256Hex(credentials.refreshToken);
        auto refresh = c.queryOne(
            "SELECT user_id, expires_at, revoked, family, rotated_at, successor_salt FROM tokens "
            "WHERE hash = ? AND kind = 'refresh'",
            {refreshHash});
        if (!refresh) return std::nullopt;
        const std::string userId = refresh->text(0);
        const std::string family = refresh->text(3);
        const bool rotated = !refresh->isNull(4);
        if (rotated && now - refresh->real(4) > rotationGrace_) {
            c.exec("UPDATE tokens SET revoked = 1 WHERE family = ?", {family});
            log("vocle-server: ❌ a spent refresh token was presented again for user ", userId,
                "; every session of its sign-in is ended");
            return std::nullopt;
        }
        if (!access || access->text(0) != userId || access->text(3) != family || refresh->real(1) <= now)
            return std::nullopt;

        if (rotated) {
            // A request that raced the rotation: the same new pair, if the chain is still alive.
            TokenPair pair = successorOf(credentials.refreshToken, refresh->text(5));
            auto next = c.queryOne("SELECT revoked, rotated_at FROM tokens WHERE hash = ? AND kind = 'refresh'",
                                   {sha256Hex(pair.refreshToken)});
            if (!next || (next->integer(0) != 0 && next->isNull(1))) return std::nullopt;
            return AuthOutcome{userId, std::move(pair)};
        }
        if (refresh->integer(2) != 0 || access->integer(2) != 0) return std::nullopt;

        const std::string salt = randomToken();
        TokenPair pair = successorOf(credentials.refreshToken, salt);
        c.exec("UPDATE tokens SET revoked = 1, rotated_at = ?, successor_salt = ? WHERE hash = ?",
               {now, salt, refreshHash});
        c.exec("UPDATE tokens SET revoked = 1 WHERE hash = ?", {accessHash});
        insertPair(c, userId, family, pair, now);
        log("vocle-server: tokens rotated for user ", userId);
        return AuthOutcome{userId, std::move(pair)};
    });
}

}  // namespace vocle::server
