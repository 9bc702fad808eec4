#include "storage/SessionStore.h"

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/Text.h"

namespace vocle {

std::optional<SupabaseSession> SessionStore::load() const {
    auto text = readFile(files_.appSupportDirectory() / "session.json");
    if (!text || !isValidUtf8(*text)) return std::nullopt;
    try {
        return SupabaseSession::fromJson(parseJson(*text));
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

void SessionStore::save(const SupabaseSession& session) {
    files_.saveSession(toCompactJson(session.toJson()));
    sessionDidChange.emit();
}

void SessionStore::updateTokens(const std::string& accessToken, const std::string& refreshToken) {
    auto stored = load();
    if (!stored) return;
    if (stored->accessToken == accessToken && stored->refreshToken == refreshToken) return;
    save(SupabaseSession{accessToken, refreshToken, stored->userId, stored->email});
}

void SessionStore::clear() {
    files_.clearSession();
    sessionDidChange.emit();
}

}  // namespace vocle
