#include "platform/wayland/WaylandDesktop.h"

#include <utility>

namespace vocle::wayland {

std::vector<std::string> usableProtocols(const std::vector<WaylandGlobal>& globals) {
    static const std::pair<const char*, const char*> known[] = {
        {"zwp_virtual_keyboard_manager_v1", "virtual keyboard"},
        {"ext_data_control_manager_v1", "ext data control"},
        {"zwlr_data_control_manager_v1", "data control"},
        {"zwlr_foreign_toplevel_manager_v1", "foreign toplevel"},
        {"zwlr_layer_shell_v1", "layer shell"},
        {"xdg_activation_v1", "activation"},
    };
    std::vector<std::string> names;
    for (const auto& [interface, name] : known)
        for (const auto& global : globals)
            if (global.interface == interface) {
                names.emplace_back(name);
                break;
            }
    return names;
}

std::unique_ptr<WaylandDesktop> WaylandDesktop::open(MainQueue& main,
                                                     std::shared_ptr<const DesktopEntryIndex> index,
                                                     const std::string& displayName) {
    auto connection = WaylandConnection::open(displayName);
    if (!connection) return nullptr;
    std::unique_ptr<WaylandDesktop> desktop(new WaylandDesktop(std::move(connection)));
    WaylandConnection& c = *desktop->connection_;
    desktop->workspace_ = WaylandWorkspace::create(c, main, std::move(index));
    desktop->clipboard_ = WaylandClipboard::create(c);
    desktop->keyboard_ = WaylandVirtualKeyboard::create(c);
    if (desktop->keyboard_) {
        WaylandWorkspace* workspace = desktop->workspace_.get();
        desktop->keys_ = std::make_unique<VirtualKeyboardKeys>(
            *desktop->keyboard_, [workspace]() -> std::optional<std::string> {
                return workspace ? workspace->focusedAppId() : std::nullopt;
            });
    }
    // The windows open now and the current selection arrive before anyone asks.
    c.roundtrip();
    c.roundtrip();
    c.startReading();
    return desktop;
}

WaylandDesktop::WaylandDesktop(std::unique_ptr<WaylandConnection> connection)
    : connection_(std::move(connection)) {}

WaylandDesktop::~WaylandDesktop() {
    connection_->stopReading();
    keys_.reset();
    keyboard_.reset();
    clipboard_.reset();
    workspace_.reset();
}

std::string WaylandDesktop::summary() const {
    std::string text = "compositor " + (connection_->compositor().empty() ? std::string("unknown")
                                                                          : connection_->compositor());
    const auto protocols = usableProtocols(connection_->globals());
    text += "; protocols: ";
    if (protocols.empty()) text += "none of ours";
    for (size_t i = 0; i < protocols.size(); ++i) text += (i ? ", " : "") + protocols[i];
    return text;
}

}  // namespace vocle::wayland
