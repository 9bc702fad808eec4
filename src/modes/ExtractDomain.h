#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vocle {

// The host of a web address as typed or as a browser shows it: trimmed, "https://" assumed when no
// scheme is given, a leading "www." dropped. Case is kept, so matching on it is case-sensitive.
// None when the text is not a URL or has no host.
std::optional<std::string> extractDomain(std::string_view text);

}  // namespace vocle
