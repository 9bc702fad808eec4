#include "store/UserStore.h"

#include "foundation/Log.h"
#include "foundation/Uuid.h"

namespace vocle::server {

User UserStore::findOrCreate(SqlConnection& c, const std::string& email, double now) {
    if (auto row = c.queryOne("SELECT id, email FROM users WHERE email = ?", {email})) {
        return User{row->text(0), row->text(1)};
    }
    User user{Uuid::random().string(), email};
    c.exec("INSERT INTO users (id, email, created_at) VALUES (?, ?, ?)", {user.id, user.email, now});
    log("vocle-server: new user ", user.id);
    return user;
}

std::optional<User> UserStore::find(const std::string& id) {
    return db_.transaction([&](SqlConnection& c) -> std::optional<User> {
        if (auto row = c.queryOne("SELECT id, email FROM users WHERE id = ?", {id})) {
            return User{row->text(0), row->text(1)};
        }
        return std::nullopt;
    });
}

}  // namespace vocle::server
