#include "store/SupportStore.h"

namespace vocle::server {

int64_t SupportStore::add(const SupportMessage& m) {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) {
        c.exec(
            "INSERT INTO support_messages (user_id, message, device_id, app_version, created_at) "
            "VALUES (?, ?, ?, ?, ?)",
            {m.userId ? SqlValue(*m.userId) : SqlValue(nullptr), m.message, m.deviceId, m.appVersion, now});
        return c.queryOne("SELECT last_insert_rowid()")->integer(0);
    });
}

}  // namespace vocle::server
