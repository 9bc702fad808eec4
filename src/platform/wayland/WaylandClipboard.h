#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/events.h"

struct zwlr_data_control_manager_v1;
struct zwlr_data_control_device_v1;
struct zwlr_data_control_source_v1;
struct zwlr_data_control_offer_v1;

namespace vocle::wayland {

class WaylandConnection;

// The clipboard through wlr data control: set and read without a focused window of ours. We serve our
// text until another client takes the selection. Reading another client's text waits at most
// kReadTimeoutMs for it.
class WaylandClipboard final : public Pasteboard {
  public:
    static constexpr int kReadTimeoutMs = 1000;

    // Null when the compositor offers no data control or there is no seat. Create before the
    // connection starts reading.
    static std::unique_ptr<WaylandClipboard> create(WaylandConnection& connection);
    ~WaylandClipboard() override;

    void clearContents() override;
    void setString(const std::string& text) override;
    std::optional<std::string> string() const override;

  private:
    struct Listeners;
    WaylandClipboard(WaylandConnection& connection, zwlr_data_control_manager_v1* manager,
                     zwlr_data_control_device_v1* device);

    WaylandConnection& connection_;
    zwlr_data_control_manager_v1* manager_;
    zwlr_data_control_device_v1* device_;
    mutable std::mutex mutex_;
    zwlr_data_control_source_v1* source_ = nullptr;  // ours, while it holds the selection
    std::shared_ptr<const std::string> served_;
    zwlr_data_control_offer_v1* offer_ = nullptr;  // the selection, when another client holds it
    bool offerHasText_ = false;
    std::string offerMime_;
};

}  // namespace vocle::wayland
