#include "platform/wayland/WaylandConnection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "foundation/Log.h"

namespace vocle::wayland {

namespace {

std::string peerProgram(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) return {};
    std::ifstream comm("/proc/" + std::to_string(peer.pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

}  // namespace

std::unique_ptr<WaylandConnection> WaylandConnection::open(const std::string& displayName) {
    wl_display* display = wl_display_connect(displayName.empty() ? nullptr : displayName.c_str());
    if (!display) {
        log("Wayland: cannot connect to the compositor (", std::strerror(errno), ")");
        return nullptr;
    }
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
    // Globals first, then the seat's own events.
    if (!connection->roundtrip() || !connection->roundtrip()) {
        log("Wayland: the compositor did not answer the registry");
        return nullptr;
    }
    return connection;
}

WaylandConnection::WaylandConnection(wl_display* display) : display_(display) {
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    compositor_ = peerProgram(wl_display_get_fd(display_));
    registry_ = wl_display_get_registry(display_);
    static const wl_registry_listener listener = {
        [](void* data, wl_registry*, uint32_t name, const char* interface, uint32_t version) {
            auto* self = static_cast<WaylandConnection*>(data);
            self->globals_.push_back({name, interface, version});
            if (!self->seat_ && std::strcmp(interface, wl_seat_interface.name) == 0)
                self->seat_ = static_cast<wl_seat*>(
                    wl_registry_bind(self->registry_, name, &wl_seat_interface, std::min(version, 5u)));
        },
        [](void* data, wl_registry*, uint32_t name) {
            auto* self = static_cast<WaylandConnection*>(data);
            std::erase_if(self->globals_, [name](const WaylandGlobal& g) { return g.name == name; });
        },
    };
    wl_registry_add_listener(registry_, &listener, this);
}

WaylandConnection::~WaylandConnection() {
    stopReading();
    if (seat_) wl_seat_destroy(seat_);
    if (registry_) wl_registry_destroy(registry_);
    wl_display_disconnect(display_);
    close(wakeFd_);
}

std::optional<WaylandGlobal> WaylandConnection::global(const std::string& interface) const {
    for (const auto& g : globals_)
        if (g.interface == interface) return g;
    return std::nullopt;
}

void* WaylandConnection::bind(const wl_interface* interface, uint32_t maxVersion) {
    const auto g = global(interface->name);
    if (!g) return nullptr;
    return wl_registry_bind(registry_, g->name, interface, std::min(g->version, maxVersion));
}

bool WaylandConnection::roundtrip() {
    return wl_display_roundtrip(display_) >= 0;
}

void WaylandConnection::flush() {
    if (wl_display_flush(display_) < 0 && errno != EAGAIN)
        log("Wayland: cannot send to the compositor (", std::strerror(errno), ")");
    // The reader polls only for input; a request that did not fit is sent on its next turn.
    const uint64_t one = 1;
    if (errno == EAGAIN && write(wakeFd_, &one, sizeof one) < 0) {
    }
}

void WaylandConnection::startReading() {
    if (!reader_.joinable()) reader_ = std::thread([this] { readLoop(); });
}

void WaylandConnection::stopReading() {
    if (!reader_.joinable()) return;
    alive_ = false;
    const uint64_t one = 1;
    if (write(wakeFd_, &one, sizeof one) < 0) log("Wayland: cannot wake the reader");
    reader_.join();
}

void WaylandConnection::readLoop() {
    const int fd = wl_display_get_fd(display_);
    while (alive_) {
        while (wl_display_prepare_read(display_) != 0) wl_display_dispatch_pending(display_);
        wl_display_flush(display_);
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            wl_display_cancel_read(display_);
            break;
        }
        if (fds[1].revents & POLLIN) {
            uint64_t count;
            if (read(wakeFd_, &count, sizeof count) < 0) {
            }
        }
        if (fds[0].revents & (POLLIN | POLLERR | POLLHUP)) {
            if (wl_display_read_events(display_) < 0) {
                log("❌ Wayland: lost the compositor (", std::strerror(errno), ")");
                alive_ = false;
                break;
            }
        } else {
            wl_display_cancel_read(display_);
        }
        if (wl_display_dispatch_pending(display_) < 0) {
            log("❌ Wayland: protocol error (", wl_display_get_error(display_), ")");
            alive_ = false;
            break;
        }
    }
}

}  // namespace vocle::wayland
