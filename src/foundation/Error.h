#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace vocle {

// A failure as the user and the log see it: a domain, a code and a readable description.
struct Error {
    std::string domain;
    int code = 0;
    std::string description;
};

// A value or an error; completions carry one of these exactly once. Backend operations use their own
// error type (`Result<T, BackendError>`).
template <class T, class E = Error>
class Result {
public:
    Result(T value) : v_(std::in_place_index<0>, std::move(value)) {}
    Result(E error) : v_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return v_.index() == 0; }
    const T& value() const { return std::get<0>(v_); }
    T& value() { return std::get<0>(v_); }
    const E& error() const { return std::get<1>(v_); }

private:
    std::variant<T, E> v_;
};

}  // namespace vocle
