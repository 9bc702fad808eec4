#include "core/Replacement.h"

namespace vocle {

Replacement Replacement::make(std::string original, std::string replacement) {
    Replacement r;
    r.original = std::move(original);
    r.replacement = std::move(replacement);
    return r;
}

Replacement Replacement::fromJson(const Json& json) {
    requireObjectValue(json, "Replacement");
    const std::string idText = requireString(json, "id");
    auto id = Uuid::parse(idText);
    if (!id) throw DecodingError("Invalid UUID string for key \"id\": " + idText);
    Replacement r;
    r.id = *id;
    r.original = requireString(json, "original");
    r.replacement = requireString(json, "replacement");
    return r;
}

Json Replacement::toJson() const {
    return Json{{"id", id.string()}, {"original", original}, {"replacement", replacement}};
}

std::vector<Replacement> defaultTextReplacements() {
    return {
        Replacement::make("slack at here", "@here"),
        Replacement::make("slack at everyone", "@everyone"),
        Replacement::make("slack at channel", "@channel"),
        Replacement::make("link calendar", "https://calendly.com/your-name/example-15min"),
        Replacement::make("insert meeting link", "https://meet.google.com/your-meeting-id"),
        Replacement::make("new line", "\n"),
        Replacement::make("new paragraph", "\n\n"),
        Replacement::make("bold text", "**"),
        Replacement::make("italic text", "*"),
        Replacement::make("code block", "```"),
    };
}

}  // namespace vocle
