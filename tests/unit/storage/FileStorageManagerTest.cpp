#include <gtest/gtest.h>

#include "storage/FileStorageManager.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class FileStorageManagerTest : public ::testing::Test, protected StorageFixtureBase {
protected:
    FileStorageManager files{folder, clock};

    std::vector<std::filesystem::path> keptCopies(const std::string& name) const {
        std::vector<std::filesystem::path> out;
        for (const auto& e : std::filesystem::directory_iterator(vocleFile("").parent_path())) {
            if (e.path().filename().string().rfind(name + ".corrupt-", 0) == 0) out.push_back(e.path());
        }
        return out;
    }
};

constexpr const char* kFullSettings = R"({
  "textReplacements": [{"from": "new line", "to": "\n"}],
  "vocabularyWords": "Kubernetes, Vocle",
  "useSystemDefaultAudio": false,
  "inputDeviceUID": "alsa_input.usb",
  "enableSoundEffects": false,
  "soundVolume": 0.25,
  "toggleShortcut": "eyJrZXlDb2RlIjo0OX0="
})";

}  // namespace

TEST_F(FileStorageManagerTest, FirstStartCreatesFolderAndReturnsDefaults) {
    const AppSettings s = files.loadSettings();
    EXPECT_TRUE(std::filesystem::is_directory(home.path() / "Vocle"));
    EXPECT_TRUE(logs->contains("No settings file found, returning defaults"));
    EXPECT_DOUBLE_EQ(s.soundVolume, 0.6);
    EXPECT_TRUE(s.useSystemDefaultAudio);
    EXPECT_TRUE(s.enableSoundEffects);
    EXPECT_TRUE(s.textReplacements.empty());
    EXPECT_EQ(s.vocabularyWords, "");
    EXPECT_FALSE(s.lastActiveModeId || s.inputDeviceUID || s.inputDeviceName || s.toggleShortcut ||
                 s.cancelShortcut);
}

TEST_F(FileStorageManagerTest, SettingsRoundTripWritesOptionalKeysOnlyWhenPresent) {
    AppSettings s;
    s.vocabularyWords = "alpha";
    s.textReplacements.push_back({Uuid::random(), "slack at here", "@here"});
    files.saveSettings(s);
    const auto text = readText(vocleFile("settings.json"));
    for (const char* key : {"lastActiveModeId", "inputDeviceUID", "inputDeviceName", "toggleShortcut",
                            "cancelShortcut", "null"}) {
        EXPECT_EQ(text.find(key), std::string::npos) << key;
    }
    EXPECT_NE(text.find("\n  \""), std::string::npos) << "settings are pretty-printed";
    EXPECT_TRUE(logs->contains("Settings saved to " + vocleFile("settings.json").string()));

    s.lastActiveModeId = "ABC";
    s.toggleShortcut = std::string(R"({"keyCode":49,"modifiersRaw":524288})");
    files.saveSettings(s);
    const AppSettings loaded = files.loadSettings();
    EXPECT_EQ(loaded.lastActiveModeId, "ABC");
    EXPECT_EQ(loaded.toggleShortcut, s.toggleShortcut);
    ASSERT_EQ(loaded.textReplacements.size(), 1u);
    EXPECT_EQ(loaded.textReplacements[0].to, "@here");
    EXPECT_TRUE(logs->contains("Loaded settings from "));
}

TEST_F(FileStorageManagerTest, DecodingIsStrictForRequiredKeysAndLenientForOptionalOnes) {
    writeText(vocleFile("settings.json"), kFullSettings);
    const AppSettings ok = files.loadSettings();
    EXPECT_EQ(ok.vocabularyWords, "Kubernetes, Vocle");
    EXPECT_DOUBLE_EQ(ok.soundVolume, 0.25);
    EXPECT_EQ(ok.toggleShortcut, std::string(R"({"keyCode":49})"));
    EXPECT_FALSE(ok.lastActiveModeId.has_value());

    // One missing required key gives the whole default record, not a merge.
    std::string missing = kFullSettings;
    missing.replace(missing.find("\"soundVolume\": 0.25,"), 20, "");
    writeText(vocleFile("settings.json"), missing);
    const AppSettings fallback = files.loadSettings();
    EXPECT_EQ(fallback.vocabularyWords, "");
    EXPECT_TRUE(fallback.useSystemDefaultAudio);
    EXPECT_TRUE(logs->contains("FileStorageManager settings load error: "));
    EXPECT_TRUE(logs->contains("soundVolume"));
}

TEST_F(FileStorageManagerTest, ReplacementIdsAreFreshOnEveryLoad) {
    writeText(vocleFile("settings.json"), kFullSettings);
    EXPECT_NE(files.loadSettings().textReplacements[0].id, files.loadSettings().textReplacements[0].id);
}

TEST_F(FileStorageManagerTest, UnreadableFileIsKeptAsideOncePerContent) {
    writeText(vocleFile("settings.json"), "{ not json");
    files.loadSettings();
    clock.advance(5);
    files.loadSettings();
    auto kept = keptCopies("settings.json");
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].filename().string(), "settings.json.corrupt-800000000");
    EXPECT_EQ(readText(kept[0]), "{ not json");
    EXPECT_TRUE(logs->contains("Kept unreadable settings.json as "));

    writeText(vocleFile("settings.json"), "[]");
    files.loadSettings();
    EXPECT_EQ(keptCopies("settings.json").size(), 2u);
    // The broken original stays until the next save replaces it.
    EXPECT_EQ(readText(vocleFile("settings.json")), "[]");
}

