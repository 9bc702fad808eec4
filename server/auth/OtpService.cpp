#include "auth/OtpService.h"

#include <cmath>

#include "auth/Crypto.h"
#include "foundation/Log.h"

namespace vocle::server {

namespace {

std::string codeHash(const std::string& salt, const std::string& email, const std::string& code) {
    return sha256Hex(salt + "\n" + email + "\n" + code);
}

std::string hexOf(const std::string& bytes) {
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out.push_back(hex[c >> 4]);
        out.push_back(hex[c & 15]);
    }
    return out;
}

// Enough to tell addresses apart in the log without writing them out.
std::string maskedEmail(const std::string& email) {
    const auto at = email.find('@');
    if (at == std::string::npos || at == 0) return "***";
    return email.substr(0, 1) + "***" + email.substr(at);
}

}  // namespace

std::string normalizeEmail(const std::string& email) {
    size_t begin = 0, end = email.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(email[begin]))) ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(email[end - 1]))) --end;
    std::string out = email.substr(begin, end - begin);
    for (char& ch : out) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    const auto at = out.find('@');
    const bool shapeOk = !out.empty() && out.size() <= 254 && at != std::string::npos && at > 0 &&
                         out.find('@', at + 1) == std::string::npos &&
                         out.find('.', at + 2) != std::string::npos && out.back() != '.';
    bool charsOk = true;
    for (unsigned char ch : out) {
        if (ch <= 0x20 || ch == 0x7f || ch == '<' || ch == '>' || ch == ',' || ch == ';' || ch == '"' ||
            ch == '\\') {
            charsOk = false;
        }
    }
    if (!shapeOk || !charsOk) throw SignInError("Invalid email");
    return out;
}

void OtpService::sendCode(const std::string& rawEmail) {
    const std::string email = normalizeEmail(rawEmail);
    const double now = clock_.now();
    const std::string code = randomDigits(policy_.digits);
    const bool issued = db_.transaction([&](SqlConnection& c) {
        auto recent =
            c.queryOne("SELECT COUNT(*), MAX(created_at) FROM otp_codes WHERE email = ? AND created_at > ?",
                       {email, now - 3600});
        const int64_t lastHour = recent->integer(0);
        const bool tooSoon = !recent->isNull(1) && now - recent->real(1) < policy_.minIntervalSeconds;
        if (tooSoon || lastHour >= policy_.maxPerHour) return false;
        c.exec("UPDATE otp_codes SET state = 'void' WHERE email = ? AND state = 'active'", {email});
        c.exec("DELETE FROM otp_codes WHERE created_at < ?", {now - 86400});
        const std::string salt = hexOf(randomBytes(16));
        c.exec(
            "INSERT INTO otp_codes (email, code_hash, salt, created_at, expires_at) VALUES (?, ?, ?, ?, ?)",
            {email, codeHash(salt, email, code), salt, now, now + policy_.validSeconds});
        return true;
    });
    if (!issued) {
        log("vocle-server: sign-in code for ", maskedEmail(email), " not sent (rate limit)");
        return;
    }
    MailMessage message;
    message.from = mailFrom_;
    message.to = email;
    message.subject = "Your Vocle sign-in code";
    const int minutes = static_cast<int>(std::lround(policy_.validSeconds / 60));
    message.body =
        "Your Vocle sign-in code is:\n\n    " + code + "\n\nIt is valid for " + std::to_string(minutes) +
        " minutes and can be used once. If you did not ask to sign in, you can ignore this message.\n";
    try {
        mailer_.send(message);
        log("vocle-server: sign-in code sent to ", maskedEmail(email));
    } catch (const std::exception& e) {
        log("vocle-server: ❌ sign-in code for ", maskedEmail(email), " could not be delivered: ", e.what());
    }
}

SignInResult OtpService::verify(const std::string& rawEmail, const std::string& rawCode) {
    const std::string email = normalizeEmail(rawEmail);
    std::string code;
    for (char ch : rawCode) {
        if (!std::isspace(static_cast<unsigned char>(ch))) code.push_back(ch);
    }
    const double now = clock_.now();
    struct Outcome {
        std::optional<SignInResult> result;
        std::string error;
    };
    // The attempt counter must be committed even when the code is wrong, so failures are returned, not
    // thrown.
    Outcome outcome = db_.transaction([&](SqlConnection& c) -> Outcome {
        auto row = c.queryOne(
            "SELECT id, code_hash, salt, expires_at, attempts FROM otp_codes WHERE email = ? AND state = "
            "'active' "
            "ORDER BY id DESC LIMIT 1",
            {email});
        if (!row) return {std::nullopt, "Invalid or expired code"};
        const int64_t id = row->integer(0);
        if (row->real(3) <= now) {
            c.exec("UPDATE otp_codes SET state = 'expired' WHERE id = ?", {id});
            return {std::nullopt, "Invalid or expired code"};
        }
        if (!constantTimeEquals(codeHash(row->text(2), email, code), row->text(1))) {
            const int64_t attempts = row->integer(4) + 1;
            if (attempts >= policy_.maxAttempts) {
                c.exec("UPDATE otp_codes SET attempts = ?, state = 'void' WHERE id = ?", {attempts, id});
                return {std::nullopt, "Too many wrong attempts; request a new code"};
            }
            c.exec("UPDATE otp_codes SET attempts = ? WHERE id = ?", {attempts, id});
            return {std::nullopt, "Invalid or expired code"};
        }
        c.exec("UPDATE otp_codes SET state = 'used' WHERE id = ?", {id});
        User user = UserStore::findOrCreate(c, email, now);
        TokenPair tokens = tokens_.issue(c, user.id);
        return {SignInResult{std::move(tokens), std::move(user)}, {}};
    });
    if (!outcome.result) {
        log("vocle-server: sign-in failed for ", maskedEmail(email), ": ", outcome.error);
        throw SignInError(outcome.error);
    }
    log("vocle-server: user ", outcome.result->user.id, " signed in");
    return std::move(*outcome.result);
}

}  // namespace vocle::server
