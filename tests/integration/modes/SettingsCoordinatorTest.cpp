#include <gtest/gtest.h>

#include <set>

#include "backend/SettingsDocument.h"
#include "integration/modes/IntegrationGraph.h"

using namespace vocle;
using vocle::testing::IntegrationGraph;

namespace {

SettingsDoc docWithVocabulary(const std::string& words) {
    return settingsDocument({Mode::fresh("Default")}, std::nullopt, words, {});
}

TEST(SettingsCoordinator, ABurstUploadsOnlyItsLastDocumentOneAndAHalfSecondsAfterIt) {
    IntegrationGraph g;
    g.coordinator->scheduleBackup(docWithVocabulary("one"));
    g.queue.advance(0.5);
    g.coordinator->scheduleBackup(docWithVocabulary("two"));
    g.queue.advance(0.5);
    g.coordinator->scheduleBackup(docWithVocabulary("three"));
    g.queue.advance(1.49);
    ASSERT_TRUE(g.waitForUploads(0));
    EXPECT_TRUE(g.server.requests("POST", "/settings").empty());
    g.queue.advance(0.01);
    ASSERT_TRUE(g.waitForUploads(1));
    const auto uploads = g.server.requests("POST", "/settings");
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].body.at("settings").at("vocab_words"), "three");
    EXPECT_FALSE(uploads[0].body.contains("if_match_version"));
    EXPECT_TRUE(g.logs->contains("SettingsCoordinator: Cloud backup successful, version 1"));
}

TEST(SettingsCoordinator, CallsFurtherApartUploadEachAndRunningUploadsAreNotCancelled) {
    IntegrationGraph g;
    g.coordinator->scheduleBackup(docWithVocabulary("first"));
    g.queue.advance(1.5);
    EXPECT_EQ(g.coordinator->uploadsInFlight(), 1u);
    g.coordinator->scheduleBackup(docWithVocabulary("second"));  // 1.5 s after, first still running
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(2));
    const auto uploads = g.server.requests("POST", "/settings");
    ASSERT_EQ(uploads.size(), 2u);
    // Both were sent; two uploads in flight may reach the backend in either order.
    std::set<std::string> sent{uploads[0].body.at("settings").at("vocab_words").get<std::string>(),
                               uploads[1].body.at("settings").at("vocab_words").get<std::string>()};
    EXPECT_EQ(sent, (std::set<std::string>{"first", "second"}));
    EXPECT_EQ(g.logs->count("SettingsCoordinator: Cloud backup successful"), 2u);
}

TEST(SettingsCoordinator, ARejectedSessionIsReportedOnceUntilTheClientHasNewTokens) {
    IntegrationGraph g;
    int rejections = 0;
    auto watch = g.backend->sessionRejected.subscribe([&] { ++rejections; });
    g.server.rejectSessions(true);
    g.coordinator->scheduleBackup(docWithVocabulary("a"));
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(1));
    g.queue.runUntilIdle();
    EXPECT_EQ(rejections, 1);
    EXPECT_TRUE(g.logs->contains("SettingsCoordinator: Cloud backup failed - Please sign in again."));

    g.coordinator->scheduleBackup(docWithVocabulary("b"));
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(2));
    g.queue.runUntilIdle();
    EXPECT_EQ(rejections, 1) << "the same session is not reported twice";

    g.backend->setAccessToken("access-2");
    g.coordinator->scheduleBackup(docWithVocabulary("c"));
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(3));
    g.queue.runUntilIdle();
    EXPECT_EQ(rejections, 2);
}

TEST(SettingsCoordinator, OtherFailuresAreOnlyLogged) {
    IntegrationGraph g;
    int rejections = 0;
    auto watch = g.backend->sessionRejected.subscribe([&] { ++rejections; });
    g.server.failWith(409);  // not retried
    g.coordinator->scheduleBackup(docWithVocabulary("a"));
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(1));
    g.queue.runUntilIdle();
    EXPECT_TRUE(g.logs->contains(
        "SettingsCoordinator: Cloud backup failed - Something went wrong. Please try again."));
    EXPECT_EQ(rejections, 0);
    EXPECT_FALSE(g.coordinator->hasPendingBackup()) << "nothing is queued for later";
}

TEST(ModeManagerBackup, AModeChangeIsBackedUpWithTheModesAndEmptyTextSettings) {
    IntegrationGraph g;
    Mode def = Mode::fresh("Default");
    def.isDefault = true;
    Mode mail = Mode::fresh("Mail");
    mail.activationWebsite = "https://www.example.org/inbox";
    mail.type = std::nullopt;
    g.modesStore.saveModes({def, mail});
    g.modeManager->loadModes();
    g.modeManager->setActiveMode(mail);
    g.queue.runUntilIdle();
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(1));
    const Json doc = g.server.requests("POST", "/settings").at(0).body.at("settings");
    ASSERT_EQ(doc.at("modes").size(), 2u);
    EXPECT_EQ(doc.at("modes")[1].at("activation_website"), "https://www.example.org/inbox");
    EXPECT_EQ(doc.at("modes")[1].at("type"), "Custom");
    EXPECT_FALSE(doc.at("modes")[0].contains("activation_website"));
    EXPECT_EQ(doc.at("text_replacements"), Json::array());
    EXPECT_EQ(doc.at("vocab_words"), "");
    EXPECT_EQ(doc.at("last_active_mode_id"), mail.id.string());
}

}  // namespace
