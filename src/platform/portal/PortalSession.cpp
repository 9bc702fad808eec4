#include "platform/portal/PortalSession.h"

#include <utility>

namespace vocle::portal {

PortalSession::PortalSession(PortalBus& bus, std::string handle) : bus_(bus), handle_(std::move(handle)) {
    closed_ = bus_.watchSignal(handle_, kSessionInterface, "Closed", owner_.guard([this](const auto&) {
        if (!open_) return;
        open_ = false;
        closed_.reset();
        if (auto handler = onClosed_) handler();
    }));
}

PortalSession::~PortalSession() {
    close();
}

void PortalSession::close() {
    if (!open_) return;
    open_ = false;
    closed_.reset();
    bus_.call(BusCall{handle_, kSessionInterface, "Close", {}}, [](BusReply) {});
}

}  // namespace vocle::portal
