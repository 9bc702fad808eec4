#include "platform/testing/FakeCoreAudio.h"

namespace vocle::testing {

namespace {
Error failure(int status) {
    return Error{"FakeCoreAudio", status, "fake failure"};
}
}  // namespace

void FakeCoreAudio::add(AudioDeviceId id, std::string uid, std::string name, float vol) {
    std::lock_guard lock(mutex_);
    devices[id] = Device{std::move(uid), std::move(name), vol};
    order.push_back(id);
}

Result<AudioDeviceId> FakeCoreAudio::defaultDevice(AudioScope scope) {
    std::lock_guard lock(mutex_);
    auto id = scope == AudioScope::output ? defaultOutput : defaultInput;
    if (failDefaultRead || !id) return failure(-1);
    return *id;
}

std::optional<Error> FakeCoreAudio::setDefaultOutput(AudioDeviceId id) {
    std::lock_guard lock(mutex_);
    defaultWrites.push_back(id);
    if (failDefaultWrite || !devices.count(id)) return failure(-2);
    defaultOutput = id;
    return std::nullopt;
}

Result<std::vector<AudioDeviceId>> FakeCoreAudio::deviceList() {
    std::lock_guard lock(mutex_);
    if (failDeviceList) return failure(-3);
    return order;
}

Result<std::string> FakeCoreAudio::deviceUID(AudioDeviceId id) {
    std::lock_guard lock(mutex_);
    auto it = devices.find(id);
    if (it == devices.end()) return failure(-4);
    return it->second.uid;
}

Result<std::string> FakeCoreAudio::deviceName(AudioDeviceId id) {
    std::lock_guard lock(mutex_);
    auto it = devices.find(id);
    if (it == devices.end()) return failure(-5);
    return it->second.name;
}

Result<float> FakeCoreAudio::volume(AudioDeviceId id) {
    std::lock_guard lock(mutex_);
    auto it = devices.find(id);
    if (failVolumeRead || it == devices.end()) return failure(-6);
    return it->second.volume;
}

std::optional<Error> FakeCoreAudio::setVolume(AudioDeviceId id, float vol) {
    std::lock_guard lock(mutex_);
    volumeWrites.emplace_back(id, vol);
    auto it = devices.find(id);
    if (failVolumeWrite || it == devices.end()) return failure(-7);
    it->second.volume = vol;
    return std::nullopt;
}

}  // namespace vocle::testing