TEST_F(FileStorageManagerTest, OnboardingStateNeedsAllFourKeys) {
    EXPECT_EQ(files.loadOnboardingState(), OnboardingState{});
    EXPECT_TRUE(logs->contains("No onboarding state file found, returning defaults"));

    OnboardingState state{true, false, 4, true};
    files.saveOnboardingState(state);
    EXPECT_EQ(files.loadOnboardingState(), state);
    EXPECT_TRUE(logs->contains("Onboarding state saved"));

    writeText(vocleFile("onboarding.json"), R"({"firstRecordingComplete":true,"isFirstLaunch":false,"lastSelectedTab":2})");
    const auto fallback = files.loadOnboardingState();
    EXPECT_TRUE(fallback.isFirstLaunch);
    EXPECT_EQ(fallback.lastSelectedTab, -1);
    EXPECT_TRUE(logs->contains("Failed to load onboarding state: "));
}

TEST_F(FileStorageManagerTest, DeviceIdIsTrimmedOrReplaced) {
    writeText(vocleFile("device-id.txt"), "  abc\n");
    EXPECT_EQ(files.deviceId(), "abc");
    EXPECT_EQ(readText(vocleFile("device-id.txt")), "  abc\n") << "a usable id is not rewritten";
    EXPECT_FALSE(logs->contains("Generated new device ID"));

    for (const std::string& bad : {std::string(" \n\t "), std::string(""), std::string("\xff\xfe")}) {
        writeText(vocleFile("device-id.txt"), bad);
        const std::string id = files.deviceId();
        EXPECT_TRUE(Uuid::parse(id).has_value()) << id;
        EXPECT_EQ(id, Uuid::parse(id)->string()) << "canonical upper case";
        EXPECT_EQ(readText(vocleFile("device-id.txt")), id) << "written without a newline";
        EXPECT_TRUE(logs->contains("Generated new device ID: " + id));
        EXPECT_EQ(files.deviceId(), id) << "stable once written";
    }
}

TEST_F(FileStorageManagerTest, SessionFileIsWrittenAndCleared) {
    files.clearSession();
    EXPECT_TRUE(logs->contains("Session cleared"));
    files.saveSession("{\"x\":1}");
    EXPECT_EQ(readText(vocleFile("session.json")), "{\"x\":1}");
    files.clearSession();
    EXPECT_FALSE(std::filesystem::exists(vocleFile("session.json")));
    EXPECT_EQ(logs->count("Session cleared"), 2u);
}

TEST_F(FileStorageManagerTest, TemplatesCacheExpiresAtExactlyOneDay) {
    EXPECT_FALSE(files.loadCloudTemplatesCache().has_value());
    files.saveCloudTemplatesCache(R"({"templates":[]})");
    EXPECT_TRUE(std::filesystem::exists(home.path() / "Vocle" / "cache" / "cloud-templates.json"));
    clock.advance(86399);
    EXPECT_EQ(files.loadCloudTemplatesCache(), std::optional<std::string>(R"({"templates":[]})"));
    clock.advance(1);
    EXPECT_FALSE(files.loadCloudTemplatesCache().has_value());
    EXPECT_TRUE(logs->contains("Cloud templates cache expired"));
    EXPECT_TRUE(std::filesystem::exists(home.path() / "Vocle" / "cache" / "cloud-templates.json"));
}

TEST_F(FileStorageManagerTest, TemplatesCacheFromTheFutureCountsAsFresh) {
    files.saveCloudTemplatesCache("T");
    VirtualMainQueue earlier(clock.now() - 1000);
    FileStorageManager pastFiles(folder, earlier);
    EXPECT_EQ(pastFiles.loadCloudTemplatesCache(), std::optional<std::string>("T"));
}

TEST_F(FileStorageManagerTest, CachedAtIsStoredAsSecondsSince2001) {
    files.saveCloudTemplatesCache("T");
    const Json json = Json::parse(readText(home.path() / "Vocle" / "cache" / "cloud-templates.json"));
    EXPECT_DOUBLE_EQ(json["cachedAt"].get<double>(), 800'000'000.0 - 978'307'200.0);
}

TEST_F(FileStorageManagerTest, FailedSaveIsLoggedAndLeavesWhatWasThere) {
    // A folder in the file's place makes the final rename fail, even for root.
    std::filesystem::create_directories(vocleFile("settings.json") / "keep");
    AppSettings changed;
    changed.vocabularyWords = "changed";
    files.saveSettings(changed);
    EXPECT_TRUE(logs->contains("FileStorageManager settings save error: "));
    EXPECT_FALSE(logs->contains("Settings saved to"));
    EXPECT_TRUE(std::filesystem::is_directory(vocleFile("settings.json") / "keep"));
    // No temporary files are left behind.
    for (const auto& e : std::filesystem::directory_iterator(home.path() / "Vocle")) {
        EXPECT_EQ(e.path().filename().string().find(".tmp-"), std::string::npos) << e.path();
    }
}
