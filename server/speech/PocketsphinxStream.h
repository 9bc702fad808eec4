#pragma once

#include <string>
#include <vector>

#include "speech/DecoderPool.h"
#include "speech/SpeechStream.h"

namespace vocle::server {

// Incremental pocketsphinx recognition. The decoder is borrowed from the pool when one is free; until
// then the audio waits here and is decoded as soon as one is had (at the latest by finish(), which
// waits). The closing passes of an utterance (flat-lexicon search, best path) cost time in proportion
// to its length, so at a pause after at least `minSegmentSeconds` of audio the utterance is closed
// and a new one begins: at the end only the last stretch of speech is left to close.
class PocketsphinxStream final : public SpeechStream {
  public:
    explicit PocketsphinxStream(DecoderPool& pool, double minSegmentSeconds = kDefaultMinSegmentSeconds);

    void append(std::span<const int16_t> samples) override;
    std::string partial() override;
    std::string finish() override;

    bool hasDecoder() const { return static_cast<bool>(lease_); }
    // Utterances already closed at pauses.
    size_t closedSegments() const { return segments_.size(); }

    static constexpr double kDefaultMinSegmentSeconds = 6.0;

  private:
    void decodePending();
    void closeUtterance();
    std::string joined(const std::string& tail) const;

    DecoderPool& pool_;
    size_t minSegmentSamples_;
    DecoderPool::Lease lease_;
    std::vector<int16_t> pending_;
    std::vector<std::string> segments_;
    bool inUtterance_ = false;
    bool heardSpeech_ = false;
    size_t utteranceSamples_ = 0;
};

}  // namespace vocle::server
