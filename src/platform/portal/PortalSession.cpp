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

void PortalSession::close(std::function<void()> done) {
    if (!open_) {
        if (done) done();
        return;
    }
    open_ = false;
    closed_.reset();
    bus_.call(BusCall{handle_, kSessionInterface, "Close", {}}, [done = std::move(done)](BusReply) {
        if (done) done();
    });
}

}  // namespace vocle::portal
