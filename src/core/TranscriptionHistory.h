#pragma once

#include <string>

#include "foundation/Json.h"
#include "foundation/Uuid.h"

namespace vocle {

// One finished transcript. `timestamp` is seconds since 1970; on disk it is seconds since 2001.
struct TranscriptionHistory {
    Uuid id;
    std::string text;
    double timestamp = 0;

    static TranscriptionHistory fromJson(const Json& json);
    Json toJson() const;

    friend bool operator==(const TranscriptionHistory&, const TranscriptionHistory&) = default;
};

}  // namespace vocle
