#include "platform/portal/GlobalShortcutsPortal.h"

#include <utility>

#include "foundation/Log.h"

namespace vocle::portal {

std::optional<std::string> xdgTrigger(uint16_t keyCode, uint64_t modifiers, const KeysymNamer& namer) {
    const auto key = namer ? namer(keyCode) : std::nullopt;
    if (!key || key->empty()) return std::nullopt;
    std::string trigger;
    if (modifiers & kModifierControl) trigger += "CTRL+";
    if (modifiers & kModifierOption) trigger += "ALT+";
    if (modifiers & kModifierShift) trigger += "SHIFT+";
    if (modifiers & kModifierCommand) trigger += "LOGO+";
    return trigger + *key;
}

namespace {

// "CTRL+ALT+space" -> "CTRL_ALT_space": ids and tokens keep to letters, digits and underscores.
std::string idPart(const std::string& text) {
    std::string out;
    for (char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        out += plain ? c : '_';
    }
    return out;
}

}  // namespace

GlobalShortcutsPortal::GlobalShortcutsPortal(PortalBus& bus, KeysymNamer namer,
                                             std::map<uint32_t, ShortcutName> names)
    : bus_(bus), namer_(std::move(namer)), names_(std::move(names)), requests_(bus, "vocle_gs") {
    activated_ =
        bus_.watchSignal(kPortalPath, kInterface, "Activated",
                         owner_.guard([this](const std::vector<BusValue>& args) { onActivated(args); }));
}

GlobalShortcutsPortal::~GlobalShortcutsPortal() {
    activated_.reset();
    while (!bindings_.empty()) unregisterHotKey(bindings_.begin()->first);
}

int GlobalShortcutsPortal::installHandler(Handler handler) {
    if (bus_.uniqueName().empty()) return kHotKeyNoDisplay;
    handler_ = std::make_shared<Handler>(std::move(handler));
    return kHotKeyOk;
}

void GlobalShortcutsPortal::removeHandler() {
    handler_.reset();
}

Subscription GlobalShortcutsPortal::observeStatus(StatusHandler handler) {
    return status_.subscribe(
        [handler = std::move(handler)](const HotKeyHandle& h, const int& status) { handler(h, status); });
}

HotKeyRegistration GlobalShortcutsPortal::registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) {
    return add(keyCode, modifiers, id, false);
}

std::optional<HotKeyRegistration> GlobalShortcutsPortal::registerTransientHotKey(uint16_t keyCode,
                                                                                 uint64_t modifiers,
                                                                                 uint32_t id) {
    return add(keyCode, modifiers, id, true);
}

HotKeyRegistration GlobalShortcutsPortal::add(uint16_t keyCode, uint64_t modifiers, uint32_t id,
                                              bool transient) {
    if (!handler_) return {std::nullopt, kHotKeyNoHandler};
    if (bus_.uniqueName().empty()) return {std::nullopt, kHotKeyNoDisplay};
    const auto trigger = xdgTrigger(keyCode, modifiers & kShortcutModifierMask, namer_);
    if (!trigger) return {std::nullopt, kHotKeyUnknownKey};

    const auto named = names_.find(id);
    Binding binding;
    binding.id = id;
    binding.name = named != names_.end() ? named->second.id : "shortcut" + std::to_string(id);
    binding.description = named != names_.end() ? named->second.description : binding.name;
    binding.trigger = *trigger;
    binding.shortcutId = binding.name + "_" + idPart(*trigger);
    binding.transient = transient;
    const HotKeyHandle handle = nextHandle_++;
    bindings_.emplace(handle, std::move(binding));
    createSession(handle);
    return {handle, kHotKeyOk, true};
}

void GlobalShortcutsPortal::unregisterHotKey(HotKeyHandle handle) {
    auto it = bindings_.find(handle);
    if (it == bindings_.end()) return;
    Binding& binding = it->second;
    if (!binding.openRequest.empty()) requests_.cancel(binding.openRequest);
    endSession(binding);
    bindings_.erase(it);
    for (auto& [token, handles] : waitingForClose_) std::erase(handles, handle);
}

