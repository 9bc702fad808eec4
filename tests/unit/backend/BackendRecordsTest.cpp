#include <gtest/gtest.h>

#include "backend/BackendError.h"
#include "backend/BackendService.h"
#include "backend/DecimalText.h"
#include "backend/LanguageCodes.h"
#include "backend/SettingsDocument.h"
#include "backend/SettingsRecords.h"
#include "backend/SignInClient.h"
#include "backend/TranscriptionClient.h"
#include "foundation/Base64.h"

namespace vocle {
namespace {

TEST(BackendErrorTest, UserFacingTextsAndRetriability) {
    const std::string generic = "Something went wrong. Please try again.";
    EXPECT_EQ(BackendError::network("x").errorDescription(),
              "No internet connection. Check your network and try again.");
    EXPECT_EQ(BackendError::decoding("x").errorDescription(), generic);
    EXPECT_EQ(BackendError::server(499, "x").errorDescription(), generic);
    EXPECT_EQ(BackendError::server(500, "x").errorDescription(),
              "Our servers are having issues. Please try again in a moment.");
    EXPECT_EQ(BackendError::authenticationFailed().errorDescription(), "Please sign in again.");
    EXPECT_EQ(BackendError::invalidURL().errorDescription(), generic);
    EXPECT_EQ(BackendError::unknown().errorDescription(), generic);

    for (int status : {408, 429, 500, 503, 599})
        EXPECT_TRUE(BackendError::server(status, "").isRetriable()) << status;
    for (int status : {100, 302, 400, 403, 404, 409, 600}) {
        EXPECT_FALSE(BackendError::server(status, "").isRetriable()) << status;
    }
    EXPECT_TRUE(BackendError::network("").isRetriable());
    EXPECT_TRUE(BackendError::unknown().isRetriable());
    EXPECT_FALSE(BackendError::decoding("").isRetriable());
    EXPECT_FALSE(BackendError::invalidURL().isRetriable());
    EXPECT_FALSE(BackendError::authenticationFailed().isRetriable());

    const Error e = BackendError::server(503, "down").toError();
    EXPECT_EQ(e.domain, "BackendError");
    EXPECT_EQ(e.description, "Our servers are having issues. Please try again in a moment.");
}

TEST(DecimalTextTest, AlwaysShowsAFraction) {
    EXPECT_EQ(decimalText(1), "1.0");
    EXPECT_EQ(decimalText(48000), "48000.0");
    EXPECT_EQ(decimalText(0.25), "0.25");
    EXPECT_EQ(decimalText(120.5), "120.5");
}

TEST(LanguageCodesTest, FiftyExactMatchRowsWithTheNameAsFallback) {
    EXPECT_EQ(languageCodeMapping().size(), 50u);
    EXPECT_EQ(languageCode("English (UK)"), "en-GB");
    EXPECT_EQ(languageCode("Danish (Denmark)"), "da-DK");
    EXPECT_EQ(languageCode("Flemish"), "nl-BE");
    EXPECT_EQ(languageCode("Spanish (Latin America)"), "es-419");
    EXPECT_EQ(languageCode("Chinese (Cantonese, Traditional)"), "zh-HK");
    EXPECT_EQ(languageCode("english (uk)"), "english (uk)");
    EXPECT_EQ(languageCode("Klingon"), "Klingon");
}

TEST(TranscriptionBodyTest, IsValidJsonWithTheAudioEncodedOnce) {
    Mode mode = Mode::fresh("Slack");
    mode.type = "Message";
    mode.modeTypeId = "33333333-3333-3333-3333-333333333333";
    mode.language = "english (uk)";
    const std::string audio("\x00\x01\xfe\xff\"\\ RIFF", 11);
    const std::string text = TranscriptionClient::transcriptionBody(audio, mode, "", {});
    const Json body = Json::parse(text);
    EXPECT_EQ(base64::decode(body.at("audio").get<std::string>()), audio);
    EXPECT_EQ(body.at("mode").at("type"), "Message");
    EXPECT_EQ(body.at("mode").at("mode_type_id"), "33333333-3333-3333-3333-333333333333");
    EXPECT_EQ(body.at("mode").at("language"), "english (uk)");
    EXPECT_EQ(body.at("vocab_words"), "");
    EXPECT_EQ(body.at("text_replacements"), Json::array());
    EXPECT_EQ(body.size(), 4u);

    mode.type.reset();
    mode.modeTypeId.reset();
    const Json modeObject = TranscriptionClient::transcriptionModeObject(mode);
    EXPECT_EQ(modeObject.at("type"), "raw");
    EXPECT_FALSE(modeObject.contains("mode_type_id"));
    EXPECT_EQ(modeObject.at("id"), mode.id.string());
}

TEST(SettingsRecordsTest, OptionalMembersMayBeAbsentOrNullAndAreNeverWrittenAsNull) {
    const auto envelope =
        SettingsEnvelope::fromJson(Json::parse(R"({"settings_version": 3, "templates_version": 7})"));
    EXPECT_FALSE(envelope.settings);
    EXPECT_FALSE(envelope.templates);
    EXPECT_EQ(envelope.toJson(), Json::parse(R"({"settings_version": 3, "templates_version": 7})"));
    EXPECT_THROW(SettingsEnvelope::fromJson(Json::parse(R"({"settings_version": 3})")), DecodingError);
    EXPECT_THROW(
        SettingsEnvelope::fromJson(Json::parse(R"({"settings_version": "3", "templates_version": 1})")),
        DecodingError);
    EXPECT_FALSE(SettingsEnvelope::fromJson(
                     Json::parse(R"({"settings": null, "settings_version": 1, "templates_version": 1})"))
                     .settings);

    const auto type = TemplateModeType::fromJson(Json::parse(
        R"({"id": "T", "name": "Email", "prompt": "p", "language": "English", "description": null})"));
    EXPECT_FALSE(type.description);
    EXPECT_FALSE(type.display);
    EXPECT_EQ(type.toJson(),
              Json::parse(R"({"id": "T", "name": "Email", "prompt": "p", "language": "English"})"));
    EXPECT_THROW(TemplateModeType::fromJson(Json::parse(R"({"id": "T", "name": "E", "prompt": "p"})")),
                 DecodingError);
    EXPECT_THROW(TemplateModeType::fromJson(Json::parse(
                     R"({"id": "T", "name": "E", "prompt": "p", "language": "x", "display": "yes"})")),
                 DecodingError);
    EXPECT_THROW(TemplatesDoc::fromJson(Json::object()), DecodingError);

    EXPECT_THROW(BackupResponse::fromJson(Json::parse(R"({"settings_version": 2})")), DecodingError);
    EXPECT_EQ(SettingsDoc::fromJson(Json::object()).toJson(), Json::object());

    const Json round = Json::parse(R"({"modes": [{"id": "A", "name": "N", "type": "Custom", "prompt": "",
        "language": "French", "mode_type_id": "M", "examples": [{"input": "i", "output": "o"}],
        "activation_website": "github.com", "activation_application": "code"}],
        "text_replacements": [{"from": "a", "to": "b"}], "vocab_words": "", "last_active_mode_id": "A"})");
    EXPECT_EQ(SettingsDoc::fromJson(round).toJson(), round);
}

