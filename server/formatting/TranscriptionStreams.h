#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

#include "formatting/TranscriptionService.h"
#include "foundation/Clock.h"

namespace vocle::server {

// No such stream for this user, or it was discarded (404).
class StreamNotFound : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
// A chunk arrived out of order (409).
class StreamOutOfOrder : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
// The stream passed the longest recording the server accepts; it is discarded (413).
class StreamTooLong : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Dictations recognised while they are spoken: one stream per dictation, opened with the options of a
// /transcribe body, fed 16 kHz mono s16le chunks in sequence, ended with the same text steps as
// /transcribe. A stream is discarded when cancelled, when it has had no request for `idleSeconds`
// (wall time on the injected clock), or at once when the connection of its latest request closes.
class TranscriptionStreams {
  public:
    TranscriptionStreams(SpeechEngine& engine, TranscriptionService& transcription, const Clock& clock,
                         double maxAudioSeconds, double idleSeconds = 10);
    ~TranscriptionStreams();

    // `job.audio` is unused. Throws UnsupportedLanguage when the engine cannot take the mode's language.
    std::string open(const std::string& userId, const TranscriptionJob& job, uint64_t connection);

    struct Partial {
        std::string text;
        uint64_t seq = 0;
    };
    // `pcm` holds whole little-endian 16-bit samples. A repeated `seq` is not applied again.
    Partial append(const std::string& userId, const std::string& id, uint64_t seq, std::string_view pcm,
                   uint64_t connection);
    // The final text, as TranscriptionService::transcribe would give for the same audio; the stream is gone.
    std::string end(const std::string& userId, const std::string& id, uint64_t connection);
    // False when there was no such stream.
    bool cancel(const std::string& userId, const std::string& id);

    // The connection closed; streams whose latest request came on it are discarded.
    void connectionClosed(uint64_t connection);
    // Discards streams idle for longer than the deadline; cheap enough to call often.
    void expireIdle();
    size_t size() const;

  private:
    struct Stream;
    std::shared_ptr<Stream> take(const std::string& userId, const std::string& id, uint64_t connection);
    void discard(const std::string& id);

    SpeechEngine& engine_;
    TranscriptionService& transcription_;
    const Clock& clock_;
    size_t maxSamples_;
    double maxAudioSeconds_;
    double idleSeconds_;
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Stream>> streams_;
};

}  // namespace vocle::server
