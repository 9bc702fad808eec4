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

// A value or an error; completions carry one of these exactly once.
template <class T>
class Result {
public:
    Result(T value) : v_(std::move(value)) {}
    Result(Error error) : v_(std::move(error)) {}

    bool ok() const { return v_.index() == 0; }
    const T& value() const { return std::get<0>(v_); }
    T& value() { return std::get<0>(v_); }
    const Error& error() const { return std::get<1>(v_); }

private:
    std::variant<T, Error> v_;
};

}  // namespace vocle
