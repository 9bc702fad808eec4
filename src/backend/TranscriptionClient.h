#pragma once

#include <string>
#include <vector>

#include "backend/BackendService.h"
#include "core/Mode.h"
#include "core/Replacement.h"

namespace vocle {

// POST "/transcribe": one finished recording in, its transcript out.
class TranscriptionClient {
  public:
    explicit TranscriptionClient(BackendService& backend) : backend_(backend) {}

    // The audio is consumed: the Base64 body is built once and the raw bytes released.
    [[nodiscard]] Subscription transcribeAudio(std::string audioData, const Mode& mode,
                                               const std::string& vocabWords,
                                               const std::vector<Replacement>& textReplacements,
                                               BackendService::Completion<std::string> completion);
    // The JSON body transcribeAudio sends (Base64 written straight into the body buffer).
    static std::string transcriptionBody(const std::string& audioData, const Mode& mode,
                                         const std::string& vocabWords,
                                         const std::vector<Replacement>& textReplacements);
    // The body without its audio: mode, vocabulary and replacements.
    static Json transcriptionOptions(const Mode& mode, const std::string& vocabWords,
                                     const std::vector<Replacement>& textReplacements);
    // The "mode" member of that body.
    static Json transcriptionModeObject(const Mode& mode);

  private:
    BackendService& backend_;
};

}  // namespace vocle
