#include <gtest/gtest.h>

#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class LocalStoresTest : public ::testing::Test, protected StorageFixtureBase {
protected:
    LocalSettingsStore modesStore{folder, clock};
    FileStorageManager files{folder, clock};
    SessionStore sessions{files};
};

}  // namespace

TEST_F(LocalStoresTest, ModesLoadNoneEmptyOrCorrupt) {
    EXPECT_FALSE(modesStore.loadModes().has_value());
    EXPECT_TRUE(logs->lines().empty());

    writeText(vocleFile("modes.json"), "[]");
    auto empty = modesStore.loadModes();
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());
    EXPECT_TRUE(logs->contains("Loaded 0 modes from local storage"));

    writeText(vocleFile("modes.json"), "[{\"id\": 3}]");
    EXPECT_FALSE(modesStore.loadModes().has_value());
    EXPECT_TRUE(logs->contains("LocalSettingsStore loadModes error: "));
    EXPECT_TRUE(std::filesystem::exists(vocleFile("modes.json.corrupt-800000000")));
}

TEST_F(LocalStoresTest, ModesRoundTripInOrder) {
    Mode a = Mode::fresh("Default");
    a.isDefault = true;
    a.modeTypeId = "22222222-2222-2222-2222-222222222222";
    Mode b = Mode::fresh("Slack");
    b.type.reset();
    b.activationWebsite = "app.slack.com";
    modesStore.saveModes({a, b});
    EXPECT_TRUE(logs->contains("Local modes saved -> " + vocleFile("modes.json").string() + " (2 modes)"));
    auto loaded = modesStore.loadModes();
    ASSERT_TRUE(loaded.has_value());
    EXPECT_EQ(*loaded, (std::vector<Mode>{a, b}));
    EXPECT_EQ(readText(vocleFile("modes.json")).find('\n'), std::string::npos);
}

TEST_F(LocalStoresTest, SessionRoundTripAndMissingKeyMeansSignedOut) {
    int changes = 0;
    auto sub = sessions.sessionDidChange.subscribe([&] { ++changes; });
    EXPECT_FALSE(sessions.load().has_value());
    const SupabaseSession s{"acc", "ref", "user-1", "a@b.c"};
    sessions.save(s);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(sessions.load(), s);
    EXPECT_EQ(readText(vocleFile("session.json")),
              R"({"access_token":"acc","email":"a@b.c","refresh_token":"ref","user_id":"user-1"})");

    writeText(vocleFile("session.json"), R"({"access_token":"a","refresh_token":"r","user_id":""})");
    EXPECT_FALSE(sessions.load().has_value());
}

TEST_F(LocalStoresTest, UpdateTokensRewritesOnlyRealChanges) {
    int changes = 0;
    auto sub = sessions.sessionDidChange.subscribe([&] { ++changes; });
    sessions.updateTokens("x", "y");
    EXPECT_EQ(changes, 0) << "rotation without a stored session is not persisted";
    EXPECT_FALSE(sessions.load().has_value());

    sessions.save({"acc", "ref", "u", "e@x.y"});
    changes = 0;
    logs->clear();
    sessions.updateTokens("acc", "ref");
    EXPECT_EQ(changes, 0);
    EXPECT_FALSE(logs->contains("Session saved to"));

    sessions.updateTokens("acc2", "ref");
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(sessions.load(), (SupabaseSession{"acc2", "ref", "u", "e@x.y"}));
}

TEST_F(LocalStoresTest, SignOutLeavesNoSessionAndIsAnnounced) {
    sessions.save({"acc", "ref", "u", "e@x.y"});
    int changes = 0;
    auto sub = sessions.sessionDidChange.subscribe([&] {
        ++changes;
        EXPECT_FALSE(sessions.load().has_value()) << "announced after the file is gone";
    });
    sessions.clear();
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(sessions.load().has_value());
    EXPECT_FALSE(std::filesystem::exists(vocleFile("session.json")));
}
