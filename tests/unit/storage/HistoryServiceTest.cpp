#include <gtest/gtest.h>

#include "foundation/Clock.h"
#include "storage/HistoryService.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class HistoryServiceTest : public ::testing::Test, protected StorageFixtureBase {
protected:
    std::string entryJson(const std::string& text, double unixSeconds) const {
        return Json{{"id", Uuid::random().string()}, {"text", text}, {"timestamp", toReferenceDate(unixSeconds)}}
            .dump();
    }
};

}  // namespace

TEST_F(HistoryServiceTest, AddsNewestFirstKeepingTextAsGivenAndSavesCompactly) {
    HistoryService history(folder, clock);
    EXPECT_TRUE(history.transcriptions.get().empty());
    history.addTranscription("first");
    clock.advance(1);
    history.addTranscription(" hello ");
    ASSERT_EQ(history.transcriptions.get().size(), 2u);
    EXPECT_EQ(history.transcriptions.get()[0].text, " hello ");
    EXPECT_DOUBLE_EQ(history.transcriptions.get()[0].timestamp, clock.now());

    const std::string file = readText(vocleFile("transcription_history.json"));
    EXPECT_EQ(file.find('\n'), std::string::npos) << "compact encoding";
    const Json json = Json::parse(file);
    EXPECT_EQ(json[0]["text"], " hello ");
    EXPECT_DOUBLE_EQ(json[0]["timestamp"].get<double>(), toReferenceDate(clock.now()));

    HistoryService reloaded(folder, clock);
    EXPECT_EQ(reloaded.transcriptions.get(), history.transcriptions.get());
}

TEST_F(HistoryServiceTest, BlankTranscriptsAreSkippedWithoutTouchingTheFile) {
    HistoryService history(folder, clock);
    history.addTranscription("   \n");
    EXPECT_TRUE(logs->contains("Skipping empty transcription"));
    EXPECT_FALSE(std::filesystem::exists(vocleFile("transcription_history.json")));
}

TEST_F(HistoryServiceTest, LogsFirstFiftyCharactersAlwaysFollowedByDots) {
    HistoryService history(folder, clock);
    history.addTranscription("ten chars!");
    EXPECT_TRUE(logs->contains("Added transcription to history: ten chars!..."));
    history.addTranscription(std::string(49, 'a') + "éxyz");
    EXPECT_TRUE(logs->contains("Added transcription to history: " + std::string(49, 'a') + "é..."));
}

TEST_F(HistoryServiceTest, LoadDropsEmptyEntriesAndLogsTheCount) {
    writeText(vocleFile("transcription_history.json"),
              "[" + entryJson("", clock.now() - 10) + "," + entryJson("ok", clock.now() - 5) + "]");
    HistoryService history(folder, clock);
    ASSERT_EQ(history.transcriptions.get().size(), 1u);
    EXPECT_EQ(history.transcriptions.get()[0].text, "ok");
    EXPECT_TRUE(logs->contains("Removed 1 empty transcription(s) from history"));
}

TEST_F(HistoryServiceTest, RetentionRemovesEntriesAtOrBeforeThirtyDaysAgo) {
    const double cutoff = thirtyDaysBefore(clock.now());
    EXPECT_NEAR(clock.now() - cutoff, 30 * 86400.0, 3600.0) << "30 calendar days, DST aside";
    writeText(vocleFile("transcription_history.json"),
              "[" + entryJson("young", cutoff + 1) + "," + entryJson("exact", cutoff) + "," +
                  entryJson("old", cutoff - 100) + "]");
    HistoryService history(folder, clock);
    ASSERT_EQ(history.transcriptions.get().size(), 1u);
    EXPECT_EQ(history.transcriptions.get()[0].text, "young");
    // Nothing is written back until the next add.
    EXPECT_NE(readText(vocleFile("transcription_history.json")).find("exact"), std::string::npos);
}

TEST_F(HistoryServiceTest, CorruptFileStartsEmptyButIsKeptAside) {
    writeText(vocleFile("transcription_history.json"), R"([{"id":"nope","text":"x","timestamp":1}])");
    HistoryService history(folder, clock);
    EXPECT_TRUE(history.transcriptions.get().empty());
    EXPECT_TRUE(logs->contains("Failed to load transcription history: "));
    EXPECT_TRUE(std::filesystem::exists(vocleFile("transcription_history.json.corrupt-800000000")));
}

TEST_F(HistoryServiceTest, ObserversSeeEveryChange) {
    HistoryService history(folder, clock);
    std::vector<size_t> sizes;
    auto sub = history.transcriptions.subscribe([&](const auto& list) { sizes.push_back(list.size()); });
    history.addTranscription("a");
    ASSERT_FALSE(sizes.empty());
    EXPECT_EQ(sizes.back(), 1u);
}
