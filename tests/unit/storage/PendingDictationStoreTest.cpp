#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sys/stat.h>
#include <chrono>
#include <random>

#include "foundation/FileIO.h"
#include "storage/HistoryService.h"
#include "storage/PendingDictationStore.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

class PendingDictationStoreTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    fs::path pendingDir() const { return home.path() / "Vocle" / "pending"; }

    fs::path recording(const std::string& name, const std::string& bytes) {
        const fs::path path = home.path() / name;
        writeText(path, bytes);
        return path;
    }

    static void setModificationTime(const fs::path& path, double unixSeconds) {
        timespec times[2];
        times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(unixSeconds);
        times[0].tv_nsec = times[1].tv_nsec = 0;
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    PendingDictation sample() const {
        PendingDictation e;
        e.timestamp = clock.now() - 5;
        e.mode = Mode{};
        e.mode->name = "Email";
        e.vocabulary = "Vocle, PipeWire";
        e.replacements = {Replacement::make("teh", "the")};
        e.error = "Server error (503): busy";
        return e;
    }
};

}  // namespace

TEST_F(PendingDictationStoreTest, KeepsACopyWithItsRecordAndReadsItBack) {
    const fs::path source = recording("audio_X.m4a", "compressed bytes");
    PendingDictationStore store(folder, clock);
    auto kept = store.keep(source, sample());
    ASSERT_TRUE(kept);

    EXPECT_EQ(kept->audioFile, pendingDir() / (kept->id.string() + ".m4a"));
    EXPECT_EQ(readText(kept->audioFile), "compressed bytes");
    EXPECT_EQ(readText(source), "compressed bytes") << "the recording in the temporary folder is left alone";

    const Json record = Json::parse(readText(pendingDir() / (kept->id.string() + ".json")));
    EXPECT_EQ(record["modeId"], kept->mode->id.string());
    EXPECT_EQ(record["vocabulary"], "Vocle, PipeWire");
    EXPECT_EQ(record["replacements"][0]["original"], "teh");
    EXPECT_EQ(record["error"], "Server error (503): busy");
    EXPECT_EQ(record["attempts"], 1);
    EXPECT_DOUBLE_EQ(record["timestamp"].get<double>(), toReferenceDate(clock.now() - 5));

    ASSERT_EQ(store.dictations.get().size(), 1u);
    PendingDictationStore reloaded(folder, clock);
    ASSERT_EQ(reloaded.dictations.get().size(), 1u);
    EXPECT_EQ(reloaded.dictations.get()[0], *kept);
}

TEST_F(PendingDictationStoreTest, AWavIsKeptAsWavAndAMissingRecordingIsReportedNotKept) {
    PendingDictationStore store(folder, clock);
    auto wav = store.keep(recording("final.wav", "RIFF"), sample());
    ASSERT_TRUE(wav);
    EXPECT_EQ(wav->audioFile.extension(), ".wav");

    EXPECT_FALSE(store.keep(home.path() / "gone.wav", sample()));
    EXPECT_EQ(store.dictations.get().size(), 1u);
    EXPECT_TRUE(logs->contains("Couldn't keep failed dictation"));
}

TEST_F(PendingDictationStoreTest, ListsNewestFirstAndRecordsFurtherFailuresAndRemoves) {
    PendingDictationStore store(folder, clock);
    auto older = store.keep(recording("a.wav", "a"), sample());
    auto later = sample();
    later.timestamp = clock.now();
    auto newer = store.keep(recording("b.wav", "b"), later);
    ASSERT_TRUE(older && newer);
    ASSERT_EQ(store.dictations.get().size(), 2u);
    EXPECT_EQ(store.dictations.get()[0].id, newer->id);

    EXPECT_TRUE(store.recordFailure(older->id, "The Internet connection appears to be offline."));
    PendingDictationStore reloaded(folder, clock);
    auto again = reloaded.find(older->id);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->attempts, 2);
    EXPECT_EQ(again->error, "The Internet connection appears to be offline.");

    EXPECT_TRUE(store.remove(older->id));
    EXPECT_FALSE(fs::exists(older->audioFile));
    EXPECT_FALSE(fs::exists(pendingDir() / (older->id.string() + ".json")));
    EXPECT_FALSE(store.remove(older->id));
    EXPECT_EQ(store.dictations.get().size(), 1u);
}