void GlobalShortcutsPortal::endSession(Binding& binding) {
    const std::string token = "vocle_" + binding.name;
    auto answered = owner_.guard([this, token] { closeAnswered(token); });
    if (binding.session) {
        if (binding.session->isOpen()) {
            ++closing_[token];
            binding.session->close(answered);
        }
        binding.session.reset();
    } else if (!binding.failed && !bus_.uniqueName().empty()) {
        // CreateSession may have been answered on the desktop's side already; its session is ours to end.
        ++closing_[token];
        bus_.call(BusCall{sessionPath(bus_.uniqueName(), token), kSessionInterface, "Close", {}},
                  [answered](BusReply) mutable { answered(); });
    }
}

void GlobalShortcutsPortal::closeAnswered(const std::string& token) {
    auto it = closing_.find(token);
    if (it == closing_.end() || --it->second > 0) return;
    closing_.erase(it);
    auto waiting = waitingForClose_.extract(token);
    if (waiting.empty()) return;
    for (HotKeyHandle handle : waiting.mapped())
        if (find(handle)) createSession(handle);
}

std::optional<std::string> GlobalShortcutsPortal::assignedTrigger(HotKeyHandle handle) const {
    auto it = bindings_.find(handle);
    return it == bindings_.end() ? std::nullopt : it->second.assigned;
}

size_t GlobalShortcutsPortal::openSessionCount() const {
    size_t count = 0;
    for (const auto& [handle, binding] : bindings_)
        if (binding.session && binding.session->isOpen()) ++count;
    return count;
}

GlobalShortcutsPortal::Binding* GlobalShortcutsPortal::find(HotKeyHandle handle) {
    auto it = bindings_.find(handle);
    return it == bindings_.end() ? nullptr : &it->second;
}

BusValue GlobalShortcutsPortal::shortcutList(const Binding& binding) const {
    BusDict properties{{"description", BusValue(binding.description)},
                       {"preferred_trigger", BusValue(binding.trigger)}};
    return BusValue(
        BusArray{"(sa{sv})", {BusValue(BusStruct{{BusValue(binding.shortcutId), BusValue(properties)}})}});
}

void GlobalShortcutsPortal::createSession(HotKeyHandle handle) {
    Binding& binding = bindings_.at(handle);
    const std::string token = "vocle_" + binding.name;
    if (closing_.count(token)) {
        waitingForClose_[token].push_back(handle);
        return;
    }
    BusDict options{{"session_handle_token", BusValue(token)}, {"shortcuts", shortcutList(binding)}};
    BusCall create{kPortalPath, kInterface, "CreateSession", {BusValue(std::move(options))}};
    binding.openRequest =
        requests_.send(std::move(create), 0, owner_.guard([this, handle, token](const PortalResponse& r) {
            Binding* b = find(handle);
            if (!b) return;
            b->openRequest.clear();
            if (r.outcome != PortalOutcome::success) {
                const int status = r.outcome == PortalOutcome::failed ? kHotKeyNoDisplay : kHotKeyRefused;
                return fail(handle, status,
                            std::string("CreateSession ") + outcomeName(r.outcome) +
                                (r.error.empty() ? "" : ": " + r.error));
            }
            const std::string path =
                dictString(r.results, "session_handle").value_or(sessionPath(bus_.uniqueName(), token));
            b->session = std::make_unique<PortalSession>(bus_, path);
            b->session->onClosed(owner_.guard([this, handle] {
                if (find(handle)) fail(handle, kHotKeyNoDisplay, "the desktop ended the session");
            }));
            // Plasma 5.27 answers with the shortcuts it bound from the options.
            if (adopt(*b, r.results)) return bound(handle);
            listShortcuts(handle);
        }));
}

void GlobalShortcutsPortal::listShortcuts(HotKeyHandle handle) {
    Binding& binding = bindings_.at(handle);
    BusCall list{kPortalPath,
                 kInterface,
                 "ListShortcuts",
                 {BusValue(ObjectPath{binding.session->handle()}), BusValue(BusDict{})}};
    binding.openRequest =
        requests_.send(std::move(list), 1, owner_.guard([this, handle](const PortalResponse& r) {
            Binding* b = find(handle);
            if (!b) return;
            b->openRequest.clear();
            if (r.outcome == PortalOutcome::success && adopt(*b, r.results)) return bound(handle);
            if (b->transient)
                return fail(handle, kHotKeyNeedsConsent, "the desktop would ask at every recording");
            bindShortcuts(handle);
        }));
}

