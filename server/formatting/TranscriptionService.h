#pragma once

#include <optional>
#include <string>
#include <vector>

#include "formatting/ChatFormatter.h"
#include "formatting/TemplateCatalogue.h"
#include "formatting/TextReplacer.h"
#include "speech/SpeechEngine.h"

namespace vocle::server {

struct ModeSpec {
    std::string id;
    std::string name;
    std::string type = "raw";
    std::string prompt;
    std::string language = "en";
    std::optional<std::string> modeTypeId;
};

struct TranscriptionJob {
    std::string audio;  // WAV or AAC-in-MPEG-4 bytes
    ModeSpec mode;
    std::string vocabWords;
    std::vector<TextReplacement> replacements;
};

// Audio to final text: decode, recognise, vocabulary, the mode's formatting, then the replacements.
class TranscriptionService {
  public:
    TranscriptionService(SpeechEngine& engine, const TemplateCatalogue& templates, ChatFormatter* chat,
                         double maxAudioSeconds)
        : engine_(engine), templates_(templates), chat_(chat), maxAudioSeconds_(maxAudioSeconds) {}

    std::string transcribe(const TranscriptionJob& job);
    // The text steps alone, on a transcript the engine produced.
    std::string finish(const std::string& recognised, const TranscriptionJob& job);

  private:
    SpeechEngine& engine_;
    const TemplateCatalogue& templates_;
    ChatFormatter* chat_;
    double maxAudioSeconds_;
};

}  // namespace vocle::server
