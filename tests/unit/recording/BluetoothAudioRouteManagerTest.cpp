#include <gtest/gtest.h>

#include <thread>

#include "foundation/DispatchQueue.h"
#include "foundation/Log.h"
#include "platform/testing/FakeCoreAudio.h"
#include "recording/BluetoothAudioRouteManager.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

struct RouteHarness {
    FakeCoreAudio audio;
    ManualDispatchQueue restoreQueue;
    InlineDispatchQueue inlineQueue;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    RouteHarness() {
        audio.add(10, "alsa_output.pci.analog-stereo", "Built-in Speakers");
        audio.add(11, "bluez_sink.00_1B.a2dp_sink", "Studio Headphones");
        audio.add(12, "bluez_sink.00_1B.handsfree_head_unit", "Studio Headphones Hands-Free");
        audio.add(13, "alsa_output.usb-dac", "USB DAC");
    }
};

TEST(BluetoothAudioRouteManager, HandsFreeDetection) {
    EXPECT_TRUE(BluetoothAudioRouteManager::isHandsFreeDevice("Studio Headphones Hands-Free", "x"));
    EXPECT_TRUE(BluetoothAudioRouteManager::isHandsFreeDevice("HandsFree", "x"));
    EXPECT_TRUE(BluetoothAudioRouteManager::isHandsFreeDevice("Headset", "bluez_sink.AA.headset_hfp"));
    EXPECT_TRUE(BluetoothAudioRouteManager::isHandsFreeDevice("Headset", "BLUEZ_SCO"));
    EXPECT_FALSE(
        BluetoothAudioRouteManager::isHandsFreeDevice("Studio Headphones", "bluez_sink.AA.a2dp_sink"));
}

TEST(BluetoothAudioRouteManager, RestoresOnlyWhenTheOutputMovedToAHandsFreeDevice) {
    RouteHarness h;
    BluetoothAudioRouteManager m(h.audio, h.inlineQueue);
    // Same device throughout: nothing to do.
    h.audio.defaultOutput = 10;
    m.snapshotDefaultOutput();
    m.restoreOutputIfNeeded();
    EXPECT_TRUE(h.audio.defaultWrites.empty());

    // Moved to hands-free during the recording: back to the headphones.
    h.audio.defaultOutput = 11;
    m.snapshotDefaultOutput();
    h.audio.defaultOutput = 12;
    m.restoreOutputIfNeeded();
    EXPECT_EQ(h.audio.defaultWrites, std::vector<AudioDeviceId>{11});
    EXPECT_TRUE(
        h.logs->contains("🎧 [BluetoothAudioRouteManager] Restoring output device to Studio Headphones "
                         "[UID=bluez_sink.00_1B.a2dp_sink] "
                         "from Studio Headphones Hands-Free"));
    EXPECT_TRUE(
        h.logs->contains("🎧 [BluetoothAudioRouteManager] Successfully restored default output device"));

    // The user picked other speakers: left alone.
    h.audio.defaultOutput = 11;
    m.snapshotDefaultOutput();
    h.audio.defaultOutput = 13;
    m.restoreOutputIfNeeded();
    EXPECT_EQ(h.audio.defaultWrites.size(), 1u);
    EXPECT_TRUE(
        h.logs->contains("Skipping output restore because current device appears user-selected: USB DAC"));
}

TEST(BluetoothAudioRouteManager, SnapshotOnHandsFreePrefersTheCompanion) {
    RouteHarness h;
    BluetoothAudioRouteManager m(h.audio, h.inlineQueue);
    h.audio.defaultOutput = 12;
    m.snapshotDefaultOutput();
    ASSERT_TRUE(m.pendingSnapshot().has_value());
    EXPECT_EQ(m.pendingSnapshot()->deviceID, 11u);
    EXPECT_TRUE(h.logs->contains(
        "Snapshot prefers companion output: Studio Headphones [UID=bluez_sink.00_1B.a2dp_sink]"));
    m.restoreOutputIfNeeded();
    EXPECT_EQ(h.audio.defaultWrites, std::vector<AudioDeviceId>{11});
}

TEST(BluetoothAudioRouteManager, FirstSnapshotWinsAndOnlyTheFirstOfThreeRestoresActs) {
    RouteHarness h;
    BluetoothAudioRouteManager m(h.audio, h.restoreQueue);
    // The snapshot waits for its queue; a second thread plays the queue's worker.
    auto snapshot = [&] {
        std::thread worker([&] {
            while (h.restoreQueue.pending() == 0) std::this_thread::yield();
            h.restoreQueue.runAll();
        });
        m.snapshotDefaultOutput();
        worker.join();
    };
    h.audio.defaultOutput = 11;
    snapshot();
    h.audio.defaultOutput = 10;
    snapshot();
    EXPECT_EQ(m.pendingSnapshot()->deviceID, 11u);

    h.audio.defaultOutput = 12;
    m.restoreOutputIfNeeded();
    m.restoreOutputIfNeeded();
    m.restoreOutputIfNeeded();
    EXPECT_TRUE(h.audio.defaultWrites.empty());  // nothing before the queue runs
    EXPECT_EQ(h.restoreQueue.runAll(), 3u);
    EXPECT_EQ(h.audio.defaultWrites, std::vector<AudioDeviceId>{11});
    EXPECT_FALSE(m.pendingSnapshot().has_value());
}

TEST(BluetoothAudioRouteManager, FailuresOnlyLog) {
    RouteHarness h;
    BluetoothAudioRouteManager m(h.audio, h.inlineQueue);
    h.audio.failDefaultRead = true;
    m.snapshotDefaultOutput();
    EXPECT_FALSE(m.pendingSnapshot().has_value());
    EXPECT_TRUE(h.logs->contains("Failed to get default device for scope 1682929012: status=-1"));

    h.audio.failDefaultRead = false;
    h.audio.failDeviceList = true;
    h.audio.defaultOutput = 12;
    m.snapshotDefaultOutput();  // no companion can be found: the hands-free device itself is kept
    EXPECT_EQ(m.pendingSnapshot()->deviceID, 12u);
    EXPECT_TRUE(h.logs->contains("Failed to read device list: status=-3"));

    BluetoothAudioRouteManager w(h.audio, h.inlineQueue);
    h.audio.failDeviceList = false;
    h.audio.defaultOutput = 11;
    w.snapshotDefaultOutput();
    h.audio.defaultOutput = 12;
    h.audio.failDefaultWrite = true;
    w.restoreOutputIfNeeded();
    EXPECT_TRUE(h.logs->contains("Failed to restore default output device: status=-2"));
}

}  // namespace
