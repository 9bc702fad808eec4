#include <gtest/gtest.h>

#include "recording/SoundEffectLocator.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

struct ControllerHarness {
    VirtualMainQueue queue;
    TempDir data;
    FileStorageManager storage{DataFolder(data.path()), queue};
    FakeCoreAudio coreAudio;
    FakeAudioPlayback playback;
    ManualDispatchQueue background;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    std::unique_ptr<SystemAudioController> controller;

    ControllerHarness() {
        std::filesystem::create_directories(data.path() / "sounds");
        writeText(data.path() / "sounds" / "start.aif", "FORM");
        writeText(data.path() / "sounds" / "stop.aiff", "FORM");
        coreAudio.add(1, "alsa_output.speakers", "Speakers", 0.7f);
        coreAudio.add(2, "alsa_output.hdmi", "HDMI", 0.4f);
        coreAudio.defaultOutput = 1;
        controller = std::make_unique<SystemAudioController>(
            queue, background, coreAudio, playback, storage,
            std::vector<std::filesystem::path>{data.path() / "sounds"});
    }
    float volume(AudioDeviceId id) { return coreAudio.devices[id].volume; }
};

TEST(SystemAudioController, PlaysAtTheSettingsVolumeAndRunsTheCompletionWhenTheSoundEnds) {
    ControllerHarness h;
    auto settings = h.storage.loadSettings();
    settings.soundVolume = 0.25;
    h.storage.saveSettings(settings);
    int done = 0;
    h.controller->playSoundEffect("stop", [&] { ++done; });
    ASSERT_EQ(h.playback.players.size(), 1u);
    EXPECT_EQ(h.playback.players[0]->file.filename(), "stop.aiff");
    EXPECT_FLOAT_EQ(h.playback.players[0]->volume, 0.25f);
    EXPECT_TRUE(h.controller->isPlayingSoundEffect());
    EXPECT_TRUE(h.logs->contains("🔊 Playing sound effect: stop at volume: 0.25"));
    EXPECT_EQ(done, 0);
    h.playback.players[0]->finish();
    EXPECT_FALSE(h.controller->isPlayingSoundEffect());
    h.queue.runUntilIdle();
    EXPECT_EQ(done, 1);
}

TEST(SystemAudioController, NewSoundCutsTheOldOneAndDropsItsCompletion) {
    ControllerHarness h;
    int startDone = 0, stopDone = 0;
    h.controller->playSoundEffect("start", [&] { ++startDone; });
    h.controller->playSoundEffect("stop", [&] { ++stopDone; });
    EXPECT_TRUE(h.playback.players[0]->stopped);
    h.playback.players[1]->finish();
    h.queue.runUntilIdle();
    EXPECT_EQ(startDone, 0);
    EXPECT_EQ(stopDone, 1);
}

TEST(SystemAudioController, DisabledMissingOrUnplayableSoundsCompleteAtOnce) {
    ControllerHarness h;
    int done = 0;
    h.controller->playSoundEffect("beep", [&] { ++done; });
    EXPECT_TRUE(h.logs->contains("❌ Sound file not found: beep"));
    h.playback.makeError = Error{"sndfile", 1, "bad header"};
    h.controller->playSoundEffect("start", [&] { ++done; });
    EXPECT_TRUE(h.logs->contains("❌ Could not play sound effect: bad header"));
    auto settings = h.storage.loadSettings();
    settings.enableSoundEffects = false;
    h.storage.saveSettings(settings);
    h.controller->playSoundEffect("start", [&] { ++done; });
    EXPECT_TRUE(h.logs->contains("🔇 Sound effects disabled in settings"));
    EXPECT_EQ(done, 3);
    EXPECT_FALSE(h.controller->isPlayingSoundEffect());
}

