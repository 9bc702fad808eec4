#include "screens/SignInViewModel.h"

#include <algorithm>
#include <cctype>
#include <regex>

#include "foundation/MainQueueCheck.h"
#include "foundation/Text.h"

namespace vocle {

SignInViewModel::SignInViewModel(MainQueue& main, BackendService& backend, SessionStore& sessions)
    : main_(main), backend_(backend), sessions_(sessions) {}

SignInViewModel::~SignInViewModel() = default;

bool SignInViewModel::isValidEmail(const std::string& address) {
    static const std::regex pattern("^[A-Za-z0-9._%+-]+@[A-Za-z0-9.-]+\\.[A-Za-z]{2,}$");
    return std::regex_match(address, pattern);
}

void SignInViewModel::sendCode() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    if (email.get().empty()) return;
    // Not trimmed: a trailing blank is an invalid address.
    if (!isValidEmail(email.get())) {
        error.set(std::string("Invalid email"));
        return;
    }
    error.set(std::nullopt);
    isLoading.set(true);
    requestCode();
}

void SignInViewModel::resendCode() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    if (retryCountdown.get() != 0 || isLoading.get()) return;
    isLoading.set(true);
    requestCode();
}

void SignInViewModel::requestCode() {
    // Whatever the answer, the user moves on to the code step: the request's outcome is not shown.
    sendRequest_ = signIn_.sendOTP(email.get(), token_.guard([this] {
        isLoading.set(false);
        step.set(2);
        startRetryCountdown();
    }));
}

void SignInViewModel::startRetryCountdown() {
    retryCountdown.set(kResendCountdownSeconds);
    retryTimer_.startRepeating(main_, kCountdownTick, token_.guard([this] {
        if (retryCountdown.get() < 1) {
            retryTimer_.cancel();
            return;
        }
        retryCountdown.set(retryCountdown.get() - 1);
    }));
}

void SignInViewModel::verifyCode() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    if (email.get().empty() || code.get().empty()) return;
    isLoading.set(true);
    verifyRequest_ = signIn_.verifyOTP(email.get(), code.get(), token_.guard([this](VerifyOTPResult result) {
        isLoading.set(false);
        switch (result.outcome) {
            case VerifyOTPResult::Outcome::invalidCode:
                error.set(std::string("Invalid code"));
                break;
            case VerifyOTPResult::Outcome::unexpectedResponse:
                error.set(std::string("Unexpected response"));
                break;
            case VerifyOTPResult::Outcome::verified:
                backend_.setAccessToken(result.session.accessToken);
                backend_.setRefreshToken(result.session.refreshToken);
                sessions_.save(result.session);
                break;
        }
    }));
}

void SignInViewModel::goBack() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    step.set(1);
    code.set("");
    error.set(std::nullopt);
    retryTimer_.cancel();
}

bool SignInViewModel::handleKeyDown(const SignInKeyPress& press,
                                    const std::function<std::optional<std::string>()>& clipboardText) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    std::string key = press.charactersIgnoringModifiers;
    std::transform(key.begin(), key.end(), key.begin(), [](unsigned char c) { return std::tolower(c); });
    const bool onlyControl = press.control && !press.shift && !press.alt && !press.super;
    if (!onlyControl || key != "v" || step.get() != 2) return false;
    if (auto text = clipboardText ? clipboardText() : std::nullopt) {
        main_.post(token_.guard([this, pasted = trimWhitespace(*text)] { code.set(pasted); }));
    }
    return true;
}

std::string SignInViewModel::heading() const {
    return step.get() == 1 ? "Sign Up/Log In" : "Check your email";
}

std::string SignInViewModel::primaryButtonTitle() const {
    if (step.get() == 1) return isLoading.get() ? "Sending..." : "Send code";
    return isLoading.get() ? "Verifying..." : "Verify";
}

std::string SignInViewModel::resendButtonTitle() const {
    if (retryCountdown.get() < 1) return "Resend code";
    return "Resend code (" + std::to_string(retryCountdown.get()) + "s)";
}

}  // namespace vocle
