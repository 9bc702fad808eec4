#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
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

// The one open connection; only reachable while the database lock is held. Statements use `?`
// placeholders and the SQL both stores accept.
class SqlConnection {
  public:
    virtual ~SqlConnection() = default;
    virtual void exec(const std::string& sql, const std::vector<SqlValue>& params = {}) = 0;
    virtual std::vector<SqlRow> query(const std::string& sql, const std::vector<SqlValue>& params = {}) = 0;
    std::optional<SqlRow> queryOne(const std::string& sql, const std::vector<SqlValue>& params = {});
    // Rows changed by the last statement.
    virtual int changes() const = 0;
};

// What differs between the stores: opening a transaction that excludes every other writer (in this
// process and in any other on the same database), the schema version, the schema's dialect.
class SqlStore : public SqlConnection {
  public:
    virtual void begin() = 0;
    virtual void commit() = 0;
    virtual void rollback() = 0;
    virtual int schemaVersion() = 0;                  // inside a transaction
    virtual void setSchemaVersion(int version) = 0;   // inside a transaction
    virtual const std::vector<std::string>& migrations() const = 0;
};

// The server's database: SQLite (a file, the default) or PostgreSQL (a libpq connection string). The
// schema is created and migrated when it opens. Calls are serialised on one connection; each
// transaction also excludes other processes, which keeps multi-statement operations atomic across
// instances without per-call locking.
class Database {
  public:
    // SQLite file in WAL mode.
    explicit Database(const std::filesystem::path& file);
    // "postgresql://..." / "postgres://..." URIs and "key=value" strings are PostgreSQL, anything else a
    // SQLite file path.
    static std::unique_ptr<Database> open(const std::string& location);
    static bool isPostgres(const std::string& location);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Runs `work` inside one exclusive transaction; an exception rolls back and propagates.
    template <class Work>
    auto transaction(Work&& work) -> decltype(work(std::declval<SqlConnection&>())) {
        std::lock_guard lock(mutex_);
        SqlConnection& connection = *store_;
        store_->begin();
        try {
            if constexpr (std::is_void_v<decltype(work(connection))>) {
                work(connection);
                store_->commit();
            } else {
                auto result = work(connection);
                store_->commit();
                return result;
            }
        } catch (...) {
            try {
                store_->rollback();
            } catch (...) {
            }
            throw;
        }
    }

    int schemaVersion();
    static int latestSchemaVersion();
    // "sqlite" or "postgresql".
    std::string kind() const { return kind_; }

  private:
    Database(std::unique_ptr<SqlStore> store, std::string kind);
    void migrate();

    std::mutex mutex_;
    std::unique_ptr<SqlStore> store_;
    std::string kind_;
};

}  // namespace vocle::server