TEST(SystemAudioController, MutesPointThreeSecondsAfterTheStartSoundAndRestoresOnTheCurrentDevice) {
    ControllerHarness h;
    h.controller->playStartSoundThenMute();
    EXPECT_EQ(h.playback.players.size(), 1u);
    h.queue.advance(0.29);
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.7f);
    h.queue.advance(0.02);
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.0f);

    // The output moved meanwhile: the remembered volume goes to the device current now.
    h.coreAudio.defaultOutput = 2;
    h.controller->restoreSystemAudio();
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(2), 0.7f);
    EXPECT_TRUE(h.logs->contains("🔊 System audio restored to volume: 0.7"));
    // Restoring again does nothing.
    const auto writes = h.coreAudio.volumeWrites.size();
    h.controller->restoreSystemAudio();
    h.background.runAll();
    EXPECT_EQ(h.coreAudio.volumeWrites.size(), writes);
}

TEST(SystemAudioController, CancelWithinPointThreeSecondsLeavesTheOutputMuted) {
    ControllerHarness h;
    h.controller->playStartSoundThenMute();
    h.queue.advance(0.1);
    h.controller->restoreSystemAudio();  // the cancel's restore runs first and finds nothing to undo
    h.background.runAll();
    EXPECT_TRUE(h.coreAudio.volumeWrites.empty());
    h.queue.advance(0.2);
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.0f);  // muted until the next restore
    h.controller->restoreSystemAudio();
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.7f);
}

TEST(SystemAudioController, FailedReadsAndWritesOnlyLog) {
    ControllerHarness h;
    h.coreAudio.failVolumeRead = true;
    h.controller->playStartSoundThenMute();
    h.queue.advance(0.3);
    h.background.runAll();
    EXPECT_TRUE(h.logs->contains("❌ Failed to get current volume"));
    EXPECT_FLOAT_EQ(h.volume(1), 0.7f);

    h.coreAudio.failVolumeRead = false;
    h.controller->playStartSoundThenMute();
    h.queue.advance(0.3);
    h.background.runAll();
    h.coreAudio.failVolumeWrite = true;
    h.controller->restoreSystemAudio();
    h.background.runAll();
    EXPECT_TRUE(h.logs->contains("❌ Failed to restore system audio"));
    h.coreAudio.failVolumeWrite = false;
    h.controller->restoreSystemAudio();  // still owed, so it tries again
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.7f);

    // Two mutes in a row remember 0.0 the second time.
    h.controller->playStartSoundThenMute();
    h.controller->playStartSoundThenMute();
    h.queue.advance(0.3);
    h.background.runAll();
    h.controller->restoreSystemAudio();
    h.background.runAll();
    EXPECT_FLOAT_EQ(h.volume(1), 0.0f);
}

TEST(SoundEffectLocator, SearchOrderAndExtensions) {
    TempDir dir;
    MapEnvironment env({{"VOCLE_DATA_DIR", dir.path().string()}});
    const auto dirs = soundSearchDirectories(env);
    ASSERT_GE(dirs.size(), 2u);
    EXPECT_EQ(dirs[0], dir.path() / "sounds");
    EXPECT_EQ(dirs.back(), std::filesystem::path(VOCLE_SOURCE_DIR) / "data" / "sounds");
    EXPECT_EQ(soundSearchDirectories(MapEnvironment{}).size(), dirs.size() - 1);

    std::filesystem::create_directories(dir / "a");
    std::filesystem::create_directories(dir / "b");
    writeText(dir / "b" / "start.aif", "x");
    writeText(dir / "a" / "start.AIFF", "x");
    writeText(dir / "a" / "start.aiff", "x");
    EXPECT_EQ(findSoundFile("start", {dir / "a", dir / "b"}), dir / "a" / "start.aiff");
    EXPECT_EQ(findSoundFile("start", {dir / "b", dir / "a"}), dir / "b" / "start.aif");
    EXPECT_FALSE(findSoundFile("stop", {dir / "a", dir / "b"}).has_value());
}

}  // namespace
