#include "platform/linux/PulseConnection.h"

#include <chrono>
#include <thread>

namespace vocle {

namespace {

constexpr const char* kDomain = "PulseAudio";
// PipeWire's pulse server answers a new default at once but applies it only when its session manager
// (WirePlumber) has chosen it, a few milliseconds later; PulseAudio reports it on the first check.
constexpr int kDefaultChecks = 100;
constexpr auto kDefaultCheckInterval = std::chrono::milliseconds(10);

std::string text(const char* s) {
    return s ? s : "";
}

void contextStateChanged(pa_context*, void* userdata) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userdata), 0);
}

template <class Record>
struct ListState {
    pa_threaded_mainloop* loop;
    std::vector<Record> items;
    bool failed = false;
};

}  // namespace

PulseConnection::PulseConnection(std::string applicationName) : applicationName_(std::move(applicationName)) {
    loop_ = pa_threaded_mainloop_new();
    if (loop_) pa_threaded_mainloop_start(loop_);
}

PulseConnection::~PulseConnection() {
    if (!loop_) return;
    {
        Lock lock(*this);
        if (context_) {
            pa_context_set_state_callback(context_, nullptr, nullptr);
            pa_context_disconnect(context_);
            pa_context_unref(context_);
            context_ = nullptr;
        }
    }
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
}

Error PulseConnection::error(const std::string& what) const {
    const int code = context_ ? pa_context_errno(context_) : PA_ERR_CONNECTIONREFUSED;
    return Error{kDomain, code, what + ": " + pa_strerror(code)};
}

std::optional<Error> PulseConnection::ensureConnected() {
    if (!loop_) return Error{kDomain, PA_ERR_INTERNAL, "Could not start the PulseAudio client loop"};
    std::lock_guard guard(connectMutex_);
    Lock lock(*this);
    if (context_ && pa_context_get_state(context_) == PA_CONTEXT_READY) return std::nullopt;
    return connectLocked();
}

std::optional<Error> PulseConnection::connectLocked() {
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), applicationName_.c_str());
    if (!context_) return Error{kDomain, PA_ERR_INTERNAL, "Could not create a PulseAudio context"};
    pa_context_set_state_callback(context_, contextStateChanged, loop_);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        auto e = error("Could not connect to the sound server");
        pa_context_unref(context_);
        context_ = nullptr;
        return e;
    }
    for (;;) {
        const auto state = pa_context_get_state(context_);
        if (state == PA_CONTEXT_READY) return std::nullopt;
        if (!PA_CONTEXT_IS_GOOD(state)) {
            auto e = error("Could not connect to the sound server");
            pa_context_set_state_callback(context_, nullptr, nullptr);
            pa_context_unref(context_);
            context_ = nullptr;
            return e;
        }
        wait();
    }
}

void PulseConnection::await(pa_operation* op) {
    if (!op) return;
    while (pa_operation_get_state(op) == PA_OPERATION_RUNNING) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) {
            pa_operation_cancel(op);
            break;
        }
        wait();
    }
    pa_operation_unref(op);
}

Result<PulseConnection::ServerInfo> PulseConnection::serverInfo() {
    if (auto e = ensureConnected()) return *e;
    Lock lock(*this);
    struct State {
        pa_threaded_mainloop* loop;
        std::optional<ServerInfo> info;
    } state{loop_, std::nullopt};
    auto cb = [](pa_context*, const pa_server_info* i, void* u) {
        auto* s = static_cast<State*>(u);
        if (i) s->info = ServerInfo{text(i->default_sink_name), text(i->default_source_name)};
        pa_threaded_mainloop_signal(s->loop, 0);
    };
    await(pa_context_get_server_info(context_, cb, &state));
    if (!state.info) return error("Could not read the server information");
    return *state.info;
}

Result<std::vector<PulseConnection::Sink>> PulseConnection::sinks() {
    if (auto e = ensureConnected()) return *e;
    Lock lock(*this);
    ListState<Sink> state{loop_, {}};
    auto cb = [](pa_context*, const pa_sink_info* i, int eol, void* u) {
        auto* s = static_cast<ListState<Sink>*>(u);
        if (eol < 0) s->failed = true;
        if (i) {
            Sink sink;
            sink.index = i->index;
            sink.name = text(i->name);
            sink.description = text(i->description);
            sink.monitorSource = text(i->monitor_source_name);
            sink.sampleFormat = i->sample_spec;
            sink.volume = i->volume;
            sink.card = i->card;
            // PulseAudio's Bluetooth sinks say "bluetooth.protocol" (headset_head_unit); PipeWire's say
            // "api.bluez5.profile" (headset-head-unit), with the card profile of the same name.
            for (const char* key : {"bluetooth.protocol", "api.bluez5.profile", "device.profile.name"}) {
                if (sink.profile.empty()) sink.profile = text(pa_proplist_gets(i->proplist, key));
            }
            s->items.push_back(std::move(sink));
        }
        pa_threaded_mainloop_signal(s->loop, 0);
    };
    await(pa_context_get_sink_info_list(context_, cb, &state));
    if (state.failed) return error("Could not list the output devices");
    return std::move(state.items);
}

