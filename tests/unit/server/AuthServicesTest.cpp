#include <gtest/gtest.h>

#include <regex>

#include "auth/OtpService.h"
#include "auth/TokenService.h"
#include "mail/OutboxMailer.h"
#include "store/Database.h"
#include "store/SettingsStore.h"
#include "support/TempDir.h"
#include "unit/server/TestClock.h"

using namespace vocle;
using namespace vocle::server;
using vocle::testing::TempDir;
using vocle::testing::TestClock;

namespace {

class AuthServicesTest : public ::testing::Test {
  protected:
    TempDir dir;
    TestClock clock;
    Database db{dir / "db.sqlite3"};
    OutboxMailer mailer{dir / "outbox", clock};
    TokenService tokens{db, clock, 3600, 30 * 86400};
    OtpService otp{db, tokens, mailer, clock, "Vocle <no-reply@vocle.test>"};

    size_t mailCount() const {
        if (!std::filesystem::exists(dir / "outbox")) return 0;
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir / "outbox"),
                                                 std::filesystem::directory_iterator()));
    }
    // The code of the newest message; with `to`, the newest one to that address.
    std::string latestCode(const std::string& to = {}) const {
        std::filesystem::path newest;
        for (const auto& e : std::filesystem::directory_iterator(dir / "outbox")) {
            if (!to.empty() &&
                vocle::testing::readText(e.path()).find("To: " + to + "\r\n") == std::string::npos) {
                continue;
            }
            if (newest.empty() || e.path().filename() > newest.filename()) newest = e.path();
        }
        std::smatch m;
        const std::string text = vocle::testing::readText(newest);
        EXPECT_TRUE(std::regex_search(text, m, std::regex(R"(\r\n    (\d{6})\r\n)")));
        return m[1];
    }
};

}  // namespace

TEST_F(AuthServicesTest, CodeSignsInOnceAndCreatesTheUserOnce) {
    otp.sendCode(" Someone@Example.COM ");
    const std::string code = latestCode();
    const auto first = otp.verify("someone@example.com", code);
    EXPECT_EQ(first.user.email, "someone@example.com");
    EXPECT_EQ(first.tokens.accessToken.size(), 43u);                     // 256 bits, base64url
    EXPECT_THROW(otp.verify("someone@example.com", code), SignInError);  // single use

    clock.advance(31);
    otp.sendCode("someone@example.com");
    const auto second = otp.verify("someone@example.com", latestCode());
    EXPECT_EQ(second.user.id, first.user.id);
    EXPECT_NE(second.tokens.accessToken, first.tokens.accessToken);
}

TEST_F(AuthServicesTest, SecretsAreStoredOnlyHashed) {
    otp.sendCode("a@example.com");
    const std::string code = latestCode();
    const auto result = otp.verify("a@example.com", code);
    const std::string dump = db.transaction([](SqlConnection& c) {
        std::string all;
        for (const auto& row : c.query("SELECT code_hash, salt FROM otp_codes"))
            all += row.text(0) + row.text(1);
        for (const auto& row : c.query("SELECT hash FROM tokens")) all += row.text(0);
        return all;
    });
    EXPECT_EQ(dump.find(code), std::string::npos);
    EXPECT_EQ(dump.find(result.tokens.accessToken), std::string::npos);
    EXPECT_EQ(dump.find(result.tokens.refreshToken), std::string::npos);
}

TEST_F(AuthServicesTest, CodesExpireAfterTenMinutes) {
    otp.sendCode("a@example.com");
    const std::string code = latestCode();
    clock.advance(600);
    EXPECT_THROW(otp.verify("a@example.com", code), SignInError);
}

TEST_F(AuthServicesTest, FiveWrongAttemptsVoidTheCode) {
    otp.sendCode("a@example.com");
    const std::string code = latestCode();
    const std::string wrong = code == "000000" ? "111111" : "000000";
    for (int i = 0; i < 4; ++i) EXPECT_THROW(otp.verify("a@example.com", wrong), SignInError);
    EXPECT_NO_THROW(otp.verify("a@example.com", code));  // four misses leave it usable

    clock.advance(31);
    otp.sendCode("a@example.com");
    const std::string next = latestCode();
    for (int i = 0; i < 5; ++i)
        EXPECT_THROW(otp.verify("a@example.com", next == "000000" ? "111111" : "000000"), SignInError);
    EXPECT_THROW(otp.verify("a@example.com", next), SignInError);
}

TEST_F(AuthServicesTest, RateLimitsNewCodesPerAddress) {
    otp.sendCode("a@example.com");
    otp.sendCode("a@example.com");  // within 30 s: ignored
    EXPECT_EQ(mailCount(), 1u);
    otp.sendCode("b@example.com");  // other addresses are independent
    EXPECT_EQ(mailCount(), 2u);
    for (int i = 0; i < 12; ++i) {
        clock.advance(30);
        otp.sendCode("a@example.com");
    }
    EXPECT_EQ(mailCount(), 11u);  // 10 for a@ in the hour, 1 for b@
    clock.advance(3600);
    otp.sendCode("a@example.com");
    EXPECT_EQ(mailCount(), 12u);
}

