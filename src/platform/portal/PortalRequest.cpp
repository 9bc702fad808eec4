#include "platform/portal/PortalRequest.h"

#include <utility>

namespace vocle::portal {

const char* outcomeName(PortalOutcome outcome) {
    switch (outcome) {
        case PortalOutcome::success:
            return "granted";
        case PortalOutcome::cancelled:
            return "cancelled by the user";
        case PortalOutcome::ended:
            return "ended by the desktop";
        case PortalOutcome::failed:
            return "failed";
    }
    return "failed";
}

namespace {
std::string senderPart(const std::string& uniqueName) {
    std::string sender = uniqueName;
    if (!sender.empty() && sender.front() == ':') sender.erase(0, 1);
    for (char& c : sender)
        if (c == '.') c = '_';
    return sender;
}
}  // namespace

std::string requestPath(const std::string& uniqueName, const std::string& token) {
    return std::string(kPortalPath) + "/request/" + senderPart(uniqueName) + "/" + token;
}

std::string sessionPath(const std::string& uniqueName, const std::string& token) {
    return std::string(kPortalPath) + "/session/" + senderPart(uniqueName) + "/" + token;
}

PortalRequests::PortalRequests(PortalBus& bus, std::string tokenPrefix)
    : bus_(bus), prefix_(std::move(tokenPrefix)) {}

PortalRequests::~PortalRequests() = default;

std::string PortalRequests::nextToken() {
    return prefix_ + std::to_string(++counter_);
}

std::string PortalRequests::send(BusCall call, size_t optionsIndex, Done done) {
    const std::string token = nextToken();
    if (optionsIndex >= call.args.size()) call.args.resize(optionsIndex + 1, BusValue(BusDict{}));
    BusDict options;
    if (auto* given = call.args[optionsIndex].asDict()) options = *given;
    options["handle_token"] = token;
    call.args[optionsIndex] = BusValue(std::move(options));

    const std::string unique = bus_.uniqueName();
    if (unique.empty()) {
        PortalResponse response;
        response.error = "not connected to the session bus";
        done(response);
        return token;
    }
    open_[token].done = std::move(done);
    watch(token, requestPath(unique, token));
    const std::string method = call.interface + "." + call.method;
    bus_.call(std::move(call), owner_.guard([this, token, method](BusReply reply) {
        auto it = open_.find(token);
        if (it == open_.end()) return;
        if (!reply.ok()) {
            PortalResponse response;
            response.error = method + ": " + reply.errorName + (reply.errorMessage.empty() ? "" : ": ") +
                             reply.errorMessage;
            finish(token, std::move(response));
            return;
        }
        const ObjectPath* handle = reply.values.empty() ? nullptr : reply.values.front().asObjectPath();
        if (handle && handle->path != it->second.path) watch(token, handle->path);
    }));
    return token;
}

void PortalRequests::watch(const std::string& token, const std::string& path) {
    auto& open = open_[token];
    open.path = path;
    open.response = bus_.watchSignal(path, kRequestInterface, "Response",
                                     owner_.guard([this, token](const std::vector<BusValue>& args) {
                                         PortalResponse response;
                                         const auto code = args.empty() ? std::nullopt : args[0].asUint();
                                         if (!code || *code > 2) {
                                             response.error = "unexpected Response from the portal";
                                         } else {
                                             response.outcome = static_cast<PortalOutcome>(*code);
                                             if (args.size() > 1)
                                                 if (auto* results = args[1].asDict())
                                                     response.results = *results;
                                         }
                                         finish(token, std::move(response));
                                     }));
}

void PortalRequests::finish(const std::string& token, PortalResponse response) {
    auto it = open_.find(token);
    if (it == open_.end()) return;
    Done done = std::move(it->second.done);
    open_.erase(it);
    if (done) done(response);
}

void PortalRequests::cancel(const std::string& token) {
    auto it = open_.find(token);
    if (it == open_.end()) return;
    BusCall close{it->second.path, kRequestInterface, "Close", {}};
    open_.erase(it);
    bus_.call(std::move(close), [](BusReply) {});
}

}  // namespace vocle::portal
