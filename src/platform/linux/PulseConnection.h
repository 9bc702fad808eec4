#pragma once

#include <pulse/pulseaudio.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vocle {

// One libpulse client: a threaded main loop and a context, connected on first use and again after
// the server went away. The query helpers block the calling thread (never the loop's own thread);
// stream callbacks run on the loop's thread.
class PulseConnection {
  public:
    struct Sink {
        uint32_t index = PA_INVALID_INDEX;
        std::string name;
        std::string description;
        std::string monitorSource;  // the source that records what it plays
        pa_sample_spec sampleFormat{};
        pa_cvolume volume{};
        uint32_t card = PA_INVALID_INDEX;
        std::string profile;  // the card profile it belongs to (Bluetooth protocol), if any
    };
    struct Source {
        uint32_t index = PA_INVALID_INDEX;
        std::string name;
        std::string description;
        pa_sample_spec sampleFormat{};
        bool isMonitor = false;
    };
    struct Card {
        uint32_t index = PA_INVALID_INDEX;
        std::string name;
        std::string activeProfile;
        std::vector<std::string> availableProfiles;
    };
    struct ServerInfo {
        std::string defaultSink;
        std::string defaultSource;
    };

    explicit PulseConnection(std::string applicationName = "Vocle");
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    // An error when no server is reachable.
    std::optional<Error> ensureConnected();

    Result<ServerInfo> serverInfo();
    Result<std::vector<Sink>> sinks();
    Result<std::vector<Source>> sources();
    Result<std::vector<Card>> cards();
    // Return once the server reports the new default (or with an error when it never does).
    std::optional<Error> setDefaultSink(const std::string& name);
    std::optional<Error> setDefaultSource(const std::string& name);
    std::optional<Error> setSinkVolume(uint32_t index, const pa_cvolume& volume);
    std::optional<Error> setCardProfile(uint32_t card, const std::string& profile);

    // For streams: the loop, the context and the loop lock.
    pa_threaded_mainloop* mainloop() { return loop_; }
    pa_context* context() { return context_; }
    class Lock {
      public:
        explicit Lock(PulseConnection& c) : loop_(c.loop_) { pa_threaded_mainloop_lock(loop_); }
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

      private:
        pa_threaded_mainloop* loop_;
    };
    // With the lock held: wait for a signal from a callback.
    void wait() { pa_threaded_mainloop_wait(loop_); }
    void signal() { pa_threaded_mainloop_signal(loop_, 0); }
    // With the lock held: the context's last error as an Error.
    Error error(const std::string& what) const;

  private:
    std::optional<Error> connectLocked();
    std::optional<Error> awaitDefault(std::string ServerInfo::*which, const std::string& name,
                                      const std::string& what);
    // With the lock held: waits for the operation to finish.
    void await(pa_operation* op);
    std::optional<Error> successCall(
        const std::string& what, const std::function<pa_operation*(pa_context_success_cb_t, void*)>& start);

    std::string applicationName_;
    std::mutex connectMutex_;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
};

}  // namespace vocle
