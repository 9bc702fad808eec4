#include "speech/PocketsphinxStream.h"

#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/feat.h>

#include <algorithm>

#include "speech/AudioDecoder.h"
#include "speech/PocketsphinxEngine.h"

namespace vocle::server {

namespace {
// Pauses are looked for at this step; the recogniser's own voice detector decides what a pause is.
constexpr size_t kStepSamples = kSpeechSampleRate / 10;

cmn_t* meanOf(ps_decoder_t* decoder) {
    return ps_get_feat(decoder)->cmn_struct;
}

// Forget what was accumulated so far; the current mean stays the prior.
void restartAverage(ps_decoder_t* decoder) {
    cmn_t* cmn = meanOf(decoder);
    for (int32 i = 0; i < cmn->veclen; ++i) cmn->sum[i] = 0;
    cmn->nframe = 0;
}

// The mean becomes the average of the speech seen since the last restart.
void takeAverage(ps_decoder_t* decoder) {
    cmn_t* cmn = meanOf(decoder);
    if (cmn->nframe > 0) cmn_live_update(cmn);
}
}  // namespace

void PocketsphinxStream::useConfiguredMean(ps_decoder_s* decoder) {
    const char* type = cmd_ln_str_r(ps_get_config(decoder), "-cmn");
    ps_get_feat(decoder)->cmn = type ? cmn_type_from_str(type) : CMN_BATCH;
}

PocketsphinxStream::~PocketsphinxStream() {
    giveBackDecoder();
}

void PocketsphinxStream::giveBackDecoder() {
    if (lease_) useConfiguredMean(lease_.decoder());
    lease_.release();
}

PocketsphinxStream::PocketsphinxStream(DecoderPool& pool, double minSegmentSeconds)
    : pool_(pool), minSegmentSamples_(static_cast<size_t>(minSegmentSeconds * kSpeechSampleRate)) {}

void PocketsphinxStream::append(std::span<const int16_t> samples) {
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    if (!lease_) lease_ = pool_.tryAcquire();
    if (lease_) decodePending();
}

void PocketsphinxStream::decodePending() {
    std::vector<int16_t> pending;
    pending.swap(pending_);
    const size_t calibration = static_cast<size_t>(kCalibrationSeconds * kSpeechSampleRate);
    if (!calibrated_ && warmup_.size() + pending.size() >= calibration) {
        // Up to the calibration point only, so that a long backlog is not decoded twice.
        const auto split = pending.begin() + static_cast<std::ptrdiff_t>(calibration - warmup_.size());
        feed(std::vector<int16_t>(pending.begin(), split));
        pending.erase(pending.begin(), split);
        calibrate();
    }
    feed(pending);
}

void PocketsphinxStream::feed(const std::vector<int16_t>& samples) {
    ps_decoder_t* decoder = lease_.decoder();
    if (!calibrated_) warmup_.insert(warmup_.end(), samples.begin(), samples.end());
    size_t offset = 0;
    while (offset < samples.size()) {
        const size_t n = std::min(kStepSamples, samples.size() - offset);
        if (!inUtterance_) {
            if (!started_) restartAverage(decoder);
            started_ = true;
            if (ps_start_utt(decoder) < 0) throw EngineError("pocketsphinx could not start an utterance");
            inUtterance_ = true;
            heardSpeech_ = false;
            utteranceSamples_ = 0;
            lease_.setUtteranceOpen(true);
        }
        if (ps_process_raw(decoder, samples.data() + offset, n, FALSE, FALSE) < 0)
            throw EngineError("pocketsphinx could not process the audio");
        offset += n;
        utteranceSamples_ += n;
        if (calibrated_ && !refeeding_) takeAverage(decoder);
        const bool quiet = quietStep(samples.data() + offset - n, n);
        if (ps_get_in_speech(decoder)) heardSpeech_ = true;
        // The recogniser's detector wants half a second of silence; speech read aloud seldom leaves that
        // much, so a short gap well below the speech level also ends a long enough utterance.
        const bool pause = !ps_get_in_speech(decoder) || quietSteps_ >= kQuietStepsForPause;
        if (heardSpeech_ && pause && quiet && utteranceSamples_ >= minSegmentSamples_) closeUtterance();
    }
}

bool PocketsphinxStream::quietStep(const int16_t* samples, size_t count) {
    double energy = 0;
    for (size_t i = 0; i < count; ++i) energy += static_cast<double>(samples[i]) * samples[i];
    energy /= static_cast<double>(std::max<size_t>(1, count));
    // The speech level follows the loud steps and slowly forgets them.
    speechLevel_ = std::max(energy, speechLevel_ * 0.995);
    const bool quiet = energy < speechLevel_ * kQuietRatio;
    quietSteps_ = quiet ? quietSteps_ + 1 : 0;
    return quiet;
}

// The first stretch was decoded with a borrowed mean: decode it again with its own.
void PocketsphinxStream::calibrate() {
    ps_decoder_t* decoder = lease_.decoder();
    cmn_t* cmn = meanOf(decoder);
    if (cmn->nframe == 0) return;  // no speech yet: nothing to average
    takeAverage(decoder);
    // The same frames pass again; they must count once in the average.
    const std::vector<mfcc_t> sum(cmn->sum, cmn->sum + cmn->veclen);
    const int32 frames = cmn->nframe;
    if (inUtterance_) {
        ps_end_utt(decoder);
        inUtterance_ = false;
        lease_.setUtteranceOpen(false);
    }
    segments_.clear();
    calibrated_ = true;
    refeeding_ = true;
    std::vector<int16_t> warmup;
    warmup.swap(warmup_);
    struct Done {
        bool& flag;
        ~Done() { flag = false; }
    } done{refeeding_};
    feed(warmup);
    std::copy(sum.begin(), sum.end(), cmn->sum);
    cmn->nframe = frames;
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
    if (!calibrated_) {
        // A dictation shorter than the calibration stretch is decoded whole, exactly as an upload would
        // be: same mean, same words, for about the cost of a calibration.
        if (inUtterance_) {
            ps_end_utt(lease_.decoder());
            inUtterance_ = false;
            lease_.setUtteranceOpen(false);
        }
        std::string text = PocketsphinxEngine::recognize(lease_.decoder(), warmup_);
        giveBackDecoder();
        return text;
    }
    if (inUtterance_) closeUtterance();
    giveBackDecoder();
    return joined({});
}

}  // namespace vocle::server
