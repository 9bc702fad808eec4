#pragma once

#include <string>

#include "store/Database.h"

struct pg_conn;

namespace vocle::server {

// PostgreSQL over libpq, one connection. Every transaction takes one advisory lock first, so writers
// are serialised across all instances exactly as SQLite's single writer does, and the services need no
// retry logic for serialisation failures. A dropped connection is re-opened at the next transaction.
class PostgresStore final : public SqlStore {
  public:
    explicit PostgresStore(std::string connectionString);
    ~PostgresStore() override;

    void exec(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    std::vector<SqlRow> query(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    int changes() const override { return changes_; }

    void begin() override;
    void commit() override;
    void rollback() override;
    int schemaVersion() override;
    void setSchemaVersion(int version) override;
    const std::vector<std::string>& migrations() const override;

    // `?` placeholders become `$1`, `$2`, ... (outside quoted text).
    static std::string numberedPlaceholders(const std::string& sql);

  private:
    void connect();

    std::string connectionString_;
    pg_conn* connection_ = nullptr;
    int changes_ = 0;
};

}  // namespace vocle::server
