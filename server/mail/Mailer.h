#pragma once

#include <stdexcept>
#include <string>

namespace vocle::server {

struct MailMessage {
    std::string from;
    std::string to;
    std::string subject;
    std::string body;  // plain text, lines separated by "\n"
};

class MailError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One RFC 5322 message with CRLF line ends; `messageId` and `date` (unix seconds) are given so output is
// reproducible in tests.
std::string formatRfc5322(const MailMessage& message, double date, const std::string& messageId);

// Extracts the bare address from "Name <addr>" or "addr".
std::string mailAddress(const std::string& nameAndAddress);

class Mailer {
  public:
    virtual ~Mailer() = default;
    // Throws MailError when the message could not be handed on.
    virtual void send(const MailMessage& message) = 0;
};

}  // namespace vocle::server
