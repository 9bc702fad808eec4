#include "mail/OutboxMailer.h"

#include <sys/stat.h>

#include <cmath>

#include "foundation/FileIO.h"
#include "foundation/Uuid.h"

namespace vocle::server {

void OutboxMailer::send(const MailMessage& message) {
    std::string error;
    if (!ensureDirectory(folder_, &error))
        throw MailError("Cannot create outbox " + folder_.string() + ": " + error);
    ::chmod(folder_.c_str(), 0700);  // the messages carry sign-in codes
    const double now = clock_.now();
    const std::string id = Uuid::random().string();
    const std::string domain = mailAddress(message.from).substr(mailAddress(message.from).find('@') + 1);
    const std::string text = formatRfc5322(message, now, id + "@" + domain);
    const auto name = std::to_string(static_cast<long long>(std::floor(now))) + "-" + id + ".eml";
    if (!writeFileAtomically(folder_ / name, text, &error))
        throw MailError("Cannot write outbox message: " + error);
}

}  // namespace vocle::server
