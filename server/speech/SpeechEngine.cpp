#include "speech/SpeechEngine.h"

#include "speech/SpeechStream.h"

namespace vocle::server {

std::unique_ptr<SpeechStream> SpeechEngine::openStream(const SpeechRequest& request) {
    return std::make_unique<AccumulatingStream>(*this, request);
}

bool isEnglish(const std::string& code) {
    if (code.empty()) return true;
    std::string lower;
    for (char ch : code) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(ch))));
    return lower == "en" || lower == "english" || lower.rfind("en-", 0) == 0 || lower.rfind("en_", 0) == 0 ||
           lower.rfind("english (", 0) == 0;
}

}  // namespace vocle::server
