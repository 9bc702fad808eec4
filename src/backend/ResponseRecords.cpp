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

StreamOpened StreamOpened::fromJson(const Json& json) {
    requireObjectValue(json, "StreamOpened");
    return {requireString(json, "stream_id")};
}

StreamPartial StreamPartial::fromJson(const Json& json) {
    requireObjectValue(json, "StreamPartial");
    StreamPartial p;
    p.partial = requireString(json, "partial");
    auto seq = json.find("seq");
    if (seq != json.end() && seq->is_number_integer()) p.seq = seq->get<int64_t>();
    return p;
}

}  // namespace vocle
