#include "support/RemoteDesktopProbe.h"

#include <algorithm>
#include <stdexcept>

namespace vocle::testing {

namespace {
constexpr uint32_t kKeyboard = 1;
constexpr uint32_t kControlL = 0xffe3;
}  // namespace

RemoteDesktopProbe::RemoteDesktopProbe(const std::string& busAddress, double timeout)
    : bus_(busAddress), timeout_(timeout) {
    // Request paths carry the caller's unique name without its colon, dots made underscores.
    sender_ = bus_.uniqueName().substr(1);
    std::replace(sender_.begin(), sender_.end(), '.', '_');
    bus_.addMatch("type='signal',interface='org.freedesktop.portal.Request',member='Response'");
}

RemoteDesktopProbe::Response RemoteDesktopProbe::request(const std::string& method, TestBus::Args args,
                                                         const std::function<void()>& meanwhile) {
    const std::string token = "vocletest" + std::to_string(++counter_);
    std::get<TestBus::Dict>(args.back())["handle_token"] = token;
    const std::string expected = std::string(kPath) + "/request/" + sender_ + "/" + token;
    const auto reply = bus_.call(kPortal, kPath, kInterface, method, args, timeout_);
    const auto* handle = reply.empty() ? nullptr : std::get_if<TestBus::ObjectPath>(&reply.front());
    if (!handle) throw std::runtime_error(method + " returned no request handle");
    if (handle->path != expected)
        throw std::runtime_error(method + " answered on " + handle->path + ", not " + expected);
    bool answered = false;
    const auto body =
        bus_.waitForSignal(handle->path, "org.freedesktop.portal.Request", "Response", timeout_, [&] {
            if (meanwhile && !answered) {
                answered = true;
                meanwhile();
            }
        });
    if (!body) throw std::runtime_error(method + ": no Response within the time limit");
    Response out;
    if (body->size() >= 1 && std::holds_alternative<uint32_t>((*body)[0]))
        out.code = std::get<uint32_t>((*body)[0]);
    if (body->size() >= 2 && std::holds_alternative<TestBus::Dict>((*body)[1]))
        out.results = std::get<TestBus::Dict>((*body)[1]);
    return out;
}

RemoteDesktopProbe::Response RemoteDesktopProbe::createKeyboardSession(const TestBus::Dict& selectOptions) {
    auto created =
        request("CreateSession",
                {TestBus::Dict{{"session_handle_token", "vocletestsession" + std::to_string(counter_)}}});
    if (created.code != 0) return created;
    // The session handle is a string in the results (an object path in newer portals).
    if (auto s = lookup<std::string>(created.results, "session_handle"))
        session_ = *s;
    else if (auto o = lookup<TestBus::ObjectPath>(created.results, "session_handle"))
        session_ = o->path;
    else
        throw std::runtime_error("CreateSession: no session_handle in the response");
    TestBus::Dict options = selectOptions;
    options["types"] = kKeyboard;
    return request("SelectDevices", {TestBus::ObjectPath{session_}, options});
}

RemoteDesktopProbe::Response RemoteDesktopProbe::start(const std::function<void()>& answer) {
    return request("Start", {TestBus::ObjectPath{session_}, std::string(), TestBus::Dict{}}, answer);
}

void RemoteDesktopProbe::keysym(uint32_t keysym, bool pressed) {
    bus_.call(
        kPortal, kPath, kInterface, "NotifyKeyboardKeysym",
        {TestBus::ObjectPath{session_}, TestBus::Dict{}, static_cast<int32_t>(keysym), pressed ? 1u : 0u},
        timeout_);
}

void RemoteDesktopProbe::type(const std::string& ascii) {
    for (const char c : ascii) {
        keysym(static_cast<unsigned char>(c), true);
        keysym(static_cast<unsigned char>(c), false);
    }
}

void RemoteDesktopProbe::paste() {
    keysym(kControlL, true);
    keysym('v', true);
    keysym('v', false);
    keysym(kControlL, false);
}

void RemoteDesktopProbe::close() {
    if (session_.empty()) return;
    bus_.call(kPortal, session_, "org.freedesktop.portal.Session", "Close", {}, timeout_);
}

}  // namespace vocle::testing
