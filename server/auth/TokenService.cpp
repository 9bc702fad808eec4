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
    c.exec("INSERT INTO tokens (hash, user_id, kind, created_at, expires_at) VALUES (?, ?, 'access', ?, ?)",
           {sha256Hex(pair.accessToken), userId, now, now + accessTtl_});
    c.exec("INSERT INTO tokens (hash, user_id, kind, created_at, expires_at) VALUES (?, ?, 'refresh', ?, ?)",
           {sha256Hex(pair.refreshToken), userId, now, now + refreshTtl_});
    // Keeps the table from growing with every rotation: anything long dead for this user goes.
    c.exec("DELETE FROM tokens WHERE user_id = ? AND expires_at < ?", {userId, now - refreshTtl_});
    return pair;
}

int TokenService::purgeExpired() {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) {
        // An expired access token still matters while its refresh token can renew it.
        c.exec(
            "DELETE FROM tokens WHERE (kind = 'refresh' AND (expires_at <= ? OR revoked = 1)) OR "
            "(kind = 'access' AND expires_at <= ? - ?)",
            {now, now, refreshTtl_});
        return c.changes();
    });
}

std::optional<AuthOutcome> TokenService::authenticate(const BearerCredentials& credentials) {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) -> std::optional<AuthOutcome> {
        auto access =
            c.queryOne("SELECT user_id, expires_at, revoked FROM tokens WHERE hash = ? AND kind = 'access'",
                       {sha256Hex(credentials.accessToken)});
        if (!access || access->integer(2) != 0) return std::nullopt;
        const std::string userId = access->text(0);
        if (access->real(1) > now) return AuthOutcome{userId, std::nullopt};
        if (credentials.refreshToken.empty()) return std::nullopt;

        const std::string refreshHash = sha256Hex(credentials.refreshToken);
        auto refresh =
            c.queryOne("SELECT user_id, expires_at, revoked FROM tokens WHERE hash = ? AND kind = 'refresh'",
                       {refreshHash});
        if (!refresh || refresh->integer(2) != 0 || refresh->real(1) <= now || refresh->text(0) != userId) {
            return std::nullopt;
        }
        c.exec("UPDATE tokens SET revoked = 1 WHERE hash = ?", {refreshHash});
        c.exec("UPDATE tokens SET revoked = 1 WHERE hash = ?", {sha256Hex(credentials.accessToken)});
        TokenPair pair = issue(c, userId);
        log("vocle-server: tokens rotated for user ", userId);
        return AuthOutcome{userId, std::move(pair)};
    });
}

}  // namespace vocle::server
