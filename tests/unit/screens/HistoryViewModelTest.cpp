#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "foundation/VirtualMainQueue.h"
#include "screens/HistoryViewModel.h"
#include "storage/DataFolder.h"
#include "support/TempDir.h"

using namespace vocle;

namespace {

// Local-calendar rules are checked in a zone that is not UTC.
class ScopedTimeZone {
  public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) previous_ = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (previous_) {
            setenv("TZ", previous_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

  private:
    std::optional<std::string> previous_;
};

constexpr double kNov3_2359 = 1793746740;  // 2026-11-03 23:59 Europe/Berlin
constexpr double kOct12_1000 = 1791792000;  // 2026-10-12 10:00 Europe/Berlin
constexpr double kDay = 86400;

std::vector<std::string> labels(const std::vector<HistoryGroup>& groups) {
    std::vector<std::string> out;
    for (const auto& g : groups) out.push_back(g.label);
    return out;
}

TranscriptionHistory entry(const std::string& text, double timestamp) { return {Uuid::random(), text, timestamp}; }

class HistoryViewModelTest : public ::testing::Test {
  protected:
    ScopedTimeZone zone{"Europe/Berlin"};
    vocle::testing::TempDir dir;
};

TEST_F(HistoryViewModelTest, AnEntryFromJustBeforeMidnightMovesToYesterdayWhenTheDayChanges) {
    VirtualMainQueue queue(kNov3_2359);
    HistoryService history(DataFolder{dir.path()}, queue);
    history.addTranscription("late note");
    HistoryViewModel vm(queue, history, [](const std::string&) {});
    EXPECT_FALSE(vm.isLoading.get());
    EXPECT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Today"}));

    queue.advance(59);
    EXPECT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Today"}));
    queue.advance(2);  // 00:00:01 on 4 Nov
    EXPECT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Yesterday"}));

    history.addTranscription("morning note");
    ASSERT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Today", "Yesterday"}));
    EXPECT_EQ(vm.groups.get()[0].entries[0].text, "morning note");

    queue.advance(kDay);
    EXPECT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Yesterday", "3 Nov"}));
}

TEST_F(HistoryViewModelTest, OlderDaysFollowPlainStringOrderSo12OctPrecedes3Nov) {
    const double now = kNov3_2359 + 7 * kDay;
    const std::vector<TranscriptionHistory> list = {
        entry("yesterday", now - kDay), entry("nov 3 b", kNov3_2359), entry("nov 3 a", kNov3_2359 - 3600),
        entry("oct 12", kOct12_1000), entry("sep 30", kOct12_1000 - 12 * kDay), entry("today", now - 60)};
    const auto groups = HistoryViewModel::group(list, now);
    EXPECT_EQ(labels(groups), (std::vector<std::string>{"Today", "Yesterday", "12 Oct", "3 Nov", "30 Sep"}));
    // List order is kept inside a day.
    ASSERT_EQ(groups[3].entries.size(), 2u);
    EXPECT_EQ(groups[3].entries[0].text, "nov 3 b");
    EXPECT_EQ(groups[3].entries[1].text, "nov 3 a");
}

TEST_F(HistoryViewModelTest, TheSameDayOfDifferentYearsSharesOneGroup) {
    const double now = kNov3_2359 + 20 * kDay;
    const auto groups = HistoryViewModel::group(
        {entry("this year", kOct12_1000), entry("last year", kOct12_1000 - 365 * kDay)}, now);
    ASSERT_EQ(labels(groups), (std::vector<std::string>{"12 Oct"}));
    EXPECT_EQ(groups[0].entries.size(), 2u);
}

TEST_F(HistoryViewModelTest, LabelComparisonIsTheFixedRule) {
    EXPECT_TRUE(HistoryViewModel::labelComesFirst("Today", "Yesterday"));
    EXPECT_FALSE(HistoryViewModel::labelComesFirst("Yesterday", "Today"));
    EXPECT_TRUE(HistoryViewModel::labelComesFirst("Yesterday", "1 Jan"));
    EXPECT_FALSE(HistoryViewModel::labelComesFirst("3 Nov", "12 Oct"));
    // Medium-style dates, were they ever labels, go newest first.
    EXPECT_TRUE(HistoryViewModel::labelComesFirst("Nov 3, 2026", "Dec 1, 2025"));
}

TEST_F(HistoryViewModelTest, CopyPutsTheTextOnTheClipboardAndShowsCopiedForThreeSeconds) {
    VirtualMainQueue queue(kNov3_2359);
    HistoryService history(DataFolder{dir.path()}, queue);
    history.addTranscription("copy me");
    std::vector<std::string> clipboard;
    HistoryViewModel vm(queue, history, [&](const std::string& t) { clipboard.push_back(t); });
    const auto item = vm.groups.get()[0].entries[0];
    int changes = 0;
    auto sub = vm.copyStateChanged.subscribe([&](const Uuid& id) {
        EXPECT_EQ(id, item.id);
        ++changes;
    });

    vm.copy(item);
    EXPECT_EQ(clipboard, (std::vector<std::string>{"copy me"}));
    EXPECT_TRUE(vm.isCopied(item.id));
    queue.advance(2);
    vm.copy(item);  // a second click restarts the three seconds
    queue.advance(2.5);
    EXPECT_TRUE(vm.isCopied(item.id));
    queue.advance(0.6);
    EXPECT_FALSE(vm.isCopied(item.id));
    EXPECT_EQ(changes, 3);
}

TEST_F(HistoryViewModelTest, TimesUseTheShortStyle) {
    EXPECT_EQ(HistoryViewModel::timeText(kNov3_2359), "11:59 PM");
    EXPECT_EQ(HistoryViewModel::timeText(kOct12_1000), "10:00 AM");
    EXPECT_EQ(HistoryViewModel::timeText(kOct12_1000 + 2 * 3600 + 300), "12:05 PM");
}

}  // namespace

TEST_F(HistoryViewModelTest, KeptRecordingsJoinTheirDayAndTheirButtonsReachTheRetryAndTheStore) {
    VirtualMainQueue queue(kNov3_2359 + 2 * kDay);  // 5 Nov
    HistoryService history(DataFolder{dir.path()}, queue);
    history.addTranscription("today's note");
    PendingDictationStore store(DataFolder{dir.path()}, queue);
    vocle::testing::writeText(dir.path() / "a.m4a", "a");
    PendingDictation yesterday;
    yesterday.timestamp = queue.now() - kDay;
    yesterday.error = "No internet connection. Check your network and try again.";
    auto keptYesterday = store.keep(dir.path() / "a.m4a", yesterday);
    ASSERT_TRUE(keptYesterday);

    std::vector<std::pair<Uuid, std::function<void(bool)>>> retries;
    std::vector<Uuid> drops;
    HistoryViewModel vm(
        queue, history, [](const std::string&) {},
        HistoryViewModel::KeptDictations{
            &store, [&](const Uuid& id, std::function<void(bool)> done) { retries.emplace_back(id, done); },
            [&](const Uuid& id) {
                drops.push_back(id);
                store.remove(id);
            }});
    // A day with only a kept recording has its own section; it is not among the transcripts.
    ASSERT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Today", "Yesterday"}));
    EXPECT_TRUE(vm.groups.get()[1].entries.empty());
    ASSERT_EQ(vm.groups.get()[1].kept.size(), 1u);
    EXPECT_EQ(vm.groups.get()[1].kept[0].error, yesterday.error);

    // A new failure today joins today's section, beside its transcripts.
    PendingDictation now;
    now.timestamp = queue.now();
    now.error = "Our servers are having issues. Please try again in a moment.";
    auto keptToday = store.keep(dir.path() / "a.m4a", now);
    ASSERT_TRUE(keptToday);
    ASSERT_EQ(vm.groups.get()[0].kept.size(), 1u);
    EXPECT_EQ(vm.groups.get()[0].entries.size(), 1u);

    // One retry at a time per recording; delete waits for it.
    int changes = 0;
    auto sub = vm.retryStateChanged.subscribe([&](const Uuid&) { ++changes; });
    vm.retry(keptToday->id);
    vm.retry(keptToday->id);
    ASSERT_EQ(retries.size(), 1u);
    EXPECT_TRUE(vm.isRetrying(keptToday->id));
    vm.remove(keptToday->id);
    EXPECT_TRUE(drops.empty());
    retries[0].second(false);
    EXPECT_FALSE(vm.isRetrying(keptToday->id));
    EXPECT_EQ(changes, 2);

    vm.remove(keptYesterday->id);
    EXPECT_EQ(drops, std::vector<Uuid>{keptYesterday->id});
    EXPECT_EQ(labels(vm.groups.get()), (std::vector<std::string>{"Today"}));
}
