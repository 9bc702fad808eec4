#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "speech/DecoderPool.h"
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

// Recognises one whole utterance per request, or a stream as it arrives. Decoders are not thread-safe,
// so `workers` of them are loaded and lent out, one request or one stream at a time.
class PocketsphinxEngine final : public SpeechEngine {
  public:
    PocketsphinxEngine(const PocketsphinxModel& model, int workers);

    std::string name() const override { return "pocketsphinx"; }
    std::string transcribe(const std::vector<int16_t>& pcm16k, const SpeechRequest& request) override;
    std::unique_ptr<SpeechStream> openStream(const SpeechRequest& request) override;

    DecoderPool& pool() { return *pool_; }

    // One decoder with the same configuration, for callers that run the engine without the pool.
    static std::string recognize(ps_decoder_s* decoder, const std::vector<int16_t>& pcm16k);
    static ps_decoder_s* createDecoder(const PocketsphinxModel& model);
    static void freeDecoder(ps_decoder_s* decoder);

  private:
    static void requireEnglish(const SpeechRequest& request);
    std::unique_ptr<DecoderPool> pool_;
};

}  // namespace vocle::server
