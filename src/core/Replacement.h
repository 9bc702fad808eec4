#pragma once

#include <string>
#include <vector>

#include "foundation/Json.h"
#include "foundation/Uuid.h"

namespace vocle {

// A spoken phrase and the text put in its place. The id lives for one run only.
struct Replacement {
    Uuid id = Uuid::random();
    std::string original;
    std::string replacement;

    static Replacement make(std::string original, std::string replacement);
    static Replacement fromJson(const Json& json);
    Json toJson() const;

    friend bool operator==(const Replacement&, const Replacement&) = default;
};

// The ten replacements a new user starts with, each with a fresh id.
std::vector<Replacement> defaultTextReplacements();

}  // namespace vocle
