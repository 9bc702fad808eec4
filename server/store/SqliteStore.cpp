#include "store/SqliteStore.h"

namespace vocle::server {

namespace {

// Each entry moves the schema one version up; never edit an entry once released, append a new one.
const std::vector<std::string>& sqliteMigrations() {
    static const std::vector<std::string> steps = {
        R"sql(
        CREATE TABLE users (
            id TEXT PRIMARY KEY,
            email TEXT NOT NULL UNIQUE,
            created_at REAL NOT NULL
        );
        CREATE TABLE otp_codes (
            id INTEGER PRIMARY KEY AUTOINCREMENT,
            email TEXT NOT NULL,
            code_hash TEXT NOT NULL,
            salt TEXT NOT NULL,
            created_at REAL NOT NULL,
            expires_at REAL NOT NULL,
            attempts INTEGER NOT NULL DEFAULT 0,
            state TEXT NOT NULL DEFAULT 'active'
        );
        CREATE INDEX otp_codes_email ON otp_codes(email, created_at);
        CREATE TABLE tokens (
            hash TEXT PRIMARY KEY,
            user_id TEXT NOT NULL REFERENCES users(id),
            kind TEXT NOT NULL,
            created_at REAL NOT NULL,
            expires_at REAL NOT NULL,
            revoked INTEGER NOT NULL DEFAULT 0
        );
        CREATE INDEX tokens_user ON tokens(user_id);
        CREATE TABLE settings (
            user_id TEXT PRIMARY KEY REFERENCES users(id),
            version INTEGER NOT NULL,
            document TEXT NOT NULL,
            updated_at REAL NOT NULL
        );
        CREATE TABLE settings_history (
            user_id TEXT NOT NULL REFERENCES users(id),
            version INTEGER NOT NULL,
            document TEXT NOT NULL,
            created_at REAL NOT NULL,
            PRIMARY KEY (user_id, version)
        );
        CREATE TABLE support_messages (
            id INTEGER PRIMARY KEY AUTOINCREMENT,
            user_id TEXT REFERENCES users(id),
            message TEXT NOT NULL,
            device_id TEXT,
            app_version TEXT,
            created_at REAL NOT NULL
        );
        )sql",
        // Rotation chains: every token of one sign-in shares a family; a rotated refresh token keeps when
        // it was rotated and the salt its successors were derived with, for the grace window and for
        // reuse detection. Pairs issued before this step each become a family of their own.
        R"sql(
        ALTER TABLE tokens ADD COLUMN family TEXT;
        ALTER TABLE tokens ADD COLUMN rotated_at REAL;
        ALTER TABLE tokens ADD COLUMN successor_salt TEXT;
        UPDATE tokens SET family = user_id || ':' || created_at;
        CREATE INDEX tokens_family ON tokens(family);
        )sql",
    };
    return steps;
}

void bindAll(sqlite3_stmt* stmt, const std::vector<SqlValue>& params) {
    for (size_t i = 0; i < params.size(); ++i) {
        const int index = static_cast<int>(i + 1);
        const SqlValue& v = params[i];
        if (std::holds_alternative<std::nullptr_t>(v)) {
            sqlite3_bind_null(stmt, index);
        } else if (auto* n = std::get_if<int64_t>(&v)) {
            sqlite3_bind_int64(stmt, index, *n);
        } else if (auto* d = std::get_if<double>(&v)) {
            sqlite3_bind_double(stmt, index, *d);
        } else {
            const auto& s = std::get<std::string>(v);
            sqlite3_bind_text(stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
        }
    }
}

}  // namespace

SqliteStore::SqliteStore(const std::filesystem::path& file) {
    if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) != SQLITE_OK) {
        std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        throw DatabaseError("Cannot open database " + file.string() + ": " + message);
    }
    sqlite3_busy_timeout(db_, 5000);
    exec("PRAGMA journal_mode=WAL");
    exec("PRAGMA synchronous=NORMAL");
    exec("PRAGMA foreign_keys=ON");
}

SqliteStore::~SqliteStore() {
    if (db_) sqlite3_close(db_);
}

// BEGIN IMMEDIATE takes the write lock at once, which excludes writers in other processes too.
void SqliteStore::begin() {
    exec("BEGIN IMMEDIATE");
}

void SqliteStore::commit() {
    exec("COMMIT");
}

void SqliteStore::rollback() {
    exec("ROLLBACK");
}

int SqliteStore::schemaVersion() {
    return static_cast<int>(queryOne("PRAGMA user_version")->integer(0));
}

void SqliteStore::setSchemaVersion(int version) {
    exec("PRAGMA user_version = " + std::to_string(version));
}

const std::vector<std::string>& SqliteStore::migrations() const {
    return sqliteMigrations();
}

size_t SqliteStore::migrationCount() {
    return sqliteMigrations().size();
}

std::vector<SqlRow> SqliteStore::query(const std::string& sql, const std::vector<SqlValue>& params) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        throw DatabaseError(std::string("SQL prepare failed: ") + sqlite3_errmsg(db_));
    }
    bindAll(stmt, params);
    std::vector<SqlRow> rows;
    for (;;) {
        const int rc = sqlite3_step(stmt);
        if (rc == SQLITE_DONE) break;
        if (rc != SQLITE_ROW) {
            std::string message = sqlite3_errmsg(db_);
            sqlite3_finalize(stmt);
            throw DatabaseError("SQL step failed: " + message);
        }
        SqlRow row;
        const int columns = sqlite3_column_count(stmt);
        for (int c = 0; c < columns; ++c) {
            switch (sqlite3_column_type(stmt, c)) {
                case SQLITE_INTEGER:
                    row.values.emplace_back(static_cast<int64_t>(sqlite3_column_int64(stmt, c)));
                    break;
                case SQLITE_FLOAT:
                    row.values.emplace_back(sqlite3_column_double(stmt, c));
                    break;
                case SQLITE_NULL:
                    row.values.emplace_back(nullptr);
                    break;
                default: {
                    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, c));
                    row.values.emplace_back(
                        std::string(text, static_cast<size_t>(sqlite3_column_bytes(stmt, c))));
                }
            }
        }
        rows.push_back(std::move(row));
    }
    sqlite3_finalize(stmt);
    return rows;
}

void SqliteStore::exec(const std::string& sql, const std::vector<SqlValue>& params) {
    if (params.empty()) {
        char* error = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
            std::string message = error ? error : "unknown error";
            sqlite3_free(error);
            throw DatabaseError("SQL failed: " + message);
        }
        return;
    }
    query(sql, params);
}

int SqliteStore::changes() const {
    return sqlite3_changes(db_);
}

}  // namespace vocle::server
