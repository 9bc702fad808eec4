#include <gtest/gtest.h>

#include "auth/TokenService.h"
#include "foundation/Base64.h"
#include "http/RequestParsing.h"

using namespace vocle;
using namespace vocle::server;

namespace {
int statusOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const HttpError& e) {
        return e.status;
    }
    return 0;
}
}  // namespace

TEST(AuthorizationParsingTest, AcceptsBothClientForms) {
    auto plain = parseAuthorization("Bearer abc");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->accessToken, "abc");
    EXPECT_EQ(plain->refreshToken, "");
    auto combined = parseAuthorization("Bearer abc;refresh=def");
    ASSERT_TRUE(combined);
    EXPECT_EQ(combined->accessToken, "abc");
    EXPECT_EQ(combined->refreshToken, "def");
    EXPECT_FALSE(parseAuthorization("Basic abc"));
    EXPECT_FALSE(parseAuthorization("Bearer "));
    EXPECT_FALSE(parseAuthorization("Bearer ;refresh=def"));
    EXPECT_FALSE(parseAuthorization("Bearer abc;refresh="));
    EXPECT_FALSE(parseAuthorization("Bearer a b"));
}

TEST(RequestParsingTest, TranscribeBodyAsTheClientSendsIt) {
    const Json body = parseBodyObject(R"({"audio":")" + base64::encode(std::string("RIFFxxxxWAVE")) +
                                      R"(","mode":{"id":"A","name":"Default","type":"Clean","prompt":"p",
                                      "language":"en-GB","mode_type_id":"22222222-2222-2222-2222-222222222222"},
                                      "vocab_words":"","text_replacements":[{"from":"a","to":"b"}]})");
    const TranscriptionJob job = parseTranscribeRequest(body);
    EXPECT_EQ(job.audio, "RIFFxxxxWAVE");
    EXPECT_EQ(job.mode.language, "en-GB");
    EXPECT_EQ(job.mode.type, "Clean");
    EXPECT_EQ(*job.mode.modeTypeId, "22222222-2222-2222-2222-222222222222");
    ASSERT_EQ(job.replacements.size(), 1u);
    EXPECT_EQ(job.replacements[0].to, "b");
}

TEST(RequestParsingTest, RejectsMalformedBodiesWith400) {
    EXPECT_EQ(statusOf([] { parseBodyObject("{"); }), 400);
    EXPECT_EQ(statusOf([] { parseBodyObject("[1]"); }), 400);
    EXPECT_EQ(statusOf([] { parseTranscribeRequest(parseBodyObject(R"({"mode":{}})")); }), 400);
    EXPECT_EQ(statusOf([] { parseTranscribeRequest(parseBodyObject(R"({"audio":"!!!","mode":{}})")); }), 400);
    EXPECT_EQ(statusOf([] { parseTranscribeRequest(parseBodyObject(R"({"audio":"AAAA"})")); }), 400);
    EXPECT_EQ(statusOf([] {
                  parseTranscribeRequest(
                      parseBodyObject(R"({"audio":"AAAA","mode":{},"text_replacements":[{"from":1}]})"));
              }),
              400);
    EXPECT_EQ(statusOf([] { parseSettingsPost(parseBodyObject(R"({})")); }), 400);
    EXPECT_EQ(statusOf([] { parseSettingsPost(parseBodyObject(R"({"settings":{"modes":[{"id":"x"}]}})")); }),
              400);
    EXPECT_EQ(
        statusOf([] { parseSettingsPost(parseBodyObject(R"({"settings":{},"if_match_version":"3"})")); }),
        400);
    EXPECT_EQ(statusOf([] { parseSupportMessage(parseBodyObject(R"({"message":" \n "})"), 100); }), 400);
    EXPECT_EQ(statusOf([] { parseSupportMessage(parseBodyObject(R"({"message":"abcdef"})"), 3); }), 400);
}

TEST(RequestParsingTest, SettingsDocumentOfTheClientIsAccepted) {
    const Json body = parseBodyObject(R"({"settings":{"modes":[{"id":"A","name":"Default","type":"Custom",
        "prompt":"","language":"English","examples":[],"activation_website":"example.com"}],
        "text_replacements":[{"from":"new line","to":"\n"}],"vocab_words":"","last_active_mode_id":"A",
        "future_member":42},"if_match_version":3})");
    const SettingsPost post = parseSettingsPost(body);
    EXPECT_EQ(*post.ifMatchVersion, 3);
    EXPECT_EQ(post.settings.at("future_member"), 42);
    EXPECT_EQ(parseSupportMessage(parseBodyObject(R"({"message":"\n hello \n"})"), 100), "hello");
}
