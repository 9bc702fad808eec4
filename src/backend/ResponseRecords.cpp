#include "backend/ResponseRecords.h"

namespace vocle {

TranscribeResponse TranscribeResponse::fromJson(const Json& json) {
    requireObjectValue(json, "TranscribeResponse");
    return {requireString(json, "transcript")};
}

SuccessResponse SuccessResponse::fromJson(const Json& json) {
    requireObjectValue(json, "SuccessResponse");
    return {requireBool(json, "success")};
}

}  // namespace vocle
