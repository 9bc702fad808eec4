#pragma once

#include <string>

#include "foundation/Json.h"

namespace vocle {

// POST "/transcribe" answer; other members are ignored.
struct TranscribeResponse {
    std::string transcript;
    static TranscribeResponse fromJson(const Json& json);
};

// POST "/support/message" answer.
struct SuccessResponse {
    bool success = false;
    static SuccessResponse fromJson(const Json& json);
};

}  // namespace vocle
