#include "mail/SmtpMailer.h"

#include <curl/curl.h>

#include <cstring>

#include "foundation/Uuid.h"

namespace vocle::server {

namespace {
struct Upload {
    const std::string* text;
    size_t offset = 0;
};

size_t readPayload(char* buffer, size_t size, size_t count, void* userdata) {
    auto* upload = static_cast<Upload*>(userdata);
    const size_t room = size * count;
    const size_t left = upload->text->size() - upload->offset;
    const size_t n = left < room ? left : room;
    std::memcpy(buffer, upload->text->data() + upload->offset, n);
    upload->offset += n;
    return n;
}
}  // namespace

void SmtpMailer::send(const MailMessage& message) {
    const std::string from = mailAddress(message.from);
    const std::string to = mailAddress(message.to);
    const std::string text =
        formatRfc5322(message, clock_.now(), Uuid::random().string() + "@" + from.substr(from.find('@') + 1));
    CURL* curl = curl_easy_init();
    if (!curl) throw MailError("libcurl could not start");
    Upload upload{&text};
    curl_slist* recipients = curl_slist_append(nullptr, ("<" + to + ">").c_str());
    const std::string mailFrom = "<" + from + ">";
    curl_easy_setopt(curl, CURLOPT_URL, settings_.url.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, mailFrom.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, readPayload);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, settings_.timeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_TRY));
    if (!settings_.user.empty()) {
        curl_easy_setopt(curl, CURLOPT_USERNAME, settings_.user.c_str());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, settings_.password.c_str());
    }
    const CURLcode rc = curl_easy_perform(curl);
    curl_slist_free_all(recipients);
    curl_easy_cleanup(curl);
    if (rc != CURLE_OK) throw MailError(std::string("SMTP delivery failed: ") + curl_easy_strerror(rc));
}

}  // namespace vocle::server