TEST_F(AuthServicesTest, ANewCodeReplacesTheOldOne) {
    otp.sendCode("a@example.com");
    const std::string old = latestCode();
    clock.advance(30);
    otp.sendCode("a@example.com");
    const std::string fresh = latestCode();
    if (old != fresh) {
        EXPECT_THROW(otp.verify("a@example.com", old), SignInError);
    }
    EXPECT_NO_THROW(otp.verify("a@example.com", fresh));
}

TEST_F(AuthServicesTest, InvalidAddressesAreRejected) {
    for (const char* bad :
         {"", "plain", "a@b", "@example.com", "a@@example.com", "a b@example.com", "a@example."}) {
        EXPECT_THROW(otp.sendCode(bad), SignInError) << bad;
    }
}

TEST_F(AuthServicesTest, ExpiredAccessIsRenewedOnlyWithItsValidRefreshToken) {
    otp.sendCode("a@example.com");
    const auto session = otp.verify("a@example.com", latestCode());
    const BearerCredentials both{session.tokens.accessToken, session.tokens.refreshToken};

    auto fresh = tokens.authenticate(both);
    ASSERT_TRUE(fresh);
    EXPECT_FALSE(fresh->rotated);  // still valid: nothing to rotate

    clock.advance(3600);
    EXPECT_FALSE(tokens.authenticate({session.tokens.accessToken, ""}));
    auto rotated = tokens.authenticate(both);
    ASSERT_TRUE(rotated && rotated->rotated);
    EXPECT_EQ(rotated->userId, session.user.id);
    const BearerCredentials next{rotated->rotated->accessToken, rotated->rotated->refreshToken};
    EXPECT_TRUE(tokens.authenticate(next));

    // The spent refresh token stays until it expires, to recognise a replay; expired access tokens wait
    // for their refresh tokens.
    EXPECT_EQ(tokens.purgeExpired(), 0);
    EXPECT_TRUE(tokens.authenticate(next));

    clock.advance(30 * 86400);  // both expired now
    EXPECT_FALSE(tokens.authenticate(next));
    EXPECT_GE(tokens.purgeExpired(), 1);
    EXPECT_EQ(db.transaction([](SqlConnection& c) {
        return c.queryOne("SELECT COUNT(*) FROM tokens WHERE kind = 'refresh'")->integer(0);
    }),
              0);
}

TEST_F(AuthServicesTest, RefreshTokenOfAnotherUserDoesNotRenew) {
    otp.sendCode("a@example.com");
    const auto a = otp.verify("a@example.com", latestCode("a@example.com"));
    otp.sendCode("b@example.com");
    const auto b = otp.verify("b@example.com", latestCode("b@example.com"));
    clock.advance(3601);
    EXPECT_FALSE(tokens.authenticate({a.tokens.accessToken, b.tokens.refreshToken}));
    EXPECT_FALSE(tokens.authenticate({"unknown", a.tokens.refreshToken}));
    EXPECT_TRUE(tokens.authenticate({a.tokens.accessToken, a.tokens.refreshToken}));
}

TEST_F(AuthServicesTest, RequestsRacingARotationShareOneNewPairAcrossInstances) {
    otp.sendCode("a@example.com");
    const auto session = otp.verify("a@example.com", latestCode());
    const BearerCredentials spent{session.tokens.accessToken, session.tokens.refreshToken};
    otp.sendCode("b@example.com");
    const auto b = otp.verify("b@example.com", latestCode("b@example.com"));
    // A second server on the same database file.
    Database sharedFile{dir / "db.sqlite3"};
    TokenService otherInstance{sharedFile, clock, 3600, 30 * 86400, 30};

    clock.advance(3600);
    const auto first = tokens.authenticate(spent);
    ASSERT_TRUE(first && first->rotated);
    const auto second = otherInstance.authenticate(spent);
    clock.advance(30);  // the last moment of the grace window
    const auto third = tokens.authenticate(spent);
    for (const auto* outcome : {&second, &third}) {
        ASSERT_TRUE(*outcome && (*outcome)->rotated);
        EXPECT_EQ((*outcome)->userId, session.user.id);
        EXPECT_EQ((*outcome)->rotated->accessToken, first->rotated->accessToken);
        EXPECT_EQ((*outcome)->rotated->refreshToken, first->rotated->refreshToken);
    }
    EXPECT_EQ(db.transaction([&](SqlConnection& c) {
        return c.queryOne("SELECT COUNT(*) FROM tokens WHERE kind = 'refresh' AND revoked = 0 AND user_id = ?",
                          {session.user.id})
            ->integer(0);
    }),
              1);  // one live chain, not one per request
    auto renewed = otherInstance.authenticate({first->rotated->accessToken, first->rotated->refreshToken});
    ASSERT_TRUE(renewed);
    EXPECT_FALSE(renewed->rotated);
    // The grace is for the same sign-in only: another user's expired access token does not get the pair.
    EXPECT_FALSE(tokens.authenticate({b.tokens.accessToken, session.tokens.refreshToken}));
}

