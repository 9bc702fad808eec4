#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace vocle::server {

class DatabaseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using SqlValue = std::variant<std::nullptr_t, int64_t, double, std::string>;

struct SqlRow {
    std::vector<SqlValue> values;
    int64_t integer(size_t i) const;
    double real(size_t i) const;
    std::string text(size_t i) const;
    bool isNull(size_t i) const { return std::holds_alternative<std::nullptr_t>(values.at(i)); }
};

// The one open connection; only reachable while the database lock is held.
class SqlConnection {
  public:
    explicit SqlConnection(sqlite3* db) : db_(db) {}
    void exec(const std::string& sql, const std::vector<SqlValue>& params = {});
    std::vector<SqlRow> query(const std::string& sql, const std::vector<SqlValue>& params = {});
    std::optional<SqlRow> queryOne(const std::string& sql, const std::vector<SqlValue>& params = {});
    int changes() const;

  private:
    sqlite3* db_;
};

// SQLite file in WAL mode; the schema is created and migrated when it opens. Calls are serialised on
// one connection, which keeps multi-statement operations atomic without per-call locking.
class Database {
  public:
    explicit Database(const std::filesystem::path& file);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Runs `work` inside BEGIN IMMEDIATE ... COMMIT; an exception rolls back and propagates.
    template <class Work>
    auto transaction(Work&& work) -> decltype(work(std::declval<SqlConnection&>())) {
        std::lock_guard lock(mutex_);
        SqlConnection connection(db_);
        connection.exec("BEGIN IMMEDIATE");
        try {
            if constexpr (std::is_void_v<decltype(work(connection))>) {
                work(connection);
                connection.exec("COMMIT");
            } else {
                auto result = work(connection);
                connection.exec("COMMIT");
                return result;
            }
        } catch (...) {
            try {
                connection.exec("ROLLBACK");
            } catch (...) {
            }
            throw;
        }
    }

    int schemaVersion();
    static int latestSchemaVersion();

  private:
    void migrate();

    std::mutex mutex_;
    sqlite3* db_ = nullptr;
};

}  // namespace vocle::server
