#include "backend/HttpClient.h"

#include <algorithm>
#include <cctype>

namespace vocle {

namespace {

bool sameLetters(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

}  // namespace

std::optional<std::string> HttpRequest::header(const std::string& name) const {
    for (const auto& line : headers) {
        const auto colon = line.find(':');
        if (colon == std::string::npos || !sameLetters(std::string_view(line).substr(0, colon), name))
            continue;
        const auto start = line.find_first_not_of(' ', colon + 1);
        return start == std::string::npos ? std::string() : line.substr(start);
    }
    return std::nullopt;
}

std::optional<std::string> HttpResponse::header(const std::string& lowerCaseName) const {
    auto it = headers.find(lowerCaseName);
    if (it == headers.end()) return std::nullopt;
    return it->second;
}

}  // namespace vocle
