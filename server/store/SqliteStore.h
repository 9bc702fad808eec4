#pragma once

#include <sqlite3.h>

#include <filesystem>

#include "store/Database.h"

namespace vocle::server {

// SQLite file in WAL mode, one connection.
class SqliteStore final : public SqlStore {
  public:
    explicit SqliteStore(const std::filesystem::path& file);
    ~SqliteStore() override;

    void exec(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    std::vector<SqlRow> query(const std::string& sql, const std::vector<SqlValue>& params = {}) override;
    int changes() const override;

    void begin() override;
    void commit() override;
    void rollback() override;
    int schemaVersion() override;
    void setSchemaVersion(int version) override;
    const std::vector<std::string>& migrations() const override;
    static size_t migrationCount();

  private:
    sqlite3* db_ = nullptr;
};

}  // namespace vocle::server
