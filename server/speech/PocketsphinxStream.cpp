#include "speech/PocketsphinxStream.h"

#include <pocketsphinx.h>

#include <algorithm>

#include "speech/AudioDecoder.h"

namespace vocle::server {

namespace {
// Pauses are looked for at this step; the recogniser's own voice detector decides what a pause is.
constexpr size_t kStepSamples = kSpeechSampleRate / 10;
}  // namespace

PocketsphinxStream::PocketsphinxStream(DecoderPool& pool, double minSegmentSeconds)
    : pool_(pool), minSegmentSamples_(static_cast<size_t>(minSegmentSeconds * kSpeechSampleRate)) {}

void PocketsphinxStream::append(std::span<const int16_t> samples) {
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    if (!lease_) lease_ = pool_.tryAcquire();
    if (lease_) decodePending();
}

void PocketsphinxStream::decodePending() {
    ps_decoder_t* decoder = lease_.decoder();
    size_t offset = 0;
    while (offset < pending_.size()) {
        const size_t n = std::min(kStepSamples, pending_.size() - offset);
        if (!inUtterance_) {
            if (ps_start_utt(decoder) < 0) throw EngineError("pocketsphinx could not start an utterance");
            inUtterance_ = true;
            heardSpeech_ = false;
            utteranceSamples_ = 0;
            lease_.setUtteranceOpen(true);
        }
        if (ps_process_raw(decoder, pending_.data() + offset, n, FALSE, FALSE) < 0)
            throw EngineError("pocketsphinx could not process the audio");
        offset += n;
        utteranceSamples_ += n;
        if (ps_get_in_speech(decoder)) {
            heardSpeech_ = true;
        } else if (heardSpeech_ && utteranceSamples_ >= minSegmentSamples_) {
            closeUtterance();
        }
    }
    pending_.clear();
}

void PocketsphinxStream::closeUtterance() {
    ps_decoder_t* decoder = lease_.decoder();
    const int rc = ps_end_utt(decoder);
    inUtterance_ = false;
    lease_.setUtteranceOpen(false);
    if (rc < 0) throw EngineError("pocketsphinx could not finish the utterance");
    int32 score = 0;
    const char* hyp = ps_get_hyp(decoder, &score);
    if (hyp && *hyp) segments_.emplace_back(hyp);
}

std::string PocketsphinxStream::joined(const std::string& tail) const {
    std::string text;
    for (const auto& s : segments_) {
        if (!text.empty()) text += ' ';
        text += s;
    }
    if (!tail.empty()) {
        if (!text.empty()) text += ' ';
        text += tail;
    }
    return text;
}

std::string PocketsphinxStream::partial() {
    std::string tail;
    if (lease_ && inUtterance_) {
        int32 score = 0;
        const char* hyp = ps_get_hyp(lease_.decoder(), &score);
        if (hyp) tail = hyp;
    }
    return joined(tail);
}

std::string PocketsphinxStream::finish() {
    if (!lease_) lease_ = pool_.acquire();
    decodePending();
    if (inUtterance_) closeUtterance();
    lease_.release();
    return joined({});
}

}  // namespace vocle::server
