#include "core/SupabaseSession.h"

namespace vocle {

SupabaseSession SupabaseSession::fromJson(const Json& json) {
    requireObjectValue(json, "SupabaseSession");
    return {requireString(json, "access_token"), requireString(json, "refresh_token"), requireString(json, "user_id"),
            requireString(json, "email")};
}

Json SupabaseSession::toJson() const {
    return Json{{"access_token", accessToken}, {"refresh_token", refreshToken}, {"user_id", userId}, {"email", email}};
}

}  // namespace vocle
