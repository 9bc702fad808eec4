#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/DispatchQueue.h"
#include "platform/core_audio.h"

namespace vocle {

struct AudioDeviceSnapshot {
    AudioDeviceId deviceID = 0;
    std::string uid;
    std::string name;
};

// Opening a Bluetooth headset's microphone can move the output to the headset's hands-free profile;
// this remembers the output before the microphone opens and switches back afterwards, but only when
// the output is now a hands-free device. All work runs on its own serial queue.
class BluetoothAudioRouteManager {
public:
    BluetoothAudioRouteManager(CoreAudio& coreAudio, DispatchQueue& queue);
    ~BluetoothAudioRouteManager();

    // Runs on the manager's queue; the caller waits for it.
    void snapshotDefaultOutput();
    // Posted onto the manager's queue.
    void restoreOutputIfNeeded();

    static bool isHandsFreeDevice(const std::string& name, const std::string& uid);

    // The pending snapshot, for diagnostics; read it only while the queue is idle.
    std::optional<AudioDeviceSnapshot> pendingSnapshot() const;

private:
    struct State;
    std::shared_ptr<State> state_;
    DispatchQueue& queue_;
};

}  // namespace vocle
