#include "platform/linux/PulseCoreAudio.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace vocle {

namespace {

constexpr const char* kDomain = "PulseAudio";

Error noEntity(const std::string& what) {
    return Error{kDomain, PA_ERR_NOENTITY, what + ": " + pa_strerror(PA_ERR_NOENTITY)};
}

bool contains(const std::string& s, const char* part) {
    return s.find(part) != std::string::npos;
}

}  // namespace

bool PulseCoreAudio::isHeadUnitProfile(const std::string& sinkName, const std::string& profile) {
    for (const auto& s : {sinkName, profile}) {
        if (contains(s, "head_unit") || contains(s, "head-unit") || contains(s, "headset_audio_gateway") ||
            contains(s, "headset-audio-gateway") || contains(s, "hsp") || contains(s, "hfp"))
            return true;
    }
    return false;
}

std::string PulseCoreAudio::profileToRestore(const std::string& remembered,
                                             const std::vector<std::string>& offered) {
    if (remembered.empty()) return {};
    for (const auto& p : offered)
        if (p == remembered) return p;
    // PipeWire offers one profile per codec beside the plain one; the card's own order is its preference.
    for (const auto& p : offered)
        if (p.rfind(remembered, 0) == 0) return p;
    return {};
}

Result<PulseConnection::Sink> PulseCoreAudio::sink(AudioDeviceId id) {
    auto list = pulse_.sinks();
    if (!list.ok()) return list.error();
    std::lock_guard lock(mutex_);
    std::optional<PulseConnection::Sink> found;
    for (const auto& s : list.value()) {
        known_[s.index] = Known{s.name, s.card, s.profile};
        if (s.index == id) found = s;
    }
    if (!found) return noEntity("No output device " + std::to_string(id));
    return *found;
}

Result<AudioDeviceId> PulseCoreAudio::defaultDevice(AudioScope scope) {
    auto info = pulse_.serverInfo();
    if (!info.ok()) return info.error();
    if (scope == AudioScope::output) {
        auto list = pulse_.sinks();
        if (!list.ok()) return list.error();
        for (const auto& s : list.value())
            if (s.name == info.value().defaultSink) return s.index;
        return noEntity("No default output device");
    }
    auto list = pulse_.sources();
    if (!list.ok()) return list.error();
    for (const auto& s : list.value())
        if (s.name == info.value().defaultSource) return s.index | kInputFlag;
    return noEntity("No default input device");
}

Result<std::vector<AudioDeviceId>> PulseCoreAudio::deviceList() {
    auto list = pulse_.sinks();
    if (!list.ok()) return list.error();
    std::vector<AudioDeviceId> ids;
    std::lock_guard lock(mutex_);
    for (const auto& s : list.value()) {
        known_[s.index] = Known{s.name, s.card, s.profile};
        ids.push_back(s.index);
    }
    return ids;
}

Result<std::string> PulseCoreAudio::deviceUID(AudioDeviceId id) {
    if (id & kInputFlag) {
        auto list = pulse_.sources();
        if (!list.ok()) return list.error();
        for (const auto& s : list.value())
            if (s.index == (id & ~kInputFlag)) return s.name;
        return noEntity("No input device " + std::to_string(id & ~kInputFlag));
    }
    auto s = sink(id);
    if (!s.ok()) return s.error();
    return s.value().name;
}

Result<std::string> PulseCoreAudio::deviceName(AudioDeviceId id) {
    if (id & kInputFlag) {
        auto list = pulse_.sources();
        if (!list.ok()) return list.error();
        for (const auto& s : list.value())
            if (s.index == (id & ~kInputFlag)) return s.description;
        return noEntity("No input device " + std::to_string(id & ~kInputFlag));
    }
    auto s = sink(id);
    if (!s.ok()) return s.error();
    if (isHeadUnitProfile(s.value().name, s.value().profile)) return s.value().description + " Hands-Free";
    return s.value().description;
}

Result<float> PulseCoreAudio::volume(AudioDeviceId id) {
    auto s = sink(id);
    if (!s.ok()) return s.error();
    const double v = static_cast<double>(pa_cvolume_avg(&s.value().volume)) / PA_VOLUME_NORM;
    return static_cast<float>(std::clamp(v, 0.0, 1.0));
}

std::optional<Error> PulseCoreAudio::setVolume(AudioDeviceId id, float volume) {
    auto s = sink(id);
    if (!s.ok()) return s.error();
    pa_cvolume cv = s.value().volume;
    const auto raw = static_cast<pa_volume_t>(std::lround(std::clamp(volume, 0.0f, 1.0f) * PA_VOLUME_NORM));
    pa_cvolume_set(&cv, cv.channels ? cv.channels : s.value().sampleFormat.channels, raw);
    return pulse_.setSinkVolume(id, cv);
}

std::optional<Error> PulseCoreAudio::setDefaultOutput(AudioDeviceId id) {
    auto s = sink(id);
    if (s.ok()) return pulse_.setDefaultSink(s.value().name);

    // The sink went away: if it belonged to a card profile that is still offered, switch back to it
    // and select the sink the card brings up.
    Known known;
    {
        std::lock_guard lock(mutex_);
        auto it = known_.find(id);
        if (it == known_.end() || it->second.card == PA_INVALID_INDEX || it->second.profile.empty())
            return s.error();
        known = it->second;
    }
    auto cards = pulse_.cards();
    if (!cards.ok()) return cards.error();
    std::string profile;
    for (const auto& c : cards.value())
        if (c.index == known.card) profile = profileToRestore(known.profile, c.availableProfiles);
    if (profile.empty()) return s.error();
    if (auto error = pulse_.setCardProfile(known.card, profile)) return error;
    for (int attempt = 0; attempt < 30; ++attempt) {
        auto list = pulse_.sinks();
        if (!list.ok()) return list.error();
        for (const auto& candidate : list.value()) {
            if (candidate.card == known.card && !isHeadUnitProfile(candidate.name, candidate.profile))
                return pulse_.setDefaultSink(candidate.name);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return noEntity("The output did not come back after switching the card profile");
}

}  // namespace vocle
