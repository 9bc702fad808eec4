#pragma once

#include <optional>
#include <string>

#include "net/CurlClient.h"

namespace vocle::server {

// Applies a mode's prompt with a language model; none means "use the deterministic layout".
class ChatFormatter {
  public:
    virtual ~ChatFormatter() = default;
    virtual std::optional<std::string> format(const std::string& prompt, const std::string& transcript) = 0;
};

struct ChatSettings {
    std::string baseUrl;  // "/v1/chat/completions" is appended
    std::string apiKey;
    std::string model;
};

// The transcript goes in as delimited data, never as instructions; the reply is accepted only when it
// still reads as the same text (see looksLikeFormattedTranscript).
class OpenAiChatFormatter final : public ChatFormatter {
  public:
    explicit OpenAiChatFormatter(ChatSettings settings, CurlClient client = CurlClient(60))
        : settings_(std::move(settings)), client_(client) {}
    std::optional<std::string> format(const std::string& prompt, const std::string& transcript) override;

  private:
    ChatSettings settings_;
    CurlClient client_;
};

// False for an empty reply, a chat-style answer ("Sure, here is..."), or one that shares too few words
// with the transcript or is far longer than it.
bool looksLikeFormattedTranscript(const std::string& output, const std::string& transcript);

}  // namespace vocle::server
