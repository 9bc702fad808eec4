#pragma once

#include <cstdint>
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

// POST "/transcribe/stream" answer.
struct StreamOpened {
    std::string streamId;
    static StreamOpened fromJson(const Json& json);
};

// POST "/transcribe/stream/{id}/audio" answer: the best text so far.
struct StreamPartial {
    std::string partial;
    int64_t seq = 0;
    static StreamPartial fromJson(const Json& json);
};

// An answer whose body does not matter (204).
struct NoContent {
    static NoContent fromJson(const Json&) { return {}; }
};

}  // namespace vocle
