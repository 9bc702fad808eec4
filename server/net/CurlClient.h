#pragma once

#include <string>
#include <vector>

namespace vocle::server {

struct CurlResponse {
    long status = 0;
    std::string body;
};

struct MultipartPart {
    std::string name;
    std::string data;
    std::string fileName;     // set for file parts
    std::string contentType;  // set for file parts
};

// Blocking requests to upstream services (speech and chat endpoints). Transport failures throw
// std::runtime_error with libcurl's reason; HTTP errors are returned with their status.
class CurlClient {
  public:
    explicit CurlClient(long timeoutSeconds = 120) : timeoutSeconds_(timeoutSeconds) {}
    CurlResponse postJson(const std::string& url, const std::string& bearer, const std::string& json) const;
    CurlResponse postMultipart(const std::string& url, const std::string& bearer,
                               const std::vector<MultipartPart>& parts) const;

  private:
    long timeoutSeconds_;
};

// "http://host:port" + "/v1/..." without doubling the slash.
std::string joinUrl(const std::string& base, const std::string& path);

}  // namespace vocle::server
