#include "store/PostgresStore.h"

#include <libpq-fe.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace vocle::server {

namespace {

// The same schema as SQLite's, step for step, in PostgreSQL's types.
const std::vector<std::string>& postgresMigrations() {
    static const std::vector<std::string> steps = {
        R"sql(
        CREATE TABLE users (
            id TEXT PRIMARY KEY,
            email TEXT NOT NULL UNIQUE,
            created_at DOUBLE PRECISION NOT NULL
        );
        CREATE TABLE otp_codes (
            id BIGSERIAL PRIMARY KEY,
            email TEXT NOT NULL,
            code_hash TEXT NOT NULL,
            salt TEXT NOT NULL,
            created_at DOUBLE PRECISION NOT NULL,
            expires_at DOUBLE PRECISION NOT NULL,
            attempts INTEGER NOT NULL DEFAULT 0,
            state TEXT NOT NULL DEFAULT 'active'
        );
        CREATE INDEX otp_codes_email ON otp_codes(email, created_at);
        CREATE TABLE tokens (
            hash TEXT PRIMARY KEY,
            user_id TEXT NOT NULL REFERENCES users(id),
            kind TEXT NOT NULL,
            created_at DOUBLE PRECISION NOT NULL,
            expires_at DOUBLE PRECISION NOT NULL,
            revoked INTEGER NOT NULL DEFAULT 0
        );
        CREATE INDEX tokens_user ON tokens(user_id);
        CREATE TABLE settings (
            user_id TEXT PRIMARY KEY REFERENCES users(id),
            version BIGINT NOT NULL,
            document TEXT NOT NULL,
            updated_at DOUBLE PRECISION NOT NULL
        );
        CREATE TABLE settings_history (
            user_id TEXT NOT NULL REFERENCES users(id),
            version BIGINT NOT NULL,
            document TEXT NOT NULL,
            created_at DOUBLE PRECISION NOT NULL,
            PRIMARY KEY (user_id, version)
        );
        CREATE TABLE support_messages (
            id BIGSERIAL PRIMARY KEY,
            user_id TEXT REFERENCES users(id),
            message TEXT NOT NULL,
            device_id TEXT,
            app_version TEXT,
            created_at DOUBLE PRECISION NOT NULL
        );
        )sql",
        R"sql(
        ALTER TABLE tokens ADD COLUMN family TEXT;
        ALTER TABLE tokens ADD COLUMN rotated_at DOUBLE PRECISION;
        ALTER TABLE tokens ADD COLUMN successor_salt TEXT;
        UPDATE tokens SET family = user_id || ':' || created_at;
        CREATE INDEX tokens_family ON tokens(family);
        )sql",
    };
    return steps;
}

// Arbitrary, fixed: the key of the advisory lock all vocle-server transactions share.
constexpr const char* kLockKey = "5639710284";

// Type OIDs from PostgreSQL's catalogue (pg_type.dat); stable across versions.
constexpr Oid kBool = 16, kInt8 = 20, kInt2 = 21, kInt4 = 23, kText = 25, kFloat4 = 700, kFloat8 = 701,
              kNumeric = 1700;

struct Result {
    PGresult* result;
    ~Result() { PQclear(result); }
};

}  // namespace

PostgresStore::PostgresStore(std::string connectionString) : connectionString_(std::move(connectionString)) {
    connect();
}

PostgresStore::~PostgresStore() {
    if (connection_) PQfinish(connection_);
}

void PostgresStore::connect() {
    if (connection_) PQfinish(connection_);
    connection_ = PQconnectdb(connectionString_.c_str());
    if (PQstatus(connection_) != CONNECTION_OK) {
        std::string message = PQerrorMessage(connection_);
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
        PQfinish(connection_);
        connection_ = nullptr;
        throw DatabaseError("Cannot connect to PostgreSQL: " + message);
    }
    exec("SET client_min_messages = warning");
}

std::string PostgresStore::numberedPlaceholders(const std::string& sql) {
    std::string out;
    out.reserve(sql.size() + 16);
    int next = 1;
    char quote = 0;
    for (char ch : sql) {
        if (quote) {
            if (ch == quote) quote = 0;
            out.push_back(ch);
        } else if (ch == '\'' || ch == '"') {
            quote = ch;
            out.push_back(ch);
        } else if (ch == '?') {
            out += "$" + std::to_string(next++);
        } else {
            out.push_back(ch);
        }
    }
    return out;
}

