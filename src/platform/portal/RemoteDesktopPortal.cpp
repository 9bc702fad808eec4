#include "platform/portal/RemoteDesktopPortal.h"

#include <utility>

#include "foundation/Log.h"

namespace vocle::portal {

RemoteDesktopPortal::RemoteDesktopPortal(PortalBus& bus, TokenStore store)
    : bus_(bus), store_(std::move(store)), requests_(bus, "vocle_rd") {}

RemoteDesktopPortal::~RemoteDesktopPortal() {
    // A dialog still open at quit is taken down with us.
    if (!openRequest_.empty()) requests_.cancel(openRequest_);
    session_.reset();
}

Subscription RemoteDesktopPortal::observeState(std::function<void(RemoteInputState)> handler) {
    return changed_.subscribe([handler = std::move(handler)](const RemoteInputState& s) { handler(s); });
}

std::optional<std::string> RemoteDesktopPortal::sessionHandle() const {
    if (session_ && session_->isOpen()) return session_->handle();
    return std::nullopt;
}

void RemoteDesktopPortal::setState(RemoteInputState state) {
    if (state_ == state) return;
    state_ = state;
    changed_.emit(state);
}

void RemoteDesktopPortal::resumeKeptGrant() {
    if (state_ != RemoteInputState::notGranted || !store_.load || !store_.load()) return;
    resuming_ = true;
    request();
}

void RemoteDesktopPortal::request(std::function<void(RemoteInputState)> done) {
    if (state_ == RemoteInputState::granted) {
        if (done) done(state_);
        return;
    }
    if (done) waiting_.push_back(std::move(done));
    if (state_ == RemoteInputState::asking) return;
    retriedWithoutToken_ = false;
    setState(RemoteInputState::asking);
    if (version_ == 0)
        readVersion();
    else
        createSession();
}

void RemoteDesktopPortal::readVersion() {
    BusCall get{
        kPortalPath, "org.freedesktop.DBus.Properties", "Get", {BusValue(kInterface), BusValue("version")}};
    bus_.call(std::move(get), owner_.guard([this](BusReply reply) {
        const auto version =
            reply.ok() && !reply.values.empty() ? reply.values.front().asUint() : std::nullopt;
        if (!version || *version == 0) {
            finish(RemoteInputState::refused,
                   "no RemoteDesktop portal on this desktop" +
                       (reply.ok() ? std::string() : " (" + reply.errorName + ")"));
            return;
        }
        version_ = *version;
        log("Remote input: RemoteDesktop portal version ", version_);
        if (resuming_ && version_ < 2) {
            // This portal cannot take a kept grant back: opening now would show a dialog at start.
            store_.save(std::nullopt);
            resuming_ = false;
            finish(RemoteInputState::notGranted, "");
            return;
        }
        createSession();
    }));
}

void RemoteDesktopPortal::createSession() {
    session_.reset();
    const std::string sessionToken = requests_.nextToken();
    BusCall create{kPortalPath,
                   kInterface,
                   "CreateSession",
                   {BusValue(BusDict{{"session_handle_token", BusValue(sessionToken)}})}};
    openRequest_ =
        requests_.send(std::move(create), 0, owner_.guard([this, sessionToken](const PortalResponse& r) {
            openRequest_.clear();
            if (r.outcome != PortalOutcome::success) return refuse(r, "CreateSession");
            const std::string handle = dictString(r.results, "session_handle")
                                           .value_or(sessionPath(bus_.uniqueName(), sessionToken));
            session_ = std::make_unique<PortalSession>(bus_, handle);
            session_->onClosed(owner_.guard([this] {
                log("⚠️ Remote input: the desktop ended the session; pastes fall back to the clipboard");
                if (state_ == RemoteInputState::asking)
                    finish(RemoteInputState::refused, "");
                else
                    setState(RemoteInputState::refused);
            }));
            selectDevices();
        }));
}

void RemoteDesktopPortal::selectDevices() {
    BusDict options{{"types", BusValue(kKeyboard)}};
    usedToken_.reset();
    if (version_ >= 2) {
        options["persist_mode"] = BusValue(kPersistUntilRevoked);
        if (!retriedWithoutToken_ && store_.load) usedToken_ = store_.load();
        if (usedToken_) options["restore_token"] = BusValue(*usedToken_);
    }
    BusCall select{kPortalPath,
                   kInterface,
                   "SelectDevices",
                   {BusValue(ObjectPath{session_->handle()}), BusValue(std::move(options))}};
    openRequest_ = requests_.send(std::move(select), 1, owner_.guard([this](const PortalResponse& r) {
        openRequest_.clear();
        if (r.outcome != PortalOutcome::success) return refuse(r, "SelectDevices");
        start();
    }));
}

void RemoteDesktopPortal::start() {
    BusCall start{kPortalPath,
                  kInterface,
                  "Start",
                  {BusValue(ObjectPath{session_->handle()}), BusValue(""), BusValue(BusDict{})}};
    openRequest_ = requests_.send(std::move(start), 2, owner_.guard([this](const PortalResponse& r) {
        openRequest_.clear();
        if (r.outcome != PortalOutcome::success) return refuse(r, "Start");
        const uint32_t devices = dictUint(r.results, "devices").value_or(0);
        if (!(devices & kKeyboard)) {
            session_.reset();
            finish(RemoteInputState::refused, "the desktop granted no keyboard");
            return;
        }
        // A restore token is good for one start: the new one replaces it, and none means none is kept.
        if (version_ >= 2) store_.save(dictString(r.results, "restore_token"));
        finish(RemoteInputState::granted, "");
    }));
}

void RemoteDesktopPortal::refuse(const PortalResponse& response, const char* step) {
    session_.reset();
    if (usedToken_ && !retriedWithoutToken_ && response.outcome != PortalOutcome::cancelled) {
        log("⚠️ Remote input: the desktop did not take the kept grant back (", step, " ",
            outcomeName(response.outcome), "); asking again");
        store_.save(std::nullopt);
        retriedWithoutToken_ = true;
        resuming_ = false;
        createSession();
        return;
    }
    finish(RemoteInputState::refused, std::string(step) + " " + outcomeName(response.outcome) +
                                          (response.error.empty() ? "" : ": " + response.error));
}

void RemoteDesktopPortal::finish(RemoteInputState outcome, const std::string& why) {
    resuming_ = false;
    if (outcome == RemoteInputState::granted)
        log("✅ Remote input: keyboard granted");
    else if (!why.empty())
        log("❌ Remote input: ", why);
    keyErrorLogged_ = false;
    setState(outcome);
    auto waiting = std::move(waiting_);
    waiting_.clear();
    for (auto& done : waiting)
        if (done) done(outcome);
}

void RemoteDesktopPortal::sendKeysym(uint32_t keysym, bool down) {
    if (state_ != RemoteInputState::granted || !session_ || !session_->isOpen()) return;
    keys_.emplace_back(keysym, down);
    if (!keyInFlight_) sendNextKey();
}

void RemoteDesktopPortal::sendNextKey() {
    if (keys_.empty() || state_ != RemoteInputState::granted || !session_ || !session_->isOpen()) {
        keys_.clear();
        return;
    }
    const auto [keysym, down] = keys_.front();
    keys_.pop_front();
    keyInFlight_ = true;
    BusCall key{kPortalPath,
                kInterface,
                "NotifyKeyboardKeysym",
                {BusValue(ObjectPath{session_->handle()}), BusValue(BusDict{}),
                 BusValue(static_cast<int32_t>(keysym)), BusValue(static_cast<uint32_t>(down ? 1 : 0))}};
    bus_.call(std::move(key), owner_.guard([this](BusReply reply) {
        keyInFlight_ = false;
        if (!reply.ok() && !keyErrorLogged_) {
            keyErrorLogged_ = true;
            log("❌ Remote input: the desktop refused a key: ", reply.errorName, " ", reply.errorMessage);
        }
        sendNextKey();
    }));
}

}  // namespace vocle::portal
