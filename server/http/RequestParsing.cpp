#include "http/RequestParsing.h"

#include "foundation/Base64.h"

namespace vocle::server {

namespace {

[[noreturn]] void bad(const std::string& message) {
    throw HttpError(400, message);
}

std::string stringField(const Json& object, const char* key, const std::string& where, bool required,
                        const std::string& fallback = {}) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
        if (required) bad("Missing \"" + std::string(key) + "\"" + where);
        return fallback;
    }
    if (!it->is_string()) bad("\"" + std::string(key) + "\"" + where + " must be a string");
    return it->get<std::string>();
}

void optionalStringMember(const Json& object, const char* key, const std::string& where) {
    stringField(object, key, where, false);
}

}  // namespace

Json parseBodyObject(std::string_view body) {
    Json json;
    try {
        json = Json::parse(body.begin(), body.end());
    } catch (const Json::exception&) {
        bad("Malformed JSON");
    }
    if (!json.is_object()) bad("The request body must be a JSON object");
    return json;
}

std::string parseEmailField(const Json& body) {
    return stringField(body, "email", "", true);
}

std::string parseCodeField(const Json& body) {
    return stringField(body, "token", "", true);
}

TranscriptionJob parseTranscribeRequest(const Json& body) {
    const std::string audio = stringField(body, "audio", "", true);
    if (audio.empty()) bad("\"audio\" is empty");
    auto decoded = base64::decode(audio);
    if (!decoded) bad("\"audio\" is not valid Base64");
    TranscriptionJob job = parseTranscriptionOptions(body);
    job.audio = std::move(*decoded);
    return job;
}

TranscriptionJob parseTranscriptionOptions(const Json& body) {
    TranscriptionJob job;
    auto mode = body.find("mode");
    if (mode == body.end() || !mode->is_object()) bad("Missing \"mode\" object");
    const std::string where = " in \"mode\"";
    job.mode.id = stringField(*mode, "id", where, false);
    job.mode.name = stringField(*mode, "name", where, false);
    job.mode.type = stringField(*mode, "type", where, false, "raw");
    job.mode.prompt = stringField(*mode, "prompt", where, false);
    job.mode.language = stringField(*mode, "language", where, false, "en");
    auto typeId = mode->find("mode_type_id");
    if (typeId != mode->end() && !typeId->is_null()) {
        if (!typeId->is_string()) bad("\"mode_type_id\" in \"mode\" must be a string");
        job.mode.modeTypeId = typeId->get<std::string>();
    }

    job.vocabWords = stringField(body, "vocab_words", "", false);
    auto list = body.find("text_replacements");
    if (list != body.end() && !list->is_null()) {
        if (!list->is_array()) bad("\"text_replacements\" must be an array");
        for (const Json& item : *list) {
            if (!item.is_object()) bad("Each text replacement must be an object");
            job.replacements.push_back({stringField(item, "from", " in a text replacement", true),
                                        stringField(item, "to", " in a text replacement", true)});
        }
    }
    return job;
}

TranscriptionJob parseStreamOpenRequest(const Json& body) {
    if (body.contains("audio")) bad("A stream's audio follows in chunks; \"audio\" is not taken here");
    const auto number = [&](const char* key, int64_t expected) {
        auto it = body.find(key);
        if (it == body.end() || it->is_null()) return;
        if (!it->is_number_integer() || it->get<int64_t>() != expected) {
            bad("\"" + std::string(key) + "\" must be " + std::to_string(expected) +
                ": streams take 16 kHz mono 16-bit PCM");
        }
    };
    number("sample_rate", 16000);
    number("channels", 1);
    const std::string encoding = stringField(body, "encoding", "", false, "s16le");
    if (encoding != "s16le") bad("\"encoding\" must be \"s16le\": streams take 16 kHz mono 16-bit PCM");
    return parseTranscriptionOptions(body);
}

uint64_t parseChunkSequence(const std::string& text) {
    if (text.empty()) bad("Missing \"seq\": each audio chunk carries its number (0, 1, 2 ...)");
    if (text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
        bad("\"seq\" must be a whole number from 0");
    return std::stoull(text);
}

void validateSettingsDocument(const Json& settings) {
    if (!settings.is_object()) bad("\"settings\" must be an object");
    auto modes = settings.find("modes");
    if (modes != settings.end() && !modes->is_null()) {
        if (!modes->is_array()) bad("\"modes\" must be an array");
        for (const Json& mode : *modes) {
            if (!mode.is_object()) bad("Each mode must be an object");
            const std::string where = " in a mode";
            for (const char* key : {"id", "name", "type", "prompt", "language"})
                stringField(mode, key, where, true);
            for (const char* key : {"mode_type_id", "activation_website", "activation_application"}) {
                optionalStringMember(mode, key, where);
            }
            auto examples = mode.find("examples");
            if (examples != mode.end() && !examples->is_null()) {
                if (!examples->is_array()) bad("\"examples\" in a mode must be an array");
                for (const Json& example : *examples) {
                    if (!example.is_object()) bad("Each example must be an object");
                    stringField(example, "input", " in an example", true);
                    stringField(example, "output", " in an example", true);
                }
            }
        }
    }
    auto replacements = settings.find("text_replacements");
    if (replacements != settings.end() && !replacements->is_null()) {
        if (!replacements->is_array()) bad("\"text_replacements\" must be an array");
        for (const Json& r : *replacements) {
            if (!r.is_object()) bad("Each text replacement must be an object");
            stringField(r, "from", " in a text replacement", true);
            stringField(r, "to", " in a text replacement", true);
        }
    }
    optionalStringMember(settings, "vocab_words", "");
    optionalStringMember(settings, "last_active_mode_id", "");
}

SettingsPost parseSettingsPost(const Json& body) {
    SettingsPost post;
    auto settings = body.find("settings");
    if (settings == body.end() || settings->is_null()) bad("Missing \"settings\"");
    validateSettingsDocument(*settings);
    post.settings = *settings;
    auto version = body.find("if_match_version");
    if (version != body.end() && !version->is_null()) {
        if (!version->is_number_integer()) bad("\"if_match_version\" must be an integer");
        post.ifMatchVersion = version->get<int64_t>();
    }
    return post;
}

std::string parseSupportMessage(const Json& body, size_t maxChars) {
    std::string message = stringField(body, "message", "", true);
    size_t b = 0, e = message.size();
    while (b < e && std::isspace(static_cast<unsigned char>(message[b]))) ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(message[e - 1]))) --e;
    message = message.substr(b, e - b);
    if (message.empty()) bad("Message cannot be empty");
    if (message.size() > maxChars)
        bad("Message is too long (at most " + std::to_string(maxChars) + " characters)");
    return message;
}

}  // namespace vocle::server