Result<std::vector<PulseConnection::Source>> PulseConnection::sources() {
    if (auto e = ensureConnected()) return *e;
    Lock lock(*this);
    ListState<Source> state{loop_, {}};
    auto cb = [](pa_context*, const pa_source_info* i, int eol, void* u) {
        auto* s = static_cast<ListState<Source>*>(u);
        if (eol < 0) s->failed = true;
        if (i) {
            s->items.push_back(Source{i->index, text(i->name), text(i->description), i->sample_spec,
                                      i->monitor_of_sink != PA_INVALID_INDEX});
        }
        pa_threaded_mainloop_signal(s->loop, 0);
    };
    await(pa_context_get_source_info_list(context_, cb, &state));
    if (state.failed) return error("Could not list the input devices");
    return std::move(state.items);
}

Result<std::vector<PulseConnection::Card>> PulseConnection::cards() {
    if (auto e = ensureConnected()) return *e;
    Lock lock(*this);
    ListState<Card> state{loop_, {}};
    auto cb = [](pa_context*, const pa_card_info* i, int eol, void* u) {
        auto* s = static_cast<ListState<Card>*>(u);
        if (eol < 0) s->failed = true;
        if (i) {
            Card card{i->index, text(i->name), i->active_profile2 ? text(i->active_profile2->name) : "", {}};
            for (uint32_t p = 0; p < i->n_profiles; ++p) {
                if (i->profiles2[p]->available != 0)
                    card.availableProfiles.push_back(text(i->profiles2[p]->name));
            }
            s->items.push_back(std::move(card));
        }
        pa_threaded_mainloop_signal(s->loop, 0);
    };
    await(pa_context_get_card_info_list(context_, cb, &state));
    if (state.failed) return error("Could not list the sound cards");
    return std::move(state.items);
}

std::optional<Error> PulseConnection::successCall(
    const std::string& what, const std::function<pa_operation*(pa_context_success_cb_t, void*)>& start) {
    if (auto e = ensureConnected()) return e;
    Lock lock(*this);
    struct State {
        pa_threaded_mainloop* loop;
        int success = 0;
    } state{loop_};
    auto cb = [](pa_context*, int success, void* u) {
        auto* s = static_cast<State*>(u);
        s->success = success;
        pa_threaded_mainloop_signal(s->loop, 0);
    };
    pa_operation* op = start(cb, &state);
    if (!op) return error(what);
    await(op);
    if (!state.success) return error(what);
    return std::nullopt;
}

std::optional<Error> PulseConnection::setDefaultSink(const std::string& name) {
    if (auto error =
            successCall("Could not set the default output", [&](pa_context_success_cb_t cb, void* u) {
                return pa_context_set_default_sink(context_, name.c_str(), cb, u);
            }))
        return error;
    return awaitDefault(&ServerInfo::defaultSink, name, "Could not set the default output");
}

std::optional<Error> PulseConnection::setDefaultSource(const std::string& name) {
    if (auto error = successCall("Could not set the default input", [&](pa_context_success_cb_t cb, void* u) {
            return pa_context_set_default_source(context_, name.c_str(), cb, u);
        }))
        return error;
    return awaitDefault(&ServerInfo::defaultSource, name, "Could not set the default input");
}

std::optional<Error> PulseConnection::awaitDefault(std::string ServerInfo::*which, const std::string& name,
                                                   const std::string& what) {
    std::string reported;
    for (int attempt = 0; attempt < kDefaultChecks; ++attempt) {
        auto info = serverInfo();
        if (!info.ok()) return info.error();
        reported = info.value().*which;
        if (reported == name) return std::nullopt;
        std::this_thread::sleep_for(kDefaultCheckInterval);
    }
    return Error{kDomain, PA_ERR_TIMEOUT, what + ": the server still names " + reported};
}

std::optional<Error> PulseConnection::setSinkVolume(uint32_t index, const pa_cvolume& volume) {
    return successCall("Could not set the output volume", [&](pa_context_success_cb_t cb, void* u) {
        return pa_context_set_sink_volume_by_index(context_, index, &volume, cb, u);
    });
}

std::optional<Error> PulseConnection::setCardProfile(uint32_t card, const std::string& profile) {
    return successCall("Could not switch the card profile", [&](pa_context_success_cb_t cb, void* u) {
        return pa_context_set_card_profile_by_index(context_, card, profile.c_str(), cb, u);
    });
}

}  // namespace vocle
