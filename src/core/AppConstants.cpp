#include "core/AppConstants.h"

#include "core/Replacement.h"
#include "foundation/Log.h"

namespace vocle {

void logAppDefaultValues() {
    logLine("=== App Default Values ===");
    logLine("Audio:");
    logLine("  - Use System Default Device: true");
    logLine("  - Enable Sound Effects: true");
    logLine("  - Sound Volume: 0.6");
    logLine("Text Processing:");
    logLine("  - Default Vocabulary: ");
    const auto replacements = defaultTextReplacements();
    log("  - Default Replacements Count: ", replacements.size());
    std::string pairs;
    for (size_t i = 0; i < replacements.size(); ++i) {
        if (i) pairs += ", ";
        pairs += replacements[i].original + " → " + replacements[i].replacement;
    }
    log("  - Default Replacements: ", pairs);
    logLine("Modes:");
    log("  - Default Mode Name: ", kDefaultModeName);
    log("  - Default Mode Type ID: ", kDefaultModeTypeId);
    logLine("  - Default Mode Custom Prompt: nil");
    logLine("Shortcuts:");
    logLine("  - Toggle: Control + Option + Space (keyCode: 49)");
    logLine("  - Cancel: Escape (keyCode: 53)");
    logLine("==========================");
}

}  // namespace vocle
