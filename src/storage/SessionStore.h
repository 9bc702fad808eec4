#pragma once

#include <optional>
#include <string>

#include "core/TokenStore.h"
#include "foundation/Signal.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// Reads and writes the session through the file storage and announces every change.
class SessionStore final : public TokenStore {
public:
    explicit SessionStore(const FileStorageManager& files) : files_(files) {}

    std::optional<SupabaseSession> load() const override;
    void save(const SupabaseSession& session);
    void updateTokens(const std::string& accessToken, const std::string& refreshToken) override;
    // Sign-out: deletes "session.json" and announces the change.
    void clear();

    // Fires after every save and after clear(), on the calling thread.
    Signal<> sessionDidChange;

private:
    const FileStorageManager& files_;
};

}  // namespace vocle
