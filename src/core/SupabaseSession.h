#pragma once

#include <string>

#include "foundation/Json.h"

namespace vocle {

// The signed-in session as kept in "session.json". All four keys are required.
struct SupabaseSession {
    std::string accessToken;
    std::string refreshToken;
    std::string userId;
    std::string email;

    static SupabaseSession fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SupabaseSession&, const SupabaseSession&) = default;
};

}  // namespace vocle
