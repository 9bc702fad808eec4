#pragma once

#include <optional>
#include <string>

#include "core/SupabaseSession.h"

namespace vocle {

// Where the backend client finds the signed-in session and writes rotated tokens back, so the client
// needs no knowledge of how or where the session is kept.
class TokenStore {
public:
    virtual ~TokenStore() = default;
    virtual std::optional<SupabaseSession> load() const = 0;
    // Token rotation: rewrites only when a session is stored and a token differs.
    virtual void updateTokens(const std::string& accessToken, const std::string& refreshToken) = 0;
};

}  // namespace vocle
