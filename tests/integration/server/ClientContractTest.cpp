// The app's own request builders and response decoders against the real server: what the client sends
// is accepted, and what the server answers decodes into the client's records.
#include <gtest/gtest.h>

#include "backend/BackendService.h"
#include "backend/ResponseRecords.h"
#include "backend/SettingsRecords.h"
#include "backend/SignInClient.h"
#include "backend/TranscriptionClient.h"
#include "core/Mode.h"
#include "core/Replacement.h"
#include "integration/server/ServerFixture.h"

using namespace vocle;
using namespace vocle::testing;

TEST(ServerClientContractTest, ClientRecordsRoundTripThroughTheServer) {
    TestServer server;
    server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    auto verify = server.post(
        "/auth/verify-otp", {{"email", "ada@example.com"}, {"token", server.latestCode("ada@example.com")}});
    const VerifyOTPResult signedIn = VerifyOTPResult::fromResponse(true, verify->status, verify->body);
    ASSERT_EQ(signedIn.outcome, VerifyOTPResult::Outcome::verified);
    const std::string authorization =
        "Bearer " + signedIn.session.accessToken + ";refresh=" + signedIn.session.refreshToken;
    EXPECT_EQ(signedIn.session.email, "ada@example.com");

    const SettingsEnvelope fresh = SettingsEnvelope::fromJson(jsonOf(server.get("/settings", authorization)));
    EXPECT_FALSE(fresh.settings);
    ASSERT_TRUE(fresh.templates);
    const auto defaultType = std::find_if(
        fresh.templates->modeTypes.begin(), fresh.templates->modeTypes.end(),
        [](const TemplateModeType& t) { return t.id == "22222222-2222-2222-2222-222222222222"; });
    ASSERT_NE(defaultType, fresh.templates->modeTypes.end());

    // A default mode made from the default type, as the app makes it, backed up and read back.
    Mode mode = Mode::fresh("Default");
    mode.isDefault = true;
    mode.type = defaultType->name;
    mode.modeTypeId = defaultType->id;
    SettingsDoc doc;
    SettingsMode settingsMode{mode.id.string(),
                              mode.name,
                              *mode.type,
                              mode.prompt,
                              mode.language,
                              mode.modeTypeId,
                              std::vector<SettingsExample>{},
                              std::nullopt,
                              std::nullopt};
    doc.modes = std::vector<SettingsMode>{settingsMode};
    doc.textReplacements = std::vector<SettingsReplacement>{{"new line", "\n"}};
    doc.vocabWords = "Dashwood";
    doc.lastActiveModeId = mode.id.string();
    auto backup = server.post("/settings", {{"settings", doc.toJson()}}, authorization);
    ASSERT_EQ(backup->status, 200) << backup->body;
    const BackupResponse stored = BackupResponse::fromJson(jsonOf(backup));
    EXPECT_EQ(stored.settings, doc);
    EXPECT_EQ(stored.settingsVersion, 1);
    EXPECT_EQ(SettingsEnvelope::fromJson(jsonOf(server.get("/settings", authorization))).settings, doc);

    // The transcription body exactly as the client builds it.
    const std::string wav = readText(kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav");
    const std::string body =
        TranscriptionClient::transcriptionBody(wav, mode, "", {Replacement::make("young man", "youth")});
    auto transcribed =
        server.client()->Post("/transcribe", {{"Authorization", authorization}}, body, "application/json");
    ASSERT_EQ(transcribed->status, 200) << transcribed->body;
    const TranscribeResponse response = TranscribeResponse::fromJson(jsonOf(transcribed));
    EXPECT_NE(response.transcript.find("youth."), std::string::npos) << response.transcript;

    auto support = server.post("/support/message", {{"message", "Hello"}}, authorization);
    EXPECT_TRUE(SuccessResponse::fromJson(jsonOf(support)).success);
}
