#include "platform/testing/FakePortalBus.h"

#include <stdexcept>

#include "platform/portal/PortalRequest.h"

namespace vocle::testing {

using namespace portal;

FakePortalBus::FakePortalBus(MainQueue& main, std::string uniqueName)
    : unique(std::move(uniqueName)), main_(main) {}

namespace {
std::optional<std::string> handleToken(const BusCall& call) {
    for (const auto& arg : call.args)
        if (auto* dict = arg.asDict())
            if (auto token = dictString(*dict, "handle_token")) return token;
    return std::nullopt;
}
}  // namespace

void FakePortalBus::call(BusCall call, std::function<void(BusReply)> reply) {
    calls.push_back(call);
    BusReply answer;
    if (auto it = answers.find(call.interface + "." + call.method); it != answers.end())
        answer = it->second(call);
    else if (auto token = handleToken(call))
        answer.values.push_back(ObjectPath{requestPath(unique, *token)});
    main_.post([reply = std::move(reply), answer = std::move(answer)] { reply(answer); });
}

Subscription FakePortalBus::watchSignal(const std::string& path, const std::string& interface,
                                        const std::string& member, SignalHandler handler) {
    const uint64_t id = ++nextId_;
    watchers_[id] = Watcher{path, interface, member, std::move(handler)};
    return Subscription([this, id] { watchers_.erase(id); });
}

void FakePortalBus::emit(const std::string& path, const std::string& interface, const std::string& member,
                         const std::vector<BusValue>& args) {
    std::vector<SignalHandler> targets;
    for (const auto& [id, w] : watchers_)
        if (w.path == path && w.interface == interface && w.member == member) targets.push_back(w.handler);
    for (auto& handler : targets) handler(args);
}

std::vector<BusCall> FakePortalBus::callsOf(const std::string& method) const {
    std::vector<BusCall> found;
    for (const auto& c : calls)
        if (c.interface + "." + c.method == method) found.push_back(c);
    return found;
}

void FakePortalBus::respond(const std::string& method, uint32_t code, BusDict results) {
    const auto made = callsOf(method);
    if (made.empty()) throw std::logic_error("no call of " + method + " to respond to");
    const auto token = handleToken(made.back());
    if (!token) throw std::logic_error(method + " carried no handle_token");
    emit(requestPath(unique, *token), kRequestInterface, "Response",
         {BusValue(code), BusValue(std::move(results))});
}

}  // namespace vocle::testing
