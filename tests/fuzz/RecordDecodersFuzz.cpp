// Arbitrary bytes through every decoder of the data folder's files. A decoder may reject input only by
// throwing DecodingError; whatever it accepts must survive an encode/decode round trip unchanged.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/Mode.h"
#include "core/TranscriptionHistory.h"
#include "storage/AppSettings.h"
#include "storage/SessionStore.h"

using namespace vocle;

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

template <class Record, class Same>
void roundTrip(const Json& json, Same same) {
    try {
        const Record decoded = Record::fromJson(json);
        const Record again = Record::fromJson(parseJson(toCompactJson(decoded.toJson())));
        check(same(decoded, again));
    } catch (const DecodingError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Json json;
    try {
        json = parseJson(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const DecodingError&) {
        return 0;
    }
    auto equal = [](const auto& a, const auto& b) { return a == b; };
    roundTrip<Mode>(json, equal);
    roundTrip<OnboardingState>(json, equal);
    roundTrip<SupabaseSession>(json, equal);
    roundTrip<TranscriptionHistory>(json, [](const auto& a, const auto& b) {
        return a.id == b.id && a.text == b.text;  // dates pass through a float conversion
    });
    roundTrip<AppSettings>(json, [](const AppSettings& a, const AppSettings& b) {
        if (a.textReplacements.size() != b.textReplacements.size()) return false;
        for (size_t i = 0; i < a.textReplacements.size(); ++i) {
            if (a.textReplacements[i].from != b.textReplacements[i].from ||
                a.textReplacements[i].to != b.textReplacements[i].to) {
                return false;
            }
        }
        return a.vocabularyWords == b.vocabularyWords && a.lastActiveModeId == b.lastActiveModeId &&
               a.toggleShortcut == b.toggleShortcut && a.cancelShortcut == b.cancelShortcut &&
               a.soundVolume == b.soundVolume;
    });
    roundTrip<CloudTemplatesCache>(json, [](const auto& a, const auto& b) { return a.templatesJSON == b.templatesJSON; });
    if (json.is_array()) {
        for (const auto& item : json) roundTrip<Mode>(item, equal);
    }
    return 0;
}