TEST(SettingsDocumentTest, ConvertsTheApplicationStateForBackup) {
    Mode plain = Mode::fresh("Plain");
    plain.type.reset();
    plain.language = "English (UK)";
    Mode tied = Mode::fresh("Code");
    tied.type = "Coding";
    tied.modeTypeId = "44444444-4444-4444-4444-444444444444";
    tied.activationWebsite = "github.com";
    tied.activationApplication = "code";
    tied.isDefault = true;
    tied.muteWhileRecording = true;

    const SettingsDoc doc =
        settingsDocument({plain, tied}, tied.id, std::nullopt,
                         {Replacement::make("comma", ","), Replacement::make("dash", "-")});
    const Json json = doc.toJson();
    EXPECT_EQ(json.at("modes").at(0), (Json{{"id", plain.id.string()},
                                            {"name", "Plain"},
                                            {"type", "Custom"},
                                            {"prompt", ""},
                                            {"language", "English (UK)"},
                                            {"examples", Json::array()}}));
    EXPECT_EQ(json.at("modes").at(1), (Json{{"id", tied.id.string()},
                                            {"name", "Code"},
                                            {"type", "Coding"},
                                            {"prompt", ""},
                                            {"language", "English"},
                                            {"mode_type_id", "44444444-4444-4444-4444-444444444444"},
                                            {"examples", Json::array()},
                                            {"activation_website", "github.com"},
                                            {"activation_application", "code"}}));
    EXPECT_EQ(json.at("text_replacements"),
              Json::parse(R"([{"from": "comma", "to": ","}, {"from": "dash", "to": "-"}])"));
    EXPECT_EQ(json.at("vocab_words"), "");
    EXPECT_EQ(json.at("last_active_mode_id"), tied.id.string());

    const Json none = settingsDocument({}, std::nullopt, std::string("Vocle"), {}).toJson();
    EXPECT_EQ(
        none,
        (Json{{"modes", Json::array()}, {"text_replacements", Json::array()}, {"vocab_words", "Vocle"}}));
}

TEST(VerifyOTPResultTest, ClassifiesTheAnswer) {
    using O = VerifyOTPResult::Outcome;
    const auto full = VerifyOTPResult::fromResponse(
        true, 200,
        R"({"access_token": "a", "refresh_token": "r", "user": {"id": "u", "email": "e@x.org"}, "x": 1})");
    EXPECT_EQ(full.outcome, O::verified);
    EXPECT_EQ(full.session, (SupabaseSession{"a", "r", "u", "e@x.org"}));
    EXPECT_EQ(VerifyOTPResult::fromResponse(
                  true, 200, R"({"access_token": "a", "refresh_token": "r", "user": {"id": 5}})")
                  .session.userId,
              "");
    EXPECT_EQ(VerifyOTPResult::fromResponse(false, 0, "").outcome, O::invalidCode);
    EXPECT_EQ(VerifyOTPResult::fromResponse(true, 400, R"({"error": "expired"})").outcome, O::invalidCode);
    EXPECT_EQ(
        VerifyOTPResult::fromResponse(true, 201, R"({"access_token": "a", "refresh_token": "r", "user": {}})")
            .outcome,
        O::invalidCode);
    EXPECT_EQ(VerifyOTPResult::fromResponse(true, 200, "").outcome, O::invalidCode);
    EXPECT_EQ(VerifyOTPResult::fromResponse(true, 200, "<html>").outcome, O::unexpectedResponse);
    EXPECT_EQ(VerifyOTPResult::fromResponse(true, 200,
                                            R"({"access_token": "a", "refresh_token": "r", "user": "u"})")
                  .outcome,
              O::unexpectedResponse);
    EXPECT_EQ(
        VerifyOTPResult::fromResponse(true, 200, R"({"access_token": 1, "refresh_token": "r", "user": {}})")
            .outcome,
        O::unexpectedResponse);
}

}  // namespace
}  // namespace vocle
