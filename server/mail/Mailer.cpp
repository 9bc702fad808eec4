#include "mail/Mailer.h"

#include <ctime>

#include "foundation/Uuid.h"

namespace vocle::server {

namespace {

std::string headerSafe(std::string s) {
    for (char& ch : s) {
        if (ch == '\r' || ch == '\n') ch = ' ';
    }
    return s;
}

std::string rfc5322Date(double unixSeconds) {
    const std::time_t t = static_cast<std::time_t>(unixSeconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%s, %02d %s %04d %02d:%02d:%02d +0000", days[tm.tm_wday],
                  tm.tm_mday, months[tm.tm_mon], tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return buffer;
}

}  // namespace

std::string mailAddress(const std::string& nameAndAddress) {
    const auto open = nameAndAddress.rfind('<');
    const auto close = nameAndAddress.rfind('>');
    if (open != std::string::npos && close != std::string::npos && close > open) {
        return nameAndAddress.substr(open + 1, close - open - 1);
    }
    return nameAndAddress;
}

std::string formatRfc5322(const MailMessage& message, double date, const std::string& messageId) {
    std::string out;
    out += "From: " + headerSafe(message.from) + "\r\n";
    out += "To: " + headerSafe(message.to) + "\r\n";
    out += "Subject: " + headerSafe(message.subject) + "\r\n";
    out += "Date: " + rfc5322Date(date) + "\r\n";
    out += "Message-ID: <" + headerSafe(messageId) + ">\r\n";
    out += "MIME-Version: 1.0\r\n";
    out += "Content-Type: text/plain; charset=utf-8\r\n";
    out += "Content-Transfer-Encoding: 8bit\r\n";
    out += "\r\n";
    for (size_t i = 0; i < message.body.size(); ++i) {
        const char ch = message.body[i];
        if (ch == '\n') {
            out += "\r\n";
        } else if (ch != '\r') {
            out += ch;
        }
    }
    if (out.size() < 2 || out.compare(out.size() - 2, 2, "\r\n") != 0) out += "\r\n";
    return out;
}

}  // namespace vocle::server
