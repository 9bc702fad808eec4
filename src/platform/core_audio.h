#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vocle {

// The audio device registry: default devices, the device list, names and the output volume. Calls
// block and may be made from any thread; on Linux device ids are PulseAudio sink or source indexes,
// uids are their names and names their descriptions. Errors carry the status in `code`.
using AudioDeviceId = uint32_t;

enum class AudioScope { output, input };

class CoreAudio {
public:
    virtual ~CoreAudio() = default;

    virtual Result<AudioDeviceId> defaultDevice(AudioScope scope) = 0;
    virtual std::optional<Error> setDefaultOutput(AudioDeviceId id) = 0;
    // Output devices in the registry's order.
    virtual Result<std::vector<AudioDeviceId>> deviceList() = 0;
    virtual Result<std::string> deviceUID(AudioDeviceId id) = 0;
    virtual Result<std::string> deviceName(AudioDeviceId id) = 0;
    // Main volume of an output device, 0…1.
    virtual Result<float> volume(AudioDeviceId id) = 0;
    virtual std::optional<Error> setVolume(AudioDeviceId id, float volume) = 0;
};

}  // namespace vocle
