#pragma once

#include <string>

#include "foundation/Clock.h"
#include "mail/Mailer.h"

namespace vocle::server {

struct SmtpSettings {
    std::string url;  // smtp://host:port (STARTTLS when offered) or smtps://host:port
    std::string user;
    std::string password;
    long timeoutSeconds = 30;
};

// Hands messages to a relay through libcurl.
class SmtpMailer final : public Mailer {
  public:
    SmtpMailer(SmtpSettings settings, const Clock& clock) : settings_(std::move(settings)), clock_(clock) {}
    void send(const MailMessage& message) override;

  private:
    SmtpSettings settings_;
    const Clock& clock_;
};

}  // namespace vocle::server
