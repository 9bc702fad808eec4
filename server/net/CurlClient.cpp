#include "net/CurlClient.h"

#include <curl/curl.h>

#include <memory>
#include <stdexcept>

namespace vocle::server {

namespace {

size_t collect(char* data, size_t size, size_t count, void* userdata) {
    static_cast<std::string*>(userdata)->append(data, size * count);
    return size * count;
}

struct CurlDeleter {
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct ListDeleter {
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};
struct MimeDeleter {
    void operator()(curl_mime* m) const { curl_mime_free(m); }
};

CurlResponse perform(CURL* curl, const std::string& url, curl_slist* headers, long timeout) {
    CurlResponse response;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, timeout);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    const CURLcode rc = curl_easy_perform(curl);
    if (rc != CURLE_OK) throw std::runtime_error(curl_easy_strerror(rc));
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    return response;
}

curl_slist* authHeaders(const std::string& bearer, curl_slist* list) {
    if (!bearer.empty()) list = curl_slist_append(list, ("Authorization: Bearer " + bearer).c_str());
    return curl_slist_append(list, "Expect:");
}

}  // namespace

std::string joinUrl(const std::string& base, const std::string& path) {
    std::string b = base;
    while (!b.empty() && b.back() == '/') b.pop_back();
    return b + path;
}

CurlResponse CurlClient::postJson(const std::string& url, const std::string& bearer,
                                  const std::string& json) const {
    std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    if (!curl) throw std::runtime_error("libcurl could not start");
    std::unique_ptr<curl_slist, ListDeleter> headers(
        authHeaders(bearer, curl_slist_append(nullptr, "Content-Type: application/json")));
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, json.data());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(json.size()));
    return perform(curl.get(), url, headers.get(), timeoutSeconds_);
}

CurlResponse CurlClient::postMultipart(const std::string& url, const std::string& bearer,
                                       const std::vector<MultipartPart>& parts) const {
    std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    if (!curl) throw std::runtime_error("libcurl could not start");
    std::unique_ptr<curl_mime, MimeDeleter> mime(curl_mime_init(curl.get()));
    for (const auto& part : parts) {
        curl_mimepart* p = curl_mime_addpart(mime.get());
        curl_mime_name(p, part.name.c_str());
        curl_mime_data(p, part.data.data(), part.data.size());
        if (!part.fileName.empty()) curl_mime_filename(p, part.fileName.c_str());
        if (!part.contentType.empty()) curl_mime_type(p, part.contentType.c_str());
    }
    std::unique_ptr<curl_slist, ListDeleter> headers(authHeaders(bearer, nullptr));
    curl_easy_setopt(curl.get(), CURLOPT_MIMEPOST, mime.get());
    return perform(curl.get(), url, headers.get(), timeoutSeconds_);
}

}  // namespace vocle::server
