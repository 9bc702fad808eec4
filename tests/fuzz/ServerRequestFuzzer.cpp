// libFuzzer target over everything vocle-server derives from untrusted request bytes. The first byte
// picks the parser; the rest is its input. Parsers may reject input only with their documented
// exceptions; anything else (a crash, a sanitizer report, another exception) is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "auth/TokenService.h"
#include "formatting/TextFormatter.h"
#include "formatting/TextReplacer.h"
#include "formatting/VocabularyCorrector.h"
#include "http/RequestParsing.h"
#include "speech/AudioDecoder.h"

using namespace vocle::server;

namespace {

void parseRequest(uint8_t which, std::string_view input) {
    try {
        switch (which % 4) {
            case 0: {
                const TranscriptionJob job = parseTranscribeRequest(parseBodyObject(input));
                if (job.audio.empty()) __builtin_trap();  // accepted audio is never empty
                break;
            }
            case 1:
                parseSettingsPost(parseBodyObject(input));
                break;
            case 2:
                parseSupportMessage(parseBodyObject(input), 1000);
                break;
            case 3: {
                const vocle::Json body = parseBodyObject(input);
                parseEmailField(body);
                parseCodeField(body);
                break;
            }
        }
    } catch (const HttpError& e) {
        if (e.status != 400) __builtin_trap();
    }
}

void processText(std::string_view input) {
    // text | vocabulary | from=to pairs, split on the first two NUL bytes.
    const auto a = input.find('\0');
    const std::string text(input.substr(0, a));
    const std::string rest(a == std::string_view::npos ? std::string_view() : input.substr(a + 1));
    const auto b = rest.find('\0');
    const std::string vocabulary = rest.substr(0, b);
    std::vector<TextReplacement> replacements;
    if (b != std::string::npos) {
        const std::string pairs = rest.substr(b + 1);
        const auto eq = pairs.find('=');
        replacements.push_back({pairs.substr(0, eq), eq == std::string::npos ? "" : pairs.substr(eq + 1)});
    }
    const std::string corrected = applyVocabulary(text, parseVocabulary(vocabulary));
    for (Layout layout : {Layout::Raw, Layout::Clean, Layout::Message, Layout::Email, Layout::SimpleNote,
                          Layout::OrganizedNote}) {
        applyReplacements(text_formatter::format(layout, corrected), replacements);
    }
}

void decodeAudio(std::string_view input) {
    try {
        decodeToSpeechPcm(input, 2.0);
    } catch (const UnsupportedAudio&) {
    } catch (const CorruptAudio&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 7) {
        case 0:
        case 1:
        case 2:
        case 3:
            parseRequest(data[0], input);
            break;
        case 4: {
            if (auto credentials = parseAuthorization(input)) {
                if (credentials->accessToken.empty()) __builtin_trap();
            }
            break;
        }
        case 5:
            processText(input);
            break;
        case 6:
            decodeAudio(input);
            break;
    }
    return 0;
}
