#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/FileIO.h"
#include "storage/RemoteInputGrantStore.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class RemoteInputGrantStoreTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    RemoteInputGrantStore store{folder, clock};
};

TEST_F(RemoteInputGrantStoreTest, TheTokenIsKeptForItsOwnerOnlyAndForgottenOnRequest) {
    EXPECT_EQ(store.load(), std::nullopt);
    store.save(std::string("5f1c-token"));
    EXPECT_EQ(store.load(), "5f1c-token");
    EXPECT_EQ(readFile(vocleFile("remote-desktop.json")).value_or(""),
              "{\n  \"restoreToken\": \"5f1c-token\"\n}");
    const auto perms = std::filesystem::status(vocleFile("remote-desktop.json")).permissions();
    EXPECT_EQ(perms & (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
              std::filesystem::perms::none);
    store.save(std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(vocleFile("remote-desktop.json")));
    EXPECT_EQ(store.load(), std::nullopt);
}

TEST_F(RemoteInputGrantStoreTest, AnUnreadableFileIsKeptAsideAndReadsAsNoToken) {
    std::filesystem::create_directories(vocleFile(""));
    std::ofstream(vocleFile("remote-desktop.json")) << "{\"restoreToken\": 7";
    EXPECT_EQ(store.load(), std::nullopt);
    bool kept = false;
    for (const auto& entry : std::filesystem::directory_iterator(vocleFile("")))
        kept |= entry.path().filename().string().rfind("remote-desktop.json.corrupt-", 0) == 0;
    EXPECT_TRUE(kept);
    std::ofstream(vocleFile("remote-desktop.json")) << "{\"restoreToken\": 7}";
    EXPECT_EQ(store.load(), std::nullopt) << "a token of the wrong type is no token";
}

}  // namespace
