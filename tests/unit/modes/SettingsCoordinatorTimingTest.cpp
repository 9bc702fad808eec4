#include <gtest/gtest.h>

#include "ModesTestGraph.h"

namespace vocle::testing {
namespace {

SettingsDoc documentWith(const std::string& vocabulary) {
    SettingsDoc doc;
    doc.vocabWords = vocabulary;
    return doc;
}

class SettingsCoordinatorTiming : public ::testing::Test, protected ModesTestGraph {
  protected:
    SettingsCoordinatorTiming() {
        backend->setAccessToken("acc-1");
        backend->setRefreshToken("ref-1");
    }
    std::string sentVocabulary(size_t i) const {
        return Json::parse(network->sent().at(i).body())["settings"].value("vocab_words", "");
    }
};

TEST_F(SettingsCoordinatorTiming, ASlowUploadIsNotCancelledByTheNextBurstAndBothAreLoggedAsTheyAnswer) {
    coordinator->scheduleBackup(documentWith("one"));
    queue.advance(1.5);
    ASSERT_EQ(network->sent().size(), 1u);
    EXPECT_EQ(sentVocabulary(0), "one");
    EXPECT_EQ(network->sent()[0].request.header("Authorization"), "Bearer acc-1;refresh=ref-1");

    coordinator->scheduleBackup(documentWith("two"));
    queue.advance(1.0);
    coordinator->scheduleBackup(documentWith("three"));
    queue.advance(1.4);
    EXPECT_EQ(network->sent().size(), 1u) << "the debounce restarted with the last call";
    queue.advance(0.1);
    ASSERT_EQ(network->sent().size(), 2u);
    EXPECT_EQ(sentVocabulary(1), "three");
    EXPECT_EQ(coordinator->uploadsInFlight(), 2u);
    EXPECT_EQ(network->cancelledCount(), 0u);

    network->answer(1, FakeHttpTransport::response(200, R"({"settings": {}, "settings_version": 6})"));
    network->answer(0, FakeHttpTransport::response(200, R"({"settings": {}, "settings_version": 5})"), 1.0);
    queue.advance(1.0);
    const auto lines = logs->lines();
    std::vector<std::string> outcomes;
    for (const auto& line : lines)
        if (line.rfind("SettingsCoordinator: ", 0) == 0) outcomes.push_back(line);
    EXPECT_EQ(outcomes,
              (std::vector<std::string>{"SettingsCoordinator: Cloud backup successful, version 6",
                                        "SettingsCoordinator: Cloud backup successful, version 5"}));
    EXPECT_EQ(coordinator->uploadsInFlight(), 0u);
}

TEST_F(SettingsCoordinatorTiming, AFailingUploadIsRetriedOnlyByTheClientAndThenLoggedOnce) {
    for (int i = 0; i < 4; ++i) network->replyStatus(502, "bad gateway");
    coordinator->scheduleBackup(documentWith("words"));
    queue.advance(1.5 + 6.9);
    EXPECT_EQ(network->sent().size(), 3u) << "the fourth attempt goes 1 + 2 + 4 s after the first";
    EXPECT_FALSE(logs->contains("Cloud backup failed"));
    queue.advance(0.1);
    EXPECT_EQ(
        logs->count("SettingsCoordinator: Cloud backup failed - Our servers are having issues. Please try "
                    "again in a moment."),
        1u);
    queue.advance(60.0);
    EXPECT_EQ(network->sent().size(), 4u) << "nothing is queued for later";
    EXPECT_FALSE(coordinator->hasPendingBackup());
}

}  // namespace
}  // namespace vocle::testing
