#pragma once

#include <functional>
#include <optional>
#include <string>

#include "backend/BackendService.h"
#include "backend/SignInClient.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "storage/SessionStore.h"

namespace vocle {

// A key press as the sign-in panel sees it: the four modifiers and the character typed, ignoring them.
struct SignInKeyPress {
    bool shift = false;
    bool control = false;
    bool alt = false;
    bool super = false;
    std::string charactersIgnoringModifiers;
};

// The e-mail code sign-in: step 1 takes the address and sends a code, step 2 takes the code and
// verifies it. A verified code becomes the stored session, which the application state notices; this
// model never closes itself. The panel only draws it. Main queue only.
class SignInViewModel {
  public:
    SignInViewModel(MainQueue& main, BackendService& backend, SessionStore& sessions);
    // The panel going away: the countdown stops and answers still under way are dropped.
    ~SignInViewModel();
    SignInViewModel(const SignInViewModel&) = delete;
    SignInViewModel& operator=(const SignInViewModel&) = delete;

    Observable<std::string> email;
    Observable<std::string> code;
    Observable<int> step{1};
    Observable<std::optional<std::string>> error;
    Observable<bool> isLoading{false};
    Observable<int> retryCountdown{0};

    void sendCode();
    void resendCode();
    void verifyCode();
    void goBack();

    // The paste shortcut in the code step (Ctrl+V; Command+V where that is the convention): consumed,
    // and the clipboard text, trimmed, becomes the code. Returns whether the press was consumed.
    bool handleKeyDown(const SignInKeyPress& press,
                       const std::function<std::optional<std::string>()>& clipboardText);

    bool isRetryTimerRunning() const { return retryTimer_.isActive(); }
    // The address pattern, matched against the whole text as typed.
    static bool isValidEmail(const std::string& address);

    // Texts of the panel for the current state.
    std::string heading() const;
    std::string primaryButtonTitle() const;
    std::string resendButtonTitle() const;

    static constexpr int kResendCountdownSeconds = 30;
    static constexpr Seconds kCountdownTick{1.0};

  private:
    void requestCode();
    void startRetryCountdown();

    MainQueue& main_;
    BackendService& backend_;
    SignInClient signIn_{backend_};
    SessionStore& sessions_;
    Timer retryTimer_;
    Subscription sendRequest_;
    Subscription verifyRequest_;
    OwnerToken token_;
};

}  // namespace vocle