void GlobalShortcutsPortal::bindShortcuts(HotKeyHandle handle) {
    Binding& binding = bindings_.at(handle);
    BusCall bind{kPortalPath,
                 kInterface,
                 "BindShortcuts",
                 {BusValue(ObjectPath{binding.session->handle()}), shortcutList(binding), BusValue(""),
                  BusValue(BusDict{})}};
    binding.openRequest =
        requests_.send(std::move(bind), 3, owner_.guard([this, handle](const PortalResponse& r) {
            Binding* b = find(handle);
            if (!b) return;
            b->openRequest.clear();
            if (r.outcome != PortalOutcome::success) {
                const int status = r.outcome == PortalOutcome::failed ? kHotKeyNoDisplay : kHotKeyRefused;
                return fail(handle, status,
                            std::string("BindShortcuts ") + outcomeName(r.outcome) +
                                (r.error.empty() ? "" : ": " + r.error));
            }
            if (!adopt(*b, r.results)) return fail(handle, kHotKeyRefused, "the desktop bound no key");
            bound(handle);
        }));
}

bool GlobalShortcutsPortal::adopt(Binding& binding, const BusDict& results) {
    const auto it = results.find("shortcuts");
    const BusArray* list = it == results.end() ? nullptr : it->second.asArray();
    if (!list) return false;
    for (const auto& item : list->items) {
        const BusStruct* entry = item.asStruct();
        if (!entry || entry->fields.size() < 2) continue;
        const std::string* id = entry->fields[0].asString();
        const BusDict* properties = entry->fields[1].asDict();
        if (!id || *id != binding.shortcutId) continue;
        binding.assigned = properties ? dictString(*properties, "trigger_description").value_or("") : "";
        return true;
    }
    return false;
}

void GlobalShortcutsPortal::bound(HotKeyHandle handle) {
    Binding& binding = bindings_.at(handle);
    if (binding.assigned->empty()) {
        // Listed without a key: the desktop gave the combination to someone else.
        return fail(handle, kHotKeyBusy, "the desktop assigned no key to " + binding.trigger);
    }
    binding.bound = true;
    log("GlobalShortcuts: ", binding.name, " bound to ", *binding.assigned, " (asked for ", binding.trigger,
        ")");
    status_.emit(handle, kHotKeyOk);
}

void GlobalShortcutsPortal::fail(HotKeyHandle handle, int status, const std::string& why) {
    Binding* binding = find(handle);
    if (!binding) return;
    log("⚠️ GlobalShortcuts: ", binding->name, " (", binding->trigger, ") not bound: ", why);
    binding->bound = false;
    binding->failed = true;
    if (!binding->openRequest.empty()) requests_.cancel(std::exchange(binding->openRequest, {}));
    endSession(*binding);
    status_.emit(handle, status);
}

void GlobalShortcutsPortal::onActivated(const std::vector<BusValue>& args) {
    if (args.size() < 2) return;
    const ObjectPath* session = args[0].asObjectPath();
    const std::string* shortcutId = args[1].asString();
    if (!session || !shortcutId) return;
    for (const auto& [handle, binding] : bindings_) {
        if (!binding.bound || !binding.session || binding.session->handle() != session->path) continue;
        if (binding.shortcutId != *shortcutId) continue;
        // The handler may unregister (and so erase) this binding; copy what it needs first.
        const uint32_t id = binding.id;
        if (auto handler = handler_) (*handler)(id);
        return;
    }
}

bool GlobalShortcutsPortal::desktopServes(const std::string& currentDesktop,
                                          const std::optional<std::string>& gnomeShellVersion) {
    bool gnome = false;
    size_t start = 0;
    while (start <= currentDesktop.size()) {
        const size_t end = std::min(currentDesktop.find(':', start), currentDesktop.size());
        if (currentDesktop.compare(start, end - start, "GNOME") == 0) gnome = true;
        start = end + 1;
    }
    if (!gnome) return true;
    if (!gnomeShellVersion) return false;
    try {
        return std::stoi(*gnomeShellVersion) >= 48;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace vocle::portal
