#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vocle::server {

struct SpeechRequest {
    std::string language;    // the code the app sends ("en", "en-GB", "de" ...)
    std::string prompt;      // the mode's prompt; engines that take a prompt use it as context
    std::string vocabulary;  // the user's terms, comma-separated
};

// The engine cannot handle the requested language (422).
class UnsupportedLanguage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The engine failed for reasons of its own (502 for upstreams, 500 otherwise).
class EngineError : public std::runtime_error {
  public:
    explicit EngineError(const std::string& message, bool upstream = false)
        : std::runtime_error(message), upstream(upstream) {}
    bool upstream;
};

class SpeechStream;

class SpeechEngine {
  public:
    virtual ~SpeechEngine() = default;
    virtual std::string name() const = 0;
    // 16 kHz mono samples to text; safe to call from several threads.
    virtual std::string transcribe(const std::vector<int16_t>& pcm16k, const SpeechRequest& request) = 0;
    // Recognition while the audio arrives. Engines that only take whole recordings keep the audio and
    // run transcribe() at the end, so every engine can serve a stream.
    virtual std::unique_ptr<SpeechStream> openStream(const SpeechRequest& request);
};

// "en" and its regional forms.
bool isEnglish(const std::string& languageCode);

}  // namespace vocle::server
