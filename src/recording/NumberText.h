#pragma once

#include <charconv>
#include <string>

namespace vocle {

// A real as the recording log lines print it: the shortest exact form, always with a fraction
// ("-40.0", "0.39", "1.0").
template <class T>
std::string numberText(T value) {
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, value);
    std::string s(buf, res.ptr);
    if (s.find_first_of(".ein") == std::string::npos) s += ".0";
    return s;
}

}  // namespace vocle
