#include "core/TranscriptionHistory.h"

#include "foundation/Clock.h"

namespace vocle {

TranscriptionHistory TranscriptionHistory::fromJson(const Json& json) {
    requireObjectValue(json, "TranscriptionHistory");
    const std::string idText = requireString(json, "id");
    auto id = Uuid::parse(idText);
    if (!id) throw DecodingError("Invalid UUID string for key \"id\": " + idText);
    return TranscriptionHistory{*id, requireString(json, "text"), fromReferenceDate(requireNumber(json, "timestamp"))};
}

Json TranscriptionHistory::toJson() const {
    return Json{{"id", id.string()}, {"text", text}, {"timestamp", toReferenceDate(timestamp)}};
}

}  // namespace vocle
