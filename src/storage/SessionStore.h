#pragma once

#include <optional>
#include <string>

#include "foundation/Json.h"
#include "foundation/Signal.h"
#include "storage/FileStorageManager.h"

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

// Reads and writes the session through the file storage and announces every change.
class SessionStore {
public:
    explicit SessionStore(const FileStorageManager& files) : files_(files) {}

    std::optional<SupabaseSession> load() const;
    void save(const SupabaseSession& session);
    // Token rotation: rewrites only when a session is stored and a token differs.
    void updateTokens(const std::string& accessToken, const std::string& refreshToken);
    // Sign-out: deletes "session.json" and announces the change.
    void clear();

    // Fires after every save and after clear(), on the calling thread.
    Signal<> sessionDidChange;

private:
    const FileStorageManager& files_;
};

}  // namespace vocle
