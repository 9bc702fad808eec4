#pragma once

#include <optional>
#include <string>

#include "store/Database.h"

namespace vocle::server {

struct User {
    std::string id;
    std::string email;
};

class UserStore {
  public:
    explicit UserStore(Database& db) : db_(db) {}
    // Inside a caller's transaction: the user for this address, created at the first sign-in.
    static User findOrCreate(SqlConnection& c, const std::string& email, double now);
    std::optional<User> find(const std::string& id);

  private:
    Database& db_;
};

}  // namespace vocle::server
