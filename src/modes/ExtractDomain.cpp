#include "modes/ExtractDomain.h"

#include <cctype>

#include "foundation/Text.h"

namespace vocle {

namespace {

// Characters a URL may not carry unescaped; such text is not a URL at all.
bool isForbidden(unsigned char c) {
    if (c <= 0x20 || c == 0x7F) return true;
    switch (c) {
        case '"':
        case '<':
        case '>':
        case '\\':
        case '^':
        case '`':
        case '{':
        case '|':
        case '}':
            return true;
        default:
            return false;
    }
}

bool isValidScheme(std::string_view scheme) {
    if (scheme.empty() || !std::isalpha(static_cast<unsigned char>(scheme[0]))) return false;
    for (unsigned char c : scheme) {
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return false;
    }
    return true;
}

// The host of an absolute URL "scheme://authority/...", or none when it is malformed.
std::optional<std::string> hostOf(std::string_view url) {
    const auto sep = url.find("://");
    if (sep == std::string_view::npos || !isValidScheme(url.substr(0, sep))) return std::nullopt;
    std::string_view rest = url.substr(sep + 3);
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (const auto at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);

    std::string_view host;
    std::string_view port;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        host = authority.substr(1, close - 1);
        std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':') return std::nullopt;
            port = after.substr(1);
        }
    } else {
        const auto colon = authority.find(':');
        host = authority.substr(0, colon);
        if (colon != std::string_view::npos) port = authority.substr(colon + 1);
    }
    for (unsigned char c : port) {
        if (!std::isdigit(c)) return std::nullopt;
    }
    if (host.find_first_of("[]") != std::string_view::npos) return std::nullopt;
    return std::string(host);
}

}  // namespace

std::optional<std::string> extractDomain(std::string_view text) {
    std::string url = trimWhitespace(text);
    for (unsigned char c : url) {
        if (isForbidden(c)) return std::nullopt;
    }
    if (url.find("://") == std::string::npos) url = "https://" + url;
    auto host = hostOf(url);
    if (!host || host->empty()) return std::nullopt;
    if (host->starts_with("www.")) host->erase(0, 4);
    return host;
}

}  // namespace vocle
