#include <gtest/gtest.h>

#include "store/Database.h"
#include "store/PostgresStore.h"

using namespace vocle::server;

TEST(PostgresStoreTest, PlaceholdersAreNumberedOutsideQuotedText) {
    EXPECT_EQ(PostgresStore::numberedPlaceholders("SELECT a FROM t WHERE b = ? AND c > ? - ?"),
              "SELECT a FROM t WHERE b = $1 AND c > $2 - $3");
    EXPECT_EQ(PostgresStore::numberedPlaceholders("UPDATE t SET s = 'why?' WHERE \"odd?\" = ?"),
              "UPDATE t SET s = 'why?' WHERE \"odd?\" = $1");
    EXPECT_EQ(PostgresStore::numberedPlaceholders("SELECT 'it''s?', ?"), "SELECT 'it''s?', $1");
}

TEST(PostgresStoreTest, ConnectionStringsAreToldApartFromFiles) {
    for (const char* postgres : {"postgresql://vocle@db.internal/vocle", "postgres://u:p@h:5433/d",
                                 "host=/run/postgresql dbname=vocle", "dbname=vocle user=vocle"}) {
        EXPECT_TRUE(Database::isPostgres(postgres)) << postgres;
    }
    for (const char* file : {"/var/lib/vocle-server/vocle-server.sqlite3", "vocle.sqlite3", "/tmp/a=b/c.db"}) {
        EXPECT_FALSE(Database::isPostgres(file)) << file;
    }
}

TEST(PostgresStoreTest, AnUnreachableServerIsAClearError) {
    try {
        Database::open("host=/nonexistent-vocle-socket-dir dbname=vocle connect_timeout=2");
        FAIL() << "expected a connection error";
    } catch (const DatabaseError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Cannot connect to PostgreSQL: ", 0), 0u) << e.what();
    }
}
