#pragma once

#include <filesystem>

#include "foundation/Clock.h"
#include "mail/Mailer.h"

namespace vocle::server {

// Writes each message as one .eml file; for single-user and development set-ups with no mail relay.
class OutboxMailer final : public Mailer {
  public:
    OutboxMailer(std::filesystem::path folder, const Clock& clock)
        : folder_(std::move(folder)), clock_(clock) {}
    void send(const MailMessage& message) override;

  private:
    std::filesystem::path folder_;
    const Clock& clock_;
};

}  // namespace vocle::server
