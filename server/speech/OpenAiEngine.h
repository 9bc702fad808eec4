#pragma once

#include <string>

#include "net/CurlClient.h"
#include "speech/SpeechEngine.h"

namespace vocle::server {

struct OpenAiSettings {
    std::string baseUrl;  // origin; "/v1/audio/transcriptions" is appended
    std::string apiKey;
    std::string model = "whisper-1";
};

// Any OpenAI-compatible transcription endpoint. The mode's prompt and the vocabulary become its prompt,
// which is how such models are steered towards spellings.
class OpenAiEngine final : public SpeechEngine {
  public:
    explicit OpenAiEngine(OpenAiSettings settings, CurlClient client = CurlClient())
        : settings_(std::move(settings)), client_(client) {}
    std::string name() const override { return "openai"; }
    std::string transcribe(const std::vector<int16_t>& pcm16k, const SpeechRequest& request) override;

    static std::string promptFor(const SpeechRequest& request);

  private:
    OpenAiSettings settings_;
    CurlClient client_;
};

}  // namespace vocle::server
