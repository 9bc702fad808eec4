#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "formatting/TranscriptionService.h"
#include "foundation/Json.h"
#include "http/ApiTypes.h"

namespace vocle::server {

// Every function here throws HttpError(400, reason) for input it cannot accept; none trusts its input.

Json parseBodyObject(std::string_view body);

std::string parseEmailField(const Json& body);
std::string parseCodeField(const Json& body);

// {"audio": base64, "mode": {...}, "vocab_words"?, "text_replacements"?}
TranscriptionJob parseTranscribeRequest(const Json& body);
// The same without "audio": "mode", "vocab_words", "text_replacements".
TranscriptionJob parseTranscriptionOptions(const Json& body);
// A stream's opening body: the options above plus, when present, "sample_rate" 16000, "channels" 1 and
// "encoding" "s16le"; "audio" is refused.
TranscriptionJob parseStreamOpenRequest(const Json& body);
// The "seq" query value of an audio chunk.
uint64_t parseChunkSequence(const std::string& text);

struct SettingsPost {
    Json settings;
    std::optional<int64_t> ifMatchVersion;
};
SettingsPost parseSettingsPost(const Json& body);

// The document must decode as the app's settings record: optional "modes" (objects with string "id",
// "name", "type", "prompt", "language", optional strings "mode_type_id", "activation_website",
// "activation_application" and optional "examples" of {"input", "output"}), "text_replacements"
// ({"from", "to"}), "vocab_words" and "last_active_mode_id" strings. Unknown members are kept.
void validateSettingsDocument(const Json& settings);

std::string parseSupportMessage(const Json& body, size_t maxChars);

}  // namespace vocle::server
