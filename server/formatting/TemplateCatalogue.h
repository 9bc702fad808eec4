#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/Json.h"

namespace vocle::server {

// How a template formats a transcript when no chat model is configured.
enum class Layout { Raw, Clean, Message, Email, SimpleNote, OrganizedNote };

struct ModeTemplate {
    std::string id;
    std::string name;
    std::string prompt;
    std::string language;
    std::string description;
    bool display = true;
    Layout layout = Layout::Clean;
};

inline constexpr const char* kDefaultModeTypeId = "22222222-2222-2222-2222-222222222222";

// The mode types the app offers. Bump `version()` whenever an entry changes so clients refresh their cache.
class TemplateCatalogue {
  public:
    TemplateCatalogue();
    const std::vector<ModeTemplate>& templates() const { return templates_; }
    int64_t version() const { return 1; }
    // {"mode_types": [...]} as the app decodes it.
    Json document() const;
    // By id first, then by name (case-insensitive); "raw" (what the app sends for a type-less mode) is Raw.
    const ModeTemplate* find(const std::optional<std::string>& modeTypeId, const std::string& typeName) const;

  private:
    std::vector<ModeTemplate> templates_;
};

}  // namespace vocle::server