std::vector<SqlRow> PostgresStore::query(const std::string& sql, const std::vector<SqlValue>& params) {
    // Reconnecting here could run the rest of a transaction outside it; only begin() reconnects.
    if (!connection_) throw DatabaseError("The connection to PostgreSQL was lost");
    std::vector<Oid> types;
    std::vector<std::string> texts;
    std::vector<const char*> values;
    types.reserve(params.size());
    texts.reserve(params.size());
    for (const SqlValue& v : params) {
        if (std::holds_alternative<std::nullptr_t>(v)) {
            types.push_back(0);
            texts.emplace_back();
        } else if (auto* n = std::get_if<int64_t>(&v)) {
            types.push_back(kInt8);
            texts.push_back(std::to_string(*n));
        } else if (auto* d = std::get_if<double>(&v)) {
            char buffer[40];
            std::snprintf(buffer, sizeof buffer, "%.17g", *d);
            types.push_back(kFloat8);
            texts.emplace_back(buffer);
        } else {
            types.push_back(kText);
            texts.push_back(std::get<std::string>(v));
        }
    }
    for (size_t i = 0; i < params.size(); ++i)
        values.push_back(std::holds_alternative<std::nullptr_t>(params[i]) ? nullptr : texts[i].c_str());

    Result r{params.empty() ? PQexec(connection_, numberedPlaceholders(sql).c_str())
                            : PQexecParams(connection_, numberedPlaceholders(sql).c_str(),
                                           static_cast<int>(params.size()), types.data(), values.data(), nullptr,
                                           nullptr, 0)};
    const ExecStatusType status = PQresultStatus(r.result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        std::string message = PQresultErrorMessage(r.result);
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
        if (PQstatus(connection_) != CONNECTION_OK) {
            PQfinish(connection_);
            connection_ = nullptr;
        }
        throw DatabaseError("SQL failed: " + message);
    }
    const char* affected = PQcmdTuples(r.result);
    changes_ = affected && *affected ? std::atoi(affected) : 0;

    std::vector<SqlRow> rows;
    const int columns = PQnfields(r.result);
    for (int row = 0; row < PQntuples(r.result); ++row) {
        SqlRow out;
        for (int c = 0; c < columns; ++c) {
            if (PQgetisnull(r.result, row, c)) {
                out.values.emplace_back(nullptr);
                continue;
            }
            const char* text = PQgetvalue(r.result, row, c);
            switch (PQftype(r.result, c)) {
                case kInt2:
                case kInt4:
                case kInt8:
                    out.values.emplace_back(static_cast<int64_t>(std::strtoll(text, nullptr, 10)));
                    break;
                case kBool:
                    out.values.emplace_back(static_cast<int64_t>(text[0] == 't'));
                    break;
                case kFloat4:
                case kFloat8:
                case kNumeric:
                    out.values.emplace_back(std::strtod(text, nullptr));
                    break;
                default:
                    out.values.emplace_back(std::string(text, static_cast<size_t>(PQgetlength(r.result, row, c))));
            }
        }
        rows.push_back(std::move(out));
    }
    return rows;
}

void PostgresStore::exec(const std::string& sql, const std::vector<SqlValue>& params) {
    query(sql, params);
}

void PostgresStore::begin() {
    if (!connection_ || PQstatus(connection_) != CONNECTION_OK) connect();
    exec("BEGIN");
    exec(std::string("SELECT pg_advisory_xact_lock(") + kLockKey + ")");
}

void PostgresStore::commit() {
    exec("COMMIT");
}

void PostgresStore::rollback() {
    if (connection_) exec("ROLLBACK");
}

int PostgresStore::schemaVersion() {
    exec("CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)");
    auto row = queryOne("SELECT version FROM schema_version");
    return row ? static_cast<int>(row->integer(0)) : 0;
}

void PostgresStore::setSchemaVersion(int version) {
    exec("DELETE FROM schema_version");
    exec("INSERT INTO schema_version (version) VALUES (?)", {static_cast<int64_t>(version)});
}

const std::vector<std::string>& PostgresStore::migrations() const {
    return postgresMigrations();
}

}  // namespace vocle::server