TEST_F(PendingDictationStoreTest, TheScanRecoversWhatACrashLeftBehind) {
    fs::create_directories(pendingDir());
    const Uuid orphan = Uuid::random();
    const Uuid recordOnly = Uuid::random();
    const Uuid broken = Uuid::random();
    // The audio was renamed into place but the record never followed.
    writeText(pendingDir() / (orphan.string() + ".m4a"), "audio");
    setModificationTime(pendingDir() / (orphan.string() + ".m4a"), clock.now() - 60);
    // A record whose audio is gone.
    {
        PendingDictation e = sample();
        e.id = recordOnly;
        e.audioFile = pendingDir() / (recordOnly.string() + ".wav");
        writeText(pendingDir() / (recordOnly.string() + ".json"),
                  PendingDictationStore::recordJson(e).dump());
    }
    // A record cut short, its audio intact.
    writeText(pendingDir() / (broken.string() + ".wav"), "wav");
    setModificationTime(pendingDir() / (broken.string() + ".wav"), clock.now() - 30);
    writeText(pendingDir() / (broken.string() + ".json"), "{\"id\": \"");
    // Half-written copies: a fresh one may belong to another process, a day-old one is debris.
    writeText(pendingDir() / ".x.m4a.tmp-1", "half");
    writeText(pendingDir() / ".y.m4a.tmp-2", "half");
    setModificationTime(pendingDir() / ".y.m4a.tmp-2", clock.now() - 2 * 24 * 3600);
    setModificationTime(pendingDir() / ".x.m4a.tmp-1", clock.now() - 60);

    PendingDictationStore store(folder, clock);
    const auto& list = store.dictations.get();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, broken);
    EXPECT_EQ(list[1].id, orphan);
    for (const auto& e : list) {
        EXPECT_TRUE(e.recovered);
        EXPECT_EQ(e.error, "Recovered");
        EXPECT_FALSE(e.mode);
    }
    EXPECT_DOUBLE_EQ(list[1].timestamp, clock.now() - 60);
    EXPECT_FALSE(fs::exists(pendingDir() / (recordOnly.string() + ".json")));
    EXPECT_TRUE(logs->contains("Failed to load failed dictation record " + broken.string()));
    bool keptAside = false;
    for (const auto& f : fs::directory_iterator(pendingDir()))
        keptAside |= f.path().filename().string().starts_with(broken.string() + ".json.corrupt-");
    EXPECT_TRUE(keptAside) << "the unreadable record is copied aside";
    EXPECT_TRUE(fs::exists(pendingDir() / ".x.m4a.tmp-1"));
    EXPECT_FALSE(fs::exists(pendingDir() / ".y.m4a.tmp-2"));

    // A recovered dictation that fails again gains a record and stays.
    EXPECT_TRUE(store.recordFailure(orphan, "Server error (500): down"));
    PendingDictationStore reloaded(folder, clock);
    auto again = reloaded.find(orphan);
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->recovered);
    EXPECT_EQ(again->attempts, 1);
}

TEST_F(PendingDictationStoreTest, ExpiresWithTheHistoryAfterThirtyDaysNeverSooner) {
    const double recordedAt = clock.now();
    {
        PendingDictationStore store(folder, clock);
        auto e = sample();
        e.timestamp = recordedAt;
        ASSERT_TRUE(store.keep(recording("a.m4a", "a"), e));
    }
    // One second before the history's cutoff reaches it: still kept.
    clock.shiftWallClock(Seconds(recordedAt - thirtyDaysBefore(recordedAt) - 1));
    ASSERT_GT(thirtyDaysBefore(clock.now()), recordedAt - 2);
    {
        PendingDictationStore store(folder, clock);
        EXPECT_EQ(store.dictations.get().size(), 1u);
    }
    // Advance until the cutoff equals the recording time exactly (a DST change may move it an hour).
    while (thirtyDaysBefore(clock.now()) < recordedAt) clock.shiftWallClock(Seconds(1));
    PendingDictationStore store(folder, clock);
    EXPECT_TRUE(store.dictations.get().empty());
    EXPECT_TRUE(fs::is_empty(pendingDir()));
    EXPECT_TRUE(logs->contains("Removed expired failed dictation"));
}

TEST_F(PendingDictationStoreTest, AProcessKilledAtAnyMomentOfKeepingLeavesWholeRecordingsOnly) {
    std::string audio(2 << 20, '\0');
    std::mt19937 rng(21);
    for (auto& c : audio) c = static_cast<char>(rng());
    const fs::path source = recording("audio_big.m4a", audio);
    std::uniform_int_distribution<int> killAfterMicroseconds(0, 40000);
    for (int round = 0; round < 25; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            PendingDictationStore store(folder, clock);
            for (;;) store.keep(source, sample());
        }
        // Busy-wait rather than sleep: the point is a kill at an arbitrary instruction of the child.
        const auto until =
            std::chrono::steady_clock::now() + std::chrono::microseconds(killAfterMicroseconds(rng));
        while (std::chrono::steady_clock::now() < until) {
        }
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
    }
    PendingDictationStore store(folder, clock);
    size_t recovered = 0;
    for (const auto& e : store.dictations.get()) {
        ASSERT_EQ(readText(e.audioFile), audio) << "a listed recording is whole: " << e.audioFile;
        recovered += e.recovered;
    }
    for (const auto& f : fs::directory_iterator(pendingDir())) {
        const std::string name = f.path().filename().string();
        if (name.starts_with(".")) continue;  // a copy cut short, never listed
        EXPECT_TRUE(store.find(*Uuid::parse(f.path().stem().string()))) << name << " is listed";
    }
    EXPECT_LE(recovered, 25u) << "at most the one cut short in each killed process";
}
