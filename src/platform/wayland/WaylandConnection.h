#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct wl_display;
struct wl_registry;
struct wl_seat;
struct wl_interface;

namespace vocle::wayland {

struct WaylandGlobal {
    uint32_t name = 0;
    std::string interface;
    uint32_t version = 0;
};

// Our own connection to the compositor (never the toolkit's): the registry's globals and the first
// seat, read in two round trips by open(); then startReading() hands the socket to a thread of its own
// that dispatches events as they come. Event handlers therefore run on that thread and post to the
// main queue themselves. Requests may be sent from any thread (libwayland locks), followed by flush().
class WaylandConnection {
  public:
    // None (and a log line) when no compositor answers. `displayName` empty: $WAYLAND_DISPLAY.
    static std::unique_ptr<WaylandConnection> open(const std::string& displayName = {});
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    wl_display* display() const { return display_; }
    wl_seat* seat() const { return seat_; }
    const std::vector<WaylandGlobal>& globals() const { return globals_; }
    std::optional<WaylandGlobal> global(const std::string& interface) const;
    // Binds the global at min(offered, maxVersion); null when not offered.
    void* bind(const wl_interface* interface, uint32_t maxVersion);

    // Before startReading only: waits for the compositor to answer everything sent so far.
    bool roundtrip();
    void startReading();
    // Stops the reading thread; objects may then be destroyed safely from the calling thread.
    void stopReading();
    void flush();
    bool isAlive() const { return alive_; }

    // The compositor's program name (from the socket's peer process), e.g. "sway"; empty if unknown.
    const std::string& compositor() const { return compositor_; }

  private:
    explicit WaylandConnection(wl_display* display);
    void readLoop();

    wl_display* display_;
    wl_registry* registry_ = nullptr;
    wl_seat* seat_ = nullptr;
    std::vector<WaylandGlobal> globals_;
    std::string compositor_;
    int wakeFd_ = -1;
    std::atomic<bool> alive_{true};
    std::thread reader_;
};

}  // namespace vocle::wayland
