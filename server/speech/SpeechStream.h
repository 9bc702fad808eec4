#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "speech/SpeechEngine.h"

namespace vocle::server {

// One utterance recognised while it is being captured: 16 kHz mono samples arrive in pieces, a best
// guess can be asked for at any time, and finish() gives what SpeechEngine::transcribe would. Not
// thread-safe; its owner serialises the calls.
class SpeechStream {
  public:
    virtual ~SpeechStream() = default;
    virtual void append(std::span<const int16_t> samples) = 0;
    // The best text so far; empty while the engine cannot tell yet.
    virtual std::string partial() = 0;
    // Recognises the rest and returns the whole transcript; called once.
    virtual std::string finish() = 0;
};

// For engines that only take whole recordings: keeps the audio and runs the engine at the end.
class AccumulatingStream final : public SpeechStream {
  public:
    AccumulatingStream(SpeechEngine& engine, SpeechRequest request)
        : engine_(engine), request_(std::move(request)) {}
    void append(std::span<const int16_t> samples) override {
        pcm_.insert(pcm_.end(), samples.begin(), samples.end());
    }
    std::string partial() override { return {}; }
    std::string finish() override { return engine_.transcribe(pcm_, request_); }

  private:
    SpeechEngine& engine_;
    SpeechRequest request_;
    std::vector<int16_t> pcm_;
};

}  // namespace vocle::server
