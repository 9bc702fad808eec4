#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/core_audio.h"

namespace vocle::testing {

// A device registry held in memory; each read or write can be made to fail.
class FakeCoreAudio final : public CoreAudio {
  public:
    struct Device {
        std::string uid;
        std::string name;
        float volume = 1.0f;
    };
    std::map<AudioDeviceId, Device> devices;
    std::vector<AudioDeviceId> order;  // the device list, in registry order
    std::optional<AudioDeviceId> defaultOutput;
    std::optional<AudioDeviceId> defaultInput;

    bool failDefaultRead = false;
    bool failDeviceList = false;
    bool failVolumeRead = false;
    bool failVolumeWrite = false;
    bool failDefaultWrite = false;

    std::vector<std::pair<AudioDeviceId, float>> volumeWrites;
    std::vector<AudioDeviceId> defaultWrites;

    void add(AudioDeviceId id, std::string uid, std::string name, float volume = 1.0f);

    Result<AudioDeviceId> defaultDevice(AudioScope scope) override;
    std::optional<Error> setDefaultOutput(AudioDeviceId id) override;
    Result<std::vector<AudioDeviceId>> deviceList() override;
    Result<std::string> deviceUID(AudioDeviceId id) override;
    Result<std::string> deviceName(AudioDeviceId id) override;
    Result<float> volume(AudioDeviceId id) override;
    std::optional<Error> setVolume(AudioDeviceId id, float volume) override;

  private:
    std::recursive_mutex mutex_;
};

}  // namespace vocle::testing
