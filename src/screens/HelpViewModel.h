#pragma once

#include <optional>
#include <string>

#include "backend/SupportService.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/url_opener.h"

namespace vocle {

// The help screen: the documentation link and the support form.
class HelpViewModel {
  public:
    HelpViewModel(SupportService& support, UrlOpener& urlOpener, std::string docsURL);
    HelpViewModel(const HelpViewModel&) = delete;
    HelpViewModel& operator=(const HelpViewModel&) = delete;

    static constexpr const char* kIntro = "Have questions or feedback? Send us a message.";
    static constexpr const char* kOpenDocs = "Open docs";

    Observable<std::string> message{""};
    Observable<bool> submitted{false};
    Observable<bool> isSubmitting{false};
    Observable<std::optional<std::string>> errorMessage;
    // Why "Open docs" opened nothing, until the next try.
    Observable<std::optional<std::string>> openProblem;
    Signal<> changed;

    // "Send message", "Sending..." or "Sent".
    std::string sendButtonTitle() const;
    // Blank messages are sent too: the service answers them with its own error text.
    bool canSend() const { return !isSubmitting.get() && !message.get().empty(); }

    // An edit after "Sent" starts a new message.
    void setMessage(const std::string& text);
    void send();
    void openDocs();

  private:
    SupportService& support_;
    UrlOpener& urlOpener_;
    std::string docsURL_;
    Subscription request_;
    OwnerToken token_;
};

}  // namespace vocle
