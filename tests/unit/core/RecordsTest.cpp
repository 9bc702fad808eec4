#include <gtest/gtest.h>

#include "core/AppConstants.h"
#include "core/InitializationError.h"
#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Log.h"
#include "storage/AppSettings.h"

using namespace vocle;

namespace {
Json storedMode() {
    return Json::parse(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","name":"Email","type":"Email",
        "modeTypeId":"abc","isDefault":false,"prompt":"p","language":"German","muteWhileRecording":true,
        "recordSystemAudio":false,"activationWebsite":"mail.google.com","activationApplication":""})");
}
}  // namespace

TEST(ModeRecord, OptionalTypeKeysMayBeAbsentAndAreOmittedWhenNil) {
    Json j = storedMode();
    j.erase("type");
    j.erase("modeTypeId");
    const Mode m = Mode::fromJson(j);
    EXPECT_FALSE(m.type.has_value()) << "absent type decodes to nil, not \"Custom\"";
    EXPECT_EQ(m.language, "German");
    const Json encoded = m.toJson();
    EXPECT_FALSE(encoded.contains("type"));
    EXPECT_FALSE(encoded.contains("modeTypeId"));
    EXPECT_EQ(encoded.size(), 9u);
    EXPECT_EQ(Mode::fromJson(encoded), m);
}

TEST(ModeRecord, EveryOtherKeyIsRequired) {
    for (const char* key : {"id", "name", "isDefault", "prompt", "language", "muteWhileRecording",
                            "recordSystemAudio", "activationWebsite", "activationApplication"}) {
        Json j = storedMode();
        j.erase(key);
        EXPECT_THROW(Mode::fromJson(j), DecodingError) << key;
    }
    Json badId = storedMode();
    badId["id"] = "not-a-uuid";
    EXPECT_THROW(Mode::fromJson(badId), DecodingError);
    Json nullName = storedMode();
    nullName["name"] = nullptr;
    EXPECT_THROW(Mode::fromJson(nullName), DecodingError);
}

TEST(ModeRecord, FreshModeDefaults) {
    const Mode m = Mode::fresh("New Mode");
    EXPECT_EQ(m.type, std::optional<std::string>("Custom"));
    EXPECT_FALSE(m.modeTypeId.has_value());
    EXPECT_EQ(m.language, "English");
    EXPECT_FALSE(m.isDefault || m.muteWhileRecording || m.recordSystemAudio);
    EXPECT_NE(Mode::fresh("x").id, m.id);
    EXPECT_EQ(m.toJson()["id"].get<std::string>(), m.id.string());
}

TEST(ReplacementRecord, RebuiltFromStorageGetsNewIdsAndDropsThem) {
    const StoredTextReplacement stored{Uuid::random(), "new line", "\n"};
    const Replacement a = stored.toReplacement();
    const Replacement b = stored.toReplacement();
    EXPECT_NE(a.id, b.id);
    EXPECT_EQ(a.original, "new line");
    EXPECT_EQ(StoredTextReplacement::fromReplacement(a).toJson(), (Json{{"from", "new line"}, {"to", "\n"}}));
}

TEST(ReplacementRecord, TenDefaultsInOrder) {
    const auto d = defaultTextReplacements();
    ASSERT_EQ(d.size(), 10u);
    EXPECT_EQ(d[0].original, "slack at here");
    EXPECT_EQ(d[3].replacement.rfind("https://", 0), 0u);
    EXPECT_TRUE(d[3].replacement.ends_with("/example-15min"));
    EXPECT_TRUE(d[4].replacement.ends_with("/your-meeting-id"));
    EXPECT_EQ(d[6].replacement, "\n\n");
    EXPECT_EQ(d[9].replacement, "```");
}

TEST(InitializationErrorText, Descriptions) {
    EXPECT_EQ(InitializationError::noTemplates().description(), "Failed to load mode types from server");
    EXPECT_EQ(InitializationError::networkError("offline").description(), "Network error: offline");
}

TEST(FactoryDefaultsLog, ReportsTheDefaultsBlock) {
    auto sink = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(sink);
    logAppDefaultValues();
    const auto lines = sink->lines();
    ASSERT_GE(lines.size(), 17u);
    EXPECT_EQ(lines.front(), "=== App Default Values ===");
    EXPECT_EQ(lines.back(), "==========================");
    EXPECT_TRUE(sink->contains("  - Default Replacements Count: 10"));
    EXPECT_TRUE(sink->contains("  - Default Replacements: slack at here → @here, slack at everyone → @everyone"));
    EXPECT_TRUE(sink->contains("  - Default Mode Type ID: 22222222-2222-2222-2222-222222222222"));
    // Reported in the log's own modifier names, whatever the platform's key caps say.
    EXPECT_TRUE(sink->contains("  - Toggle: Control + Option + Space (keyCode: 49)"));
}
