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
// A whole recording is normalised with the cepstral mean of all its speech; a stream cannot know that
// mean in advance, so it starts from the decoder's prior, and once `kCalibrationSeconds` have arrived it
// takes their own mean and decodes them again; from there the mean follows the running average. A
// dictation that ends sooner is decoded whole at the end, exactly like an upload.
class PocketsphinxStream final : public SpeechStream {
  public:
    explicit PocketsphinxStream(DecoderPool& pool, double minSegmentSeconds = kDefaultMinSegmentSeconds);
    ~PocketsphinxStream() override;

    void append(std::span<const int16_t> samples) override;
    std::string partial() override;
    std::string finish() override;

    static constexpr double kDefaultMinSegmentSeconds = 6.0;
    static constexpr double kCalibrationSeconds = 3.0;
    // A pause: this many 0.1 s steps 20 dB below the speech level.
    static constexpr int kQuietStepsForPause = 2;
    static constexpr double kQuietRatio = 0.01;

    // Back to the whole-utterance mean the model asks for (streaming switches the decoder to a live one).
    static void useConfiguredMean(ps_decoder_s* decoder);

  private:
    void decodePending();
    void feed(const std::vector<int16_t>& samples);
    void calibrate();
    void giveBackDecoder();
    bool quietStep(const int16_t* samples, size_t count);
    void closeUtterance();
    std::string joined(const std::string& tail) const;

    DecoderPool& pool_;
    size_t minSegmentSamples_;
    DecoderPool::Lease lease_;
    std::vector<int16_t> pending_;
    std::vector<std::string> segments_;
    std::vector<int16_t> warmup_;  // the stream's audio until calibrated
    bool started_ = false;
    bool calibrated_ = false;
    bool refeeding_ = false;
    double speechLevel_ = 0;  // mean square of the loud steps
    int quietSteps_ = 0;
    bool inUtterance_ = false;
    bool heardSpeech_ = false;
    size_t utteranceSamples_ = 0;
};

}  // namespace vocle::server
