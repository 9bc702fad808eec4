#include "platform/wayland/WaylandClipboard.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <wayland-client.h>

#include <array>
#include <chrono>
#include <cstring>
#include <thread>

#include "foundation/Log.h"
#include "platform/wayland/WaylandConnection.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace vocle::wayland {

namespace {

constexpr std::array<const char*, 5> kTextMimes = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING",
                                                   "TEXT", "STRING"};

// Marks offers whose mime types include text; the offer's user data is a heap flag we own.
struct OfferInfo {
    std::string textMime;
};

void writeAll(int fd, std::shared_ptr<const std::string> text) {
    size_t written = 0;
    while (written < text->size()) {
        const ssize_t n = write(fd, text->data() + written, text->size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += static_cast<size_t>(n);
    }
    close(fd);
}

}  // namespace

struct WaylandClipboard::Listeners {
    static void send(void* data, zwlr_data_control_source_v1* source, const char*, int32_t fd) {
        auto* self = static_cast<WaylandClipboard*>(data);
        std::shared_ptr<const std::string> text;
        {
            std::lock_guard lock(self->mutex_);
            if (source == self->source_) text = self->served_;
        }
        if (!text) {
            close(fd);
            return;
        }
        // A reader that is slow to drain the pipe must not hold up the connection's thread.
        std::thread(writeAll, fd, std::move(text)).detach();
    }
    static void cancelled(void* data, zwlr_data_control_source_v1* source) {
        auto* self = static_cast<WaylandClipboard*>(data);
        {
            std::lock_guard lock(self->mutex_);
            if (source == self->source_) {
                self->source_ = nullptr;
                self->served_.reset();
            }
        }
        zwlr_data_control_source_v1_destroy(source);
    }
    static constexpr zwlr_data_control_source_v1_listener source = {send, cancelled};

    static void offerMime(void* data, zwlr_data_control_offer_v1*, const char* mime) {
        auto* info = static_cast<OfferInfo*>(data);
        for (const char* text : kTextMimes) {
            if (std::strcmp(mime, text) != 0) continue;
            // The first listed type wins: UTF-8 before the legacy X names.
            if (info->textMime.empty() ||
                std::find_if(kTextMimes.begin(), kTextMimes.end(), [&](const char* m) {
                    return info->textMime == m;
                }) > std::find_if(kTextMimes.begin(), kTextMimes.end(), [&](const char* m) {
                    return std::strcmp(mime, m) == 0;
                }))
                info->textMime = mime;
        }
    }
    static constexpr zwlr_data_control_offer_v1_listener offer = {offerMime};

    static void dataOffer(void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
        zwlr_data_control_offer_v1_add_listener(offer, &Listeners::offer, new OfferInfo);
    }
    static void destroyOffer(zwlr_data_control_offer_v1* offer) {
        delete static_cast<OfferInfo*>(zwlr_data_control_offer_v1_get_user_data(offer));
        zwlr_data_control_offer_v1_destroy(offer);
    }
    static void selection(void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<WaylandClipboard*>(data);
        std::lock_guard lock(self->mutex_);
        if (self->offer_) destroyOffer(self->offer_);
        self->offer_ = offer;
        auto* info =
            offer ? static_cast<OfferInfo*>(zwlr_data_control_offer_v1_get_user_data(offer)) : nullptr;
        self->offerHasText_ = info && !info->textMime.empty();
        self->offerMime_ = self->offerHasText_ ? info->textMime : std::string();
    }
    static void finished(void*, zwlr_data_control_device_v1*) {
        log("Wayland: the clipboard's data device is gone");
    }
    static void primary(void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
        if (offer) destroyOffer(offer);
    }
    static constexpr zwlr_data_control_device_v1_listener device = {dataOffer, selection, finished, primary};
};

std::unique_ptr<WaylandClipboard> WaylandClipboard::create(WaylandConnection& connection) {
    if (!connection.seat()) return nullptr;
    auto* manager = static_cast<zwlr_data_control_manager_v1*>(
        connection.bind(&zwlr_data_control_manager_v1_interface, 2));
    if (!manager) return nullptr;
    auto* device = zwlr_data_control_manager_v1_get_data_device(manager, connection.seat());
    std::unique_ptr<WaylandClipboard> clipboard(new WaylandClipboard(connection, manager, device));
    zwlr_data_control_device_v1_add_listener(device, &Listeners::device, clipboard.get());
    return clipboard;
}

WaylandClipboard::WaylandClipboard(WaylandConnection& connection, zwlr_data_control_manager_v1* manager,
                                   zwlr_data_control_device_v1* device)
    : connection_(connection), manager_(manager), device_(device) {}

WaylandClipboard::~WaylandClipboard() {
    std::lock_guard lock(mutex_);
    if (offer_) Listeners::destroyOffer(offer_);
    if (source_) zwlr_data_control_source_v1_destroy(source_);
    zwlr_data_control_device_v1_destroy(device_);
    zwlr_data_control_manager_v1_destroy(manager_);
    connection_.flush();
}

void WaylandClipboard::clearContents() {
    std::lock_guard lock(mutex_);
    if (!source_) return;
    // Our own selection only: another client's text is not ours to drop. The compositor cancels the
    // source, and its handler lets go of it: sources are destroyed on the reading thread only.
    zwlr_data_control_device_v1_set_selection(device_, nullptr);
    source_ = nullptr;
    served_.reset();
    connection_.flush();
}

void WaylandClipboard::setString(const std::string& text) {
    std::lock_guard lock(mutex_);
    // The source replaced is cancelled by the compositor and destroyed in that handler.
    source_ = zwlr_data_control_manager_v1_create_data_source(manager_);
    served_ = std::make_shared<const std::string>(text);
    zwlr_data_control_source_v1_add_listener(source_, &Listeners::source, this);
    for (const char* mime : kTextMimes) zwlr_data_control_source_v1_offer(source_, mime);
    zwlr_data_control_device_v1_set_selection(device_, source_);
    connection_.flush();
}

std::optional<std::string> WaylandClipboard::string() const {
    int fds[2];
    {
        std::lock_guard lock(mutex_);
        if (served_) return *served_;
        if (!offer_ || !offerHasText_) return std::nullopt;
        if (pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
        zwlr_data_control_offer_v1_receive(offer_, offerMime_.c_str(), fds[1]);
        close(fds[1]);
        connection_.flush();
    }
    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReadTimeoutMs);
    char buffer[4096];
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd pfd{fds[0], POLLIN, 0};
        if (left.count() <= 0 || poll(&pfd, 1, static_cast<int>(left.count())) <= 0) {
            log("⚠️ Clipboard: the selection's owner did not send its text in time");
            close(fds[0]);
            return std::nullopt;
        }
        const ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);
    return text;
}

}  // namespace vocle::wayland
