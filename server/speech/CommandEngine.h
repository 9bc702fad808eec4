#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "speech/SpeechEngine.h"

namespace vocle::server {

// Runs an operator-supplied program with the path of a 16 kHz mono WAV as its last argument and takes
// what it prints on standard output as the transcript. No shell is involved; the command line is split
// on blanks (double quotes group). The language, prompt and vocabulary travel in VOCLE_LANGUAGE,
// VOCLE_PROMPT and VOCLE_VOCABULARY.
class CommandEngine final : public SpeechEngine {
  public:
    CommandEngine(std::string commandLine, std::filesystem::path scratchDir, double timeoutSeconds);

    std::string name() const override { return "command"; }
    std::string transcribe(const std::vector<int16_t>& pcm16k, const SpeechRequest& request) override;

    static std::vector<std::string> splitCommandLine(const std::string& commandLine);

  private:
    std::vector<std::string> argv_;
    std::filesystem::path scratchDir_;
    double timeoutSeconds_;
};

}  // namespace vocle::server
