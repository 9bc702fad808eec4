#include "recording/BluetoothAudioRouteManager.h"

#include <algorithm>
#include <cctype>
#include <future>

#include "foundation/Log.h"
#include "foundation/Text.h"

namespace vocle {

namespace {

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

bool contains(const std::string& haystack, const std::string& needle) {
    return haystack.find(needle) != std::string::npos;
}

void routeLog(const std::string& message) { log("🎧 [BluetoothAudioRouteManager] ", message); }

// Removes every case-insensitive occurrence of `word`.
std::string removeWord(std::string text, const std::string& word) {
    const std::string needle = lower(word);
    for (size_t pos = lower(text).find(needle); pos != std::string::npos; pos = lower(text).find(needle)) {
        text.erase(pos, word.size());
    }
    return text;
}

}  // namespace

struct BluetoothAudioRouteManager::State {
    explicit State(CoreAudio& c) : coreAudio(c) {}
    CoreAudio& coreAudio;
    std::optional<AudioDeviceSnapshot> originalOutput;

    std::optional<AudioDeviceId> defaultDevice(AudioScope scope) {
        auto r = coreAudio.defaultDevice(scope);
        if (!r.ok()) {
            const uint32_t selector = scope == AudioScope::output ? 0x644f7574u /* 'dOut' */ : 0x64496e20u;
            routeLog("Failed to get default device for scope " + std::to_string(selector) +
                     ": status=" + std::to_string(r.error().code));
            return std::nullopt;
        }
        return r.value();
    }
    std::optional<std::string> uid(AudioDeviceId id) {
        auto r = coreAudio.deviceUID(id);
        if (!r.ok()) {
            routeLog("Failed to get device UID for ID " + std::to_string(id) +
                     ": status=" + std::to_string(r.error().code));
            return std::nullopt;
        }
        return r.value();
    }
    std::optional<std::string> name(AudioDeviceId id) {
        auto r = coreAudio.deviceName(id);
        if (!r.ok()) {
            routeLog("Failed to get device name for ID " + std::to_string(id) +
                     ": status=" + std::to_string(r.error().code));
            return std::nullopt;
        }
        return r.value();
    }
    std::optional<AudioDeviceSnapshot> currentOutput() {
        auto id = defaultDevice(AudioScope::output);
        if (!id) return std::nullopt;
        auto u = uid(*id);
        if (!u) return std::nullopt;
        auto n = name(*id);
        if (!n) return std::nullopt;
        return AudioDeviceSnapshot{*id, *u, *n};
    }

    std::optional<AudioDeviceSnapshot> findCompanionOutput(const std::string& handsFreeName) {
        const std::string base = trimWhitespace(removeWord(removeWord(handsFreeName, "Hands-Free"), "Handsfree"));
        if (base.empty()) return std::nullopt;
        auto list = coreAudio.deviceList();
        if (!list.ok()) {
            routeLog("Failed to read device list: status=" + std::to_string(list.error().code));
            return std::nullopt;
        }
        for (AudioDeviceId id : list.value()) {
            auto n = name(id);
            if (!n) continue;
            auto u = coreAudio.deviceUID(id);
            if (!u.ok()) continue;
            if (isHandsFreeDevice(*n, u.value())) continue;
            if (contains(lower(*n), lower(base))) return AudioDeviceSnapshot{id, u.value(), *n};
        }
        return std::nullopt;
    }

    void snapshot() {
        if (originalOutput) return;  // the first snapshot of a recording wins until a restore takes it
        auto current = currentOutput();
        if (!current) return;
        if (isHandsFreeDevice(current->name, current->uid)) {
            if (auto companion = findCompanionOutput(current->name)) {
                originalOutput = companion;
                routeLog("Snapshot prefers companion output: " + companion->name + " [UID=" + companion->uid + "]");
                return;
            }
        }
        originalOutput = current;
        routeLog("Snapshot default output: " + current->name + " [UID=" + current->uid + "]");
    }

    void restore() {
        if (!originalOutput) return;
        const AudioDeviceSnapshot wanted = *std::exchange(originalOutput, std::nullopt);
        auto current = currentOutput();
        if (!current) return;
        if (current->uid == wanted.uid) return;
        if (!isHandsFreeDevice(current->name, current->uid)) {
            routeLog("Skipping output restore because current device appears user-selected: " + current->name);
            return;
        }
        routeLog("Restoring output device to " + wanted.name + " [UID=" + wanted.uid + "] from " + current->name);
        if (auto error = coreAudio.setDefaultOutput(wanted.deviceID)) {
            routeLog("Failed to restore default output device: status=" + std::to_string(error->code));
        } else {
            routeLog("Successfully restored default output device");
        }
    }
};

BluetoothAudioRouteManager::BluetoothAudioRouteManager(CoreAudio& coreAudio, DispatchQueue& queue)
    : state_(std::make_shared<State>(coreAudio)), queue_(queue) {}

BluetoothAudioRouteManager::~BluetoothAudioRouteManager() = default;

bool BluetoothAudioRouteManager::isHandsFreeDevice(const std::string& name, const std::string& uid) {
    const auto n = lower(name);
    const auto u = lower(uid);
    return contains(n, "hands-free") || contains(n, "handsfree") || contains(u, "hands-free") ||
           contains(u, "handsfree") || contains(u, "sco") || contains(u, "hfp");
}

void BluetoothAudioRouteManager::snapshotDefaultOutput() {
    std::promise<void> done;
    auto finished = done.get_future();
    queue_.async([state = state_, &done] {
        state->snapshot();
        done.set_value();
    });
    finished.wait();
}

void BluetoothAudioRouteManager::restoreOutputIfNeeded() {
    queue_.async([weak = std::weak_ptr<State>(state_)] {
        if (auto state = weak.lock()) state->restore();
    });
}

std::optional<AudioDeviceSnapshot> BluetoothAudioRouteManager::pendingSnapshot() const {
    return state_->originalOutput;
}

}  // namespace vocle
