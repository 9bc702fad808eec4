#include "screens/HelpViewModel.h"

namespace vocle {

HelpViewModel::HelpViewModel(SupportService& support, UrlOpener& urlOpener, std::string docsURL)
    : support_(support), urlOpener_(urlOpener), docsURL_(std::move(docsURL)) {}

std::string HelpViewModel::sendButtonTitle() const {
    if (isSubmitting.get()) return "Sending...";
    if (submitted.get()) return "Sent";
    return "Send message";
}

void HelpViewModel::setMessage(const std::string& text) {
    if (text == message.get()) return;
    message.set(text);
    if (submitted.get()) submitted.set(false);
    changed.emit();
}

void HelpViewModel::send() {
    if (isSubmitting.get()) return;
    isSubmitting.set(true);
    errorMessage.set(std::nullopt);
    changed.emit();
    request_ = support_.sendMessage(message.get(), [this](BackendResult<bool> result) {
        isSubmitting.set(false);
        if (result.ok()) {
            submitted.set(true);
        } else {
            errorMessage.set(result.error().errorDescription());
        }
        changed.emit();
    });
}

void HelpViewModel::openDocs() {
    openProblem.set(std::nullopt);
    changed.emit();
    urlOpener_.openURL(docsURL_, token_.guard([this](const std::string& message) {
        openProblem.set(message);
        changed.emit();
    }));
}

}  // namespace vocle
