#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/portal/PortalRequest.h"
#include "platform/portal/PortalSession.h"
#include "platform/remote_input.h"

namespace vocle::portal {

// The keyboard grant of org.freedesktop.portal.RemoteDesktop: one session, held for the app's life, that
// lets us send keys into the focused window. Where the portal keeps grants (version 2 and later), the
// grant's restore token is kept through `TokenStore`, so a later start opens the session without a dialog;
// an older portal forgets the grant with the session, so the one session is never closed early.
class RemoteDesktopPortal final : public RemoteInput {
  public:
    static constexpr const char* kInterface = "org.freedesktop.portal.RemoteDesktop";
    static constexpr uint32_t kKeyboard = 1;
    static constexpr uint32_t kPersistUntilRevoked = 2;

    struct TokenStore {
        std::function<std::optional<std::string>()> load;
        std::function<void(const std::optional<std::string>&)> save;  // none: forget the token
    };

    RemoteDesktopPortal(PortalBus& bus, TokenStore store);
    // Closes the session: no grant outlives the app.
    ~RemoteDesktopPortal() override;

    // At start: opens the session now when a kept grant lets the desktop do it without a dialog.
    void resumeKeptGrant();

    RemoteInputState state() const override { return state_; }
    void request(std::function<void(RemoteInputState)> done = {}) override;
    Subscription observeState(std::function<void(RemoteInputState)> handler) override;

    // One key of the granted keyboard, as an X keysym; ignored without a grant. Keys go out one at a time,
    // each after the portal has answered the one before: the portal service may handle concurrent calls
    // on threads of its own, and a Control that overtakes its V makes a "v".
    void sendKeysym(uint32_t keysym, bool down);
    // The portal's interface version once read (0 before).
    uint32_t version() const { return version_; }
    std::optional<std::string> sessionHandle() const;

  private:
    void readVersion();
    void createSession();
    void selectDevices();
    void start();
    void finish(RemoteInputState outcome, const std::string& why);
    void refuse(const PortalResponse& response, const char* step);
    void setState(RemoteInputState state);

    PortalBus& bus_;
    TokenStore store_;
    PortalRequests requests_;
    RemoteInputState state_ = RemoteInputState::notGranted;
    uint32_t version_ = 0;
    std::optional<std::string> usedToken_;  // the kept token offered in this attempt
    bool retriedWithoutToken_ = false;
    bool resuming_ = false;    // opened at start on a kept grant: no dialog wanted
    std::string openRequest_;  // the request whose answer we wait for
    std::unique_ptr<PortalSession> session_;
    std::vector<std::function<void(RemoteInputState)>> waiting_;
    Signal<RemoteInputState> changed_;
    void sendNextKey();
    bool keyErrorLogged_ = false;
    std::deque<std::pair<uint32_t, bool>> keys_;
    bool keyInFlight_ = false;
    OwnerToken owner_;
};

}  // namespace vocle::portal
