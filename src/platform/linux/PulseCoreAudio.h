#pragma once

#include <map>
#include <mutex>

#include "platform/core_audio.h"
#include "platform/linux/PulseConnection.h"

namespace vocle {

// The device registry on PulseAudio. Output ids are sink indexes; input ids are source indexes with
// the top bit set. A sink of a Bluetooth head-unit profile is named "{description} Hands-Free" so
// that it reads as a hands-free device. Selecting a Bluetooth output whose profile the card left
// (it switched to the head unit when the microphone opened) switches the card back first.
class PulseCoreAudio final : public CoreAudio {
  public:
    explicit PulseCoreAudio(PulseConnection& connection) : pulse_(connection) {}

    static constexpr AudioDeviceId kInputFlag = 0x80000000u;

    Result<AudioDeviceId> defaultDevice(AudioScope scope) override;
    std::optional<Error> setDefaultOutput(AudioDeviceId id) override;
    Result<std::vector<AudioDeviceId>> deviceList() override;
    Result<std::string> deviceUID(AudioDeviceId id) override;
    Result<std::string> deviceName(AudioDeviceId id) override;
    Result<float> volume(AudioDeviceId id) override;
    std::optional<Error> setVolume(AudioDeviceId id, float volume) override;

    static bool isHeadUnitProfile(const std::string& sinkName, const std::string& profile);
    // The card profile that brings back a sink of `remembered` profile: the same name, else the first
    // codec variant of it ("a2dp-sink" -> "a2dp-sink-aac"); empty when the card offers neither.
    static std::string profileToRestore(const std::string& remembered,
                                        const std::vector<std::string>& offered);

  private:
    Result<PulseConnection::Sink> sink(AudioDeviceId id);

    PulseConnection& pulse_;
    // Sinks seen before, so one that vanished with a profile switch can be brought back.
    struct Known {
        std::string name;
        uint32_t card;
        std::string profile;
    };
    std::mutex mutex_;
    std::map<AudioDeviceId, Known> known_;
};

}  // namespace vocle
