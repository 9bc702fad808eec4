#include <gtest/gtest.h>

#include "platform/linux/PulseCoreAudio.h"

using vocle::PulseCoreAudio;

namespace {

// The card profiles as each server names them, with and without a Bluetooth headset's codec variants.
TEST(PulseCoreAudioProfiles, CallProfilesOfBothServersReadAsHandsFree) {
    for (const char* profile :
         {"headset_head_unit", "handsfree_head_unit", "headset_audio_gateway", "headset-head-unit",
          "headset-head-unit-msbc", "headset-audio-gateway", "hfp_hf"})
        EXPECT_TRUE(PulseCoreAudio::isHeadUnitProfile("bluez_output.00_1B.1", profile)) << profile;
    for (const char* profile : {"a2dp_sink", "a2dp-sink", "a2dp-sink-aac", "analog-stereo", ""})
        EXPECT_FALSE(PulseCoreAudio::isHeadUnitProfile("bluez_output.00_1B.1", profile)) << profile;
    EXPECT_TRUE(PulseCoreAudio::isHeadUnitProfile("bluez_sink.00_1B.headset_head_unit", ""));
}

TEST(PulseCoreAudioProfiles, TheRememberedProfileComesBackBeforeAnyCodecVariantOfIt) {
    // PipeWire lists a variant per codec after the plain profile; the plain one is what was left.
    EXPECT_EQ(PulseCoreAudio::profileToRestore(
                  "a2dp-sink", {"off", "a2dp-sink", "a2dp-sink-sbc", "a2dp-sink-aac", "headset-head-unit"}),
              "a2dp-sink");
    EXPECT_EQ(PulseCoreAudio::profileToRestore("headset-head-unit",
                                               {"a2dp-sink", "headset-head-unit", "headset-head-unit-msbc"}),
              "headset-head-unit");
    EXPECT_EQ(PulseCoreAudio::profileToRestore("a2dp-sink", {"off", "a2dp-sink-aac", "a2dp-sink-sbc"}),
              "a2dp-sink-aac");
    EXPECT_EQ(PulseCoreAudio::profileToRestore("a2dp_sink", {"off", "a2dp_sink", "headset_head_unit"}),
              "a2dp_sink");
    // A profile that merely contains the name is another profile.
    EXPECT_EQ(PulseCoreAudio::profileToRestore("sink", {"a2dp-sink"}), "");
    EXPECT_EQ(PulseCoreAudio::profileToRestore("a2dp-sink", {"off", "headset-head-unit"}), "");
    EXPECT_EQ(PulseCoreAudio::profileToRestore("", {"off", "a2dp-sink"}), "");
}

}  // namespace
