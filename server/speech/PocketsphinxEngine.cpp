#include "speech/PocketsphinxEngine.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

#include "foundation/Log.h"
#include "speech/PocketsphinxStream.h"

namespace vocle::server {

PocketsphinxModel PocketsphinxModel::inFolder(const std::filesystem::path& dir) {
    return {dir / "en-us", dir / "en-us.lm.bin", dir / "cmudict-en-us.dict"};
}

ps_decoder_s* PocketsphinxEngine::createDecoder(const PocketsphinxModel& model) {
    for (const auto& path : {model.hmm, model.languageModel, model.dictionary}) {
        if (!std::filesystem::exists(path)) {
            throw EngineError("The pocketsphinx model is missing " + path.string() +
                              " (install pocketsphinx-en-us or set model_dir)");
        }
    }
    err_set_logfp(nullptr);  // the library is chatty on stderr; our own log says what matters
    cmd_ln_t* config =
        cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", model.hmm.c_str(), "-lm", model.languageModel.c_str(),
                    "-dict", model.dictionary.c_str(), "-logfn", "/dev/null", nullptr);
    if (!config) throw EngineError("The pocketsphinx configuration was rejected");
    ps_decoder_t* decoder = ps_init(config);
    cmd_ln_free_r(config);
    if (!decoder)
        throw EngineError("The pocketsphinx decoder could not be created from " + model.hmm.string());
    return decoder;
}

void PocketsphinxEngine::freeDecoder(ps_decoder_s* decoder) {
    if (decoder) ps_free(decoder);
}

std::string PocketsphinxEngine::recognize(ps_decoder_s* decoder, const std::vector<int16_t>& pcm) {
    PocketsphinxStream::useConfiguredMean(decoder);
    if (ps_start_utt(decoder) < 0) throw EngineError("pocketsphinx could not start an utterance");
    if (!pcm.empty() && ps_process_raw(decoder, pcm.data(), pcm.size(), FALSE, TRUE) < 0) {
        ps_end_utt(decoder);
        throw EngineError("pocketsphinx could not process the audio");
    }
    if (ps_end_utt(decoder) < 0) throw EngineError("pocketsphinx could not finish the utterance");
    int32 score = 0;
    const char* hyp = ps_get_hyp(decoder, &score);
    return hyp ? std::string(hyp) : std::string();
}

PocketsphinxEngine::PocketsphinxEngine(const PocketsphinxModel& model, int workers) {
    std::vector<ps_decoder_s*> decoders;
    try {
        for (int i = 0; i < std::max(1, workers); ++i) decoders.push_back(createDecoder(model));
    } catch (...) {
        for (auto* d : decoders) freeDecoder(d);
        throw;
    }
    pool_ = std::make_unique<DecoderPool>(
        std::move(decoders), [](ps_decoder_s* d) { ps_end_utt(d); }, &PocketsphinxEngine::freeDecoder);
    log("vocle-server: pocketsphinx ready with ", pool_->size(), " decoder(s) from ",
        model.hmm.parent_path().string());
}

void PocketsphinxEngine::requireEnglish(const SpeechRequest& request) {
    if (!isEnglish(request.language)) {
        throw UnsupportedLanguage("The pocketsphinx engine only recognises English; language \"" +
                                  request.language + "\" is not available on this server");
    }
}

std::string PocketsphinxEngine::transcribe(const std::vector<int16_t>& pcm, const SpeechRequest& request) {
    requireEnglish(request);
    DecoderPool::Lease lease = pool_->acquire();
    return recognize(lease.decoder(), pcm);
}

std::unique_ptr<SpeechStream> PocketsphinxEngine::openStream(const SpeechRequest& request) {
    requireEnglish(request);
    return std::make_unique<PocketsphinxStream>(*pool_);
}

}  // namespace vocle::server
