#include "backend/HttpTransport.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>

namespace vocle {

namespace {

void globalInitOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string lowerCase(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

}  // namespace

struct HttpTransport::Transfer {
    uint64_t id = 0;
    HttpRequest request;
    Callback callback;
    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    HttpResponse response;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    ~Transfer() {
        if (easy) curl_easy_cleanup(easy);
        if (headerList) curl_slist_free_all(headerList);
    }

    static size_t onBody(char* data, size_t size, size_t count, void* self) {
        static_cast<Transfer*>(self)->response.body.append(data, size * count);
        return size * count;
    }

    static size_t onHeader(char* data, size_t size, size_t count, void* self) {
        auto* t = static_cast<Transfer*>(self);
        const std::string line(data, size * count);
        // A new status line (after a redirect or an interim answer) starts a fresh header block.
        if (line.rfind("HTTP/", 0) == 0) {
            t->response.headers.clear();
        } else if (auto colon = line.find(':'); colon != std::string::npos) {
            t->response.headers[lowerCase(trim(line.substr(0, colon)))] = trim(line.substr(colon + 1));
        }
        return size * count;
    }
};

bool HttpTransport::isValidURL(const std::string& url) {
    globalInitOnce();
    CURLU* handle = curl_url();
    if (!handle) return false;
    bool valid = curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    if (valid) {
        char* scheme = nullptr;
        valid = curl_url_get(handle, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK && scheme &&
                (std::string(scheme) == "http" || std::string(scheme) == "https");
        curl_free(scheme);
        char* host = nullptr;
        valid = valid && curl_url_get(handle, CURLUPART_HOST, &host, 0) == CURLUE_OK && host && *host;
        curl_free(host);
    }
    curl_url_cleanup(handle);
    return valid;
}

HttpTransport::HttpTransport() {
    globalInitOnce();
    multi_ = curl_multi_init();
}

HttpTransport::~HttpTransport() {
    stopping_ = true;
    if (worker_.joinable()) {
        curl_multi_wakeup(static_cast<CURLM*>(multi_));
        worker_.join();
    }
    for (auto& [id, t] : running_) curl_multi_remove_handle(static_cast<CURLM*>(multi_), t->easy);
    running_.clear();
    pending_.clear();
    curl_multi_cleanup(static_cast<CURLM*>(multi_));
}

uint64_t HttpTransport::send(HttpRequest request, Callback callback) {
    auto t = std::make_unique<Transfer>();
    t->request = std::move(request);
    t->callback = std::move(callback);
    uint64_t id;
    {
        std::lock_guard lock(mutex_);
        id = nextId_++;
        t->id = id;
        pending_.push_back(std::move(t));
        // The worker starts with the first transfer: a client that never sends runs no thread.
        if (!worker_.joinable()) worker_ = std::thread([this] { loop(); });
    }
    curl_multi_wakeup(static_cast<CURLM*>(multi_));
    return id;
}

void HttpTransport::cancel(uint64_t id) {
    {
        std::lock_guard lock(mutex_);
        auto it = std::find_if(pending_.begin(), pending_.end(), [id](const auto& t) { return t->id == id; });
        if (it != pending_.end()) {
            pending_.erase(it);
            return;
        }
        cancels_.push_back(id);
    }
    curl_multi_wakeup(static_cast<CURLM*>(multi_));
}

void HttpTransport::startPending() {
    std::vector<std::unique_ptr<Transfer>> starting;
    std::vector<uint64_t> cancels;
    {
        std::lock_guard lock(mutex_);
        starting.swap(pending_);
        cancels.swap(cancels_);
    }
    auto* multi = static_cast<CURLM*>(multi_);
    for (uint64_t id : cancels) {
        auto it = running_.find(id);
        if (it == running_.end()) continue;
        curl_multi_remove_handle(multi, it->second->easy);
        running_.erase(it);
    }
    for (auto& t : starting) {
        CURL* easy = curl_easy_init();
        t->easy = easy;
        const HttpRequest& r = t->request;
        curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
        curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_TIMEOUT, r.timeoutSeconds);
        curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, r.inactivitySeconds);
        curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t->errorBuffer);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, t.get());
        curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
        curl_easy_setopt(easy, CURLOPT_HEADERDATA, t.get());
        curl_easy_setopt(easy, CURLOPT_PRIVATE, t.get());
        for (const auto& h : r.headers) t->headerList = curl_slist_append(t->headerList, h.c_str());
        // Large bodies would otherwise wait for a "100 Continue" that simple servers never send.
        t->headerList = curl_slist_append(t->headerList, "Expect:");
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, t->headerList);
        if (r.method == "GET") {
            curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        } else {
            if (r.method == "POST") {
                curl_easy_setopt(easy, CURLOPT_POST, 1L);
            } else {
                curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
            }
            // The body is shared with the caller and outlives the transfer, so curl reads it in place.
            const std::string* body = r.body.get();
            curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body ? body->data() : "");
            curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                             static_cast<curl_off_t>(body ? body->size() : 0));
        }
        curl_multi_add_handle(multi, easy);
        const uint64_t id = t->id;
        running_.emplace(id, std::move(t));
    }
}

void HttpTransport::loop() {
    auto* multi = static_cast<CURLM*>(multi_);
    while (!stopping_) {
        startPending();
        int stillRunning = 0;
        curl_multi_perform(multi, &stillRunning);
        int queued = 0;
        while (CURLMsg* msg = curl_multi_info_read(multi, &queued)) {
            if (msg->msg != CURLMSG_DONE) continue;
            Transfer* raw = nullptr;
            curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, &raw);
            const CURLcode code = msg->data.result;
            curl_multi_remove_handle(multi, msg->easy_handle);
            auto it = running_.find(raw->id);
            if (it == running_.end()) continue;
            std::unique_ptr<Transfer> t = std::move(it->second);
            running_.erase(it);
            if (code != CURLE_OK) {
                t->response.transportFailed = true;
                t->response.transportError = t->errorBuffer[0] ? t->errorBuffer : curl_easy_strerror(code);
            } else {
                long status = 0;
                curl_easy_getinfo(t->easy, CURLINFO_RESPONSE_CODE, &status);
                t->response.status = status;
            }
            if (t->callback) t->callback(std::move(t->response));
        }
        if (stopping_) break;
        curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
}

}  // namespace vocle
