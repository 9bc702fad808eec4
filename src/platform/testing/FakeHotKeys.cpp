#include "platform/testing/FakeHotKeys.h"

#include <algorithm>

namespace vocle::testing {

int FakeHotKeys::installHandler(Handler handler) {
    if (installStatus != kHotKeyOk) return installStatus;
    handler_ = std::move(handler);
    return kHotKeyOk;
}

void FakeHotKeys::removeHandler() {
    handler_ = nullptr;
}

HotKeyRegistration FakeHotKeys::registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) {
    ++registerCalls;
    if (!handler_) return {std::nullopt, kHotKeyNoHandler};
    const auto refused = refused_.find({keyCode, modifiers & kShortcutModifierMask});
    if (refused != refused_.end()) return {std::nullopt, refused->second};
    const HotKeyHandle handle = nextHandle_++;
    registrations_.push_back({handle, keyCode, modifiers & kShortcutModifierMask, id});
    return {handle, kHotKeyOk};
}

void FakeHotKeys::unregisterHotKey(HotKeyHandle handle) {
    std::erase_if(registrations_, [&](const Registered& r) { return r.handle == handle; });
}

std::optional<FakeHotKeys::Registered> FakeHotKeys::registrationFor(uint32_t id) const {
    const auto it =
        std::find_if(registrations_.begin(), registrations_.end(), [&](auto& r) { return r.id == id; });
    if (it == registrations_.end()) return std::nullopt;
    return *it;
}

bool FakeHotKeys::press(uint16_t keyCode, uint64_t flags) {
    const uint64_t mods = flags & kShortcutModifierMask;
    for (const auto& r : registrations_) {
        if (r.keyCode == keyCode && r.modifiers == mods) {
            if (handler_) mainQueue_.post([handler = handler_, id = r.id] { handler(id); });
            return true;
        }
    }
    return false;
}

}  // namespace vocle::testing
