#pragma once

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <vector>

#include "speech/SpeechEngine.h"

struct ps_decoder_s;

namespace vocle::server {

// The en-us model folder layout of Debian's pocketsphinx-en-us: en-us/, en-us.lm.bin, cmudict-en-us.dict.
struct PocketsphinxModel {
    std::filesystem::path hmm;
    std::filesystem::path languageModel;
    std::filesystem::path dictionary;
    static PocketsphinxModel inFolder(const std::filesystem::path& modelDir);
};

// Recognises one whole utterance with a fresh cepstral mean, so each result depends on its audio alone.
// Decoders are not thread-safe, so `workers` of them are loaded and lent out one request at a time.
class PocketsphinxEngine final : public SpeechEngine {
  public:
    PocketsphinxEngine(const PocketsphinxModel& model, int workers);
    ~PocketsphinxEngine() override;

    std::string name() const override { return "pocketsphinx"; }
    std::string transcribe(const std::vector<int16_t>& pcm16k, const SpeechRequest& request) override;

    // One decoder with the same configuration, for callers that run the engine without the pool.
    static std::string recognize(ps_decoder_s* decoder, const std::vector<int16_t>& pcm16k);
    static ps_decoder_s* createDecoder(const PocketsphinxModel& model);
    static void freeDecoder(ps_decoder_s* decoder);

  private:
    std::mutex mutex_;
    std::condition_variable available_;
    std::vector<ps_decoder_s*> idle_;
    std::vector<ps_decoder_s*> all_;
};

}  // namespace vocle::server