TEST_F(AuthServicesTest, ASpentRefreshTokenAfterTheGraceWindowEndsItsWholeChain) {
    otp.sendCode("a@example.com");
    const auto laptop = otp.verify("a@example.com", latestCode());
    clock.advance(31);
    otp.sendCode("a@example.com");
    const auto desktop = otp.verify("a@example.com", latestCode());

    clock.advance(3600);
    const BearerCredentials spent{laptop.tokens.accessToken, laptop.tokens.refreshToken};
    const auto once = tokens.authenticate(spent);
    ASSERT_TRUE(once && once->rotated);
    clock.advance(3600);  // the chain moves on once more, as a client in daily use does
    const auto twice = tokens.authenticate({once->rotated->accessToken, once->rotated->refreshToken});
    ASSERT_TRUE(twice && twice->rotated);
    const BearerCredentials current{twice->rotated->accessToken, twice->rotated->refreshToken};
    ASSERT_TRUE(tokens.authenticate(current));

    // The first refresh token comes back an hour after it was spent: a copy is in other hands.
    EXPECT_FALSE(tokens.authenticate(spent));
    EXPECT_FALSE(tokens.authenticate(current));
    EXPECT_FALSE(tokens.authenticate({current.accessToken, ""}));
    // Only that sign-in ends; the other device renews as usual.
    const auto other = tokens.authenticate({desktop.tokens.accessToken, desktop.tokens.refreshToken});
    ASSERT_TRUE(other && other->rotated);
}

TEST_F(AuthServicesTest, TheGraceWindowIsConfigurable) {
    TokenService strict{db, clock, 3600, 30 * 86400, 5};
    otp.sendCode("a@example.com");
    const auto session = otp.verify("a@example.com", latestCode());
    const BearerCredentials spent{session.tokens.accessToken, session.tokens.refreshToken};
    clock.advance(3600);
    const auto first = strict.authenticate(spent);
    ASSERT_TRUE(first && first->rotated);
    clock.advance(5);
    EXPECT_TRUE(strict.authenticate(spent));
    clock.advance(0.5);
    EXPECT_FALSE(strict.authenticate(spent));
    EXPECT_FALSE(strict.authenticate({first->rotated->accessToken, first->rotated->refreshToken}));
}

TEST(SettingsStoreTest, EachBackupRaisesTheVersionAndConflictsAreRefused) {
    TempDir dir;
    TestClock clock;
    Database db(dir / "db.sqlite3");
    db.transaction([&](SqlConnection& c) {
        c.exec("INSERT INTO users (id, email, created_at) VALUES ('U', 'u@example.com', 0)");
    });
    SettingsStore store(db, clock, 3);
    EXPECT_EQ(store.load("U").version, 0);
    EXPECT_FALSE(store.load("U").document);
    EXPECT_EQ(store.save("U", Json{{"vocab_words", "a"}}, std::nullopt).version, 1);
    EXPECT_EQ(store.save("U", Json{{"vocab_words", "b"}}, 1).version, 2);
    try {
        store.save("U", Json{{"vocab_words", "c"}}, 1);
        FAIL() << "expected a conflict";
    } catch (const VersionConflict& e) {
        EXPECT_EQ(e.currentVersion, 2);
    }
    for (int i = 0; i < 5; ++i) store.save("U", Json{{"vocab_words", std::to_string(i)}}, std::nullopt);
    const auto loaded = store.load("U");
    EXPECT_EQ(loaded.version, 7);
    EXPECT_EQ(loaded.document->at("vocab_words"), "4");
    const int64_t kept = db.transaction(
        [](SqlConnection& c) { return c.queryOne("SELECT COUNT(*) FROM settings_history")->integer(0); });
    EXPECT_EQ(kept, 3);
}

TEST(DatabaseTest, SchemaIsCreatedInWalModeAndReopens) {
    TempDir dir;
    {
        Database db(dir / "db.sqlite3");
        EXPECT_EQ(db.schemaVersion(), Database::latestSchemaVersion());
        const std::string mode =
            db.transaction([](SqlConnection& c) { return c.queryOne("PRAGMA journal_mode")->text(0); });
        EXPECT_EQ(mode, "wal");
    }
    Database again(dir / "db.sqlite3");
    EXPECT_EQ(again.schemaVersion(), Database::latestSchemaVersion());
}
