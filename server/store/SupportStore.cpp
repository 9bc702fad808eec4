#include "store/SupportStore.h"

namespace vocle::server {

int64_t SupportStore::add(const SupportMessage& m) {
    const double now = clock_.now();
    return db_.transaction([&](SqlConnection& c) {
        return c
            .queryOne(
                "INSERT INTO support_messages (user_id, message, device_id, app_version, created_at) "
                "VALUES (?, ?, ?, ?, ?) RETURNING id",
                {m.userId ? SqlValue(*m.userId) : SqlValue(nullptr), m.message, m.deviceId, m.appVersion, now})
            ->integer(0);
    });
}

}  // namespace vocle::server
