#include "store/SettingsStore.h"

namespace vocle::server {

StoredSettings SettingsStore::load(const std::string& userId) {
    return db_.transaction([&](SqlConnection& c) {
        StoredSettings result;
        if (auto row = c.queryOne("SELECT version, document FROM settings WHERE user_id = ?", {userId})) {
            result.version = row->integer(0);
            result.document = parseJson(row->text(1));
        }
        return result;
    });
}

StoredSettings SettingsStore::save(const std::string& userId, const Json& document,
                                   std::optional<int64_t> ifMatchVersion) {
    const std::string text = toCompactJson(document);
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) {
        int64_t current = 0;
        if (auto row = c.queryOne("SELECT version FROM settings WHERE user_id = ?", {userId}))
            current = row->integer(0);
        if (ifMatchVersion && *ifMatchVersion != current) throw VersionConflict(current);
        const int64_t next = current + 1;
        c.exec(
            "INSERT INTO settings (user_id, version, document, updated_at) VALUES (?, ?, ?, ?) "
            "ON CONFLICT(user_id) DO UPDATE SET version = excluded.version, document = excluded.document, "
            "updated_at = excluded.updated_at",
            {userId, next, text, now});
        c.exec("INSERT INTO settings_history (user_id, version, document, created_at) VALUES (?, ?, ?, ?)",
               {userId, next, text, now});
        c.exec("DELETE FROM settings_history WHERE user_id = ? AND version <= ?",
               {userId, next - static_cast<int64_t>(historyLimit_)});
        return StoredSettings{document, next};
    });
}

}  // namespace vocle::server
