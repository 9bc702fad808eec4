#include "store/Database.h"

#include "foundation/Log.h"
#include "store/PostgresStore.h"
#include "store/SqliteStore.h"

namespace vocle::server {

int64_t SqlRow::integer(size_t i) const {
    const SqlValue& v = values.at(i);
    if (auto* n = std::get_if<int64_t>(&v)) return *n;
    if (auto* d = std::get_if<double>(&v)) return static_cast<int64_t>(*d);
    return 0;
}

double SqlRow::real(size_t i) const {
    const SqlValue& v = values.at(i);
    if (auto* d = std::get_if<double>(&v)) return *d;
    if (auto* n = std::get_if<int64_t>(&v)) return static_cast<double>(*n);
    return 0;
}

std::string SqlRow::text(size_t i) const {
    const SqlValue& v = values.at(i);
    if (auto* s = std::get_if<std::string>(&v)) return *s;
    return {};
}

std::optional<SqlRow> SqlConnection::queryOne(const std::string& sql, const std::vector<SqlValue>& params) {
    auto rows = query(sql, params);
    if (rows.empty()) return std::nullopt;
    return std::move(rows.front());
}

bool Database::isPostgres(const std::string& location) {
    return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0 ||
           (location.find('=') != std::string::npos && location.find('/') == std::string::npos) ||
           location.find("dbname=") != std::string::npos || location.find("host=") != std::string::npos;
}

std::unique_ptr<Database> Database::open(const std::string& location) {
    if (isPostgres(location))
        return std::unique_ptr<Database>(new Database(std::make_unique<PostgresStore>(location), "postgresql"));
    return std::make_unique<Database>(std::filesystem::path(location));
}

Database::Database(const std::filesystem::path& file) : Database(std::make_unique<SqliteStore>(file), "sqlite") {}

Database::Database(std::unique_ptr<SqlStore> store, std::string kind) : store_(std::move(store)), kind_(std::move(kind)) {
    if (store_->migrations().size() != static_cast<size_t>(latestSchemaVersion()))
        throw DatabaseError("The " + kind_ + " schema is out of step with the others");
    migrate();
}

Database::~Database() = default;

int Database::latestSchemaVersion() {
    return static_cast<int>(SqliteStore::migrationCount());
}

int Database::schemaVersion() {
    return transaction([this](SqlConnection&) { return store_->schemaVersion(); });
}

// Each step is its own transaction and re-reads the version inside it, so instances starting together
// on one database apply every step exactly once.
void Database::migrate() {
    const int latest = latestSchemaVersion();
    for (;;) {
        const int applied = transaction([&](SqlConnection& c) {
            const int current = store_->schemaVersion();
            if (current > latest) {
                throw DatabaseError("The database schema (version " + std::to_string(current) +
                                    ") is newer than this vocle-server understands (version " +
                                    std::to_string(latest) + ")");
            }
            if (current == latest) return 0;
            c.exec(store_->migrations()[static_cast<size_t>(current)]);
            store_->setSchemaVersion(current + 1);
            return current + 1;
        });
        if (applied == 0) return;
        log("vocle-server: database schema migrated to version ", applied);
    }
}

}  // namespace vocle::server
