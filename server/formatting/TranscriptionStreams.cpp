#include "formatting/TranscriptionStreams.h"

#include <atomic>
#include <vector>

#include "auth/Crypto.h"
#include "speech/AudioDecoder.h"
#include "speech/SpeechStream.h"

namespace vocle::server {

struct TranscriptionStreams::Stream {
    std::mutex work;  // one request of a stream at a time
    std::string userId;
    TranscriptionJob job;
    std::unique_ptr<SpeechStream> speech;
    uint64_t nextSeq = 0;
    std::string partial;
    size_t samples = 0;
    std::atomic<bool> discarded{false};
    // Guarded by the registry's mutex.
    double lastRequest = 0;
    uint64_t connection = 0;
    int inFlight = 0;
};

TranscriptionStreams::TranscriptionStreams(SpeechEngine& engine, TranscriptionService& transcription,
                                           const Clock& clock, double maxAudioSeconds, double idleSeconds)
    : engine_(engine),
      transcription_(transcription),
      clock_(clock),
      maxSamples_(static_cast<size_t>(maxAudioSeconds * kSpeechSampleRate)),
      maxAudioSeconds_(maxAudioSeconds),
      idleSeconds_(idleSeconds) {}

TranscriptionStreams::~TranscriptionStreams() = default;

std::string TranscriptionStreams::open(const std::string& userId, const TranscriptionJob& job,
                                       uint64_t connection) {
    expireIdle();
    auto stream = std::make_shared<Stream>();
    stream->userId = userId;
    stream->job = job;
    stream->job.audio.clear();
    stream->speech = engine_.openStream({job.mode.language, job.mode.prompt, job.vocabWords});
    stream->lastRequest = clock_.now();
    stream->connection = connection;
    std::string id = randomToken();
    std::lock_guard lock(mutex_);
    streams_.emplace(id, std::move(stream));
    return id;
}

std::shared_ptr<TranscriptionStreams::Stream> TranscriptionStreams::take(const std::string& userId,
                                                                         const std::string& id,
                                                                         uint64_t connection) {
    std::lock_guard lock(mutex_);
    auto it = streams_.find(id);
    // Another user's stream is answered like a missing one, so ids cannot be probed.
    if (it == streams_.end() || it->second->userId != userId)
        throw StreamNotFound("No such stream; it ended, was cancelled or expired");
    Stream& s = *it->second;
    s.lastRequest = clock_.now();
    s.connection = connection;
    ++s.inFlight;
    return it->second;
}

namespace {
// Ends a request's hold on its stream: the idle deadline counts from the end of the latest request.
struct Hold {
    std::mutex& registry;
    std::shared_ptr<void> keep;
    int& inFlight;
    double& lastRequest;
    const Clock& clock;
    ~Hold() {
        std::lock_guard lock(registry);
        --inFlight;
        lastRequest = clock.now();
    }
};
}  // namespace

TranscriptionStreams::Partial TranscriptionStreams::append(const std::string& userId, const std::string& id,
                                                           uint64_t seq, std::string_view pcm,
                                                           uint64_t connection) {
    auto s = take(userId, id, connection);
    Hold hold{mutex_, s, s->inFlight, s->lastRequest, clock_};
    std::lock_guard work(s->work);
    if (s->discarded) throw StreamNotFound("No such stream; it ended, was cancelled or expired");
    if (seq < s->nextSeq) return {s->partial, seq};  // a retry of a chunk already applied
    if (seq > s->nextSeq) {
        throw StreamOutOfOrder("Audio chunk " + std::to_string(seq) + " arrived before chunk " +
                               std::to_string(s->nextSeq));
    }
    const size_t count = pcm.size() / 2;
    if (s->samples + count > maxSamples_) {
        discard(id);
        throw StreamTooLong("The recording is longer than the server accepts (" +
                            std::to_string(static_cast<int>(maxAudioSeconds_)) + " s)");
    }
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        const auto lo = static_cast<uint8_t>(pcm[2 * i]);
        const auto hi = static_cast<uint8_t>(pcm[2 * i + 1]);
        samples[i] = static_cast<int16_t>(static_cast<uint16_t>(lo | (hi << 8)));
    }
    try {
        s->speech->append(samples);
        s->partial = s->speech->partial();
    } catch (...) {
        discard(id);
        throw;
    }
    s->samples += count;
    s->nextSeq = seq + 1;
    return {s->partial, seq};
}

std::string TranscriptionStreams::end(const std::string& userId, const std::string& id, uint64_t connection) {
    auto s = take(userId, id, connection);
    Hold hold{mutex_, s, s->inFlight, s->lastRequest, clock_};
    std::lock_guard work(s->work);
    if (s->discarded) throw StreamNotFound("No such stream; it ended, was cancelled or expired");
    discard(id);
    return transcription_.finish(s->speech->finish(), s->job);
}

bool TranscriptionStreams::cancel(const std::string& userId, const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = streams_.find(id);
    if (it == streams_.end() || it->second->userId != userId) return false;
    it->second->discarded = true;
    streams_.erase(it);
    return true;
}

void TranscriptionStreams::discard(const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = streams_.find(id);
    if (it == streams_.end()) return;
    it->second->discarded = true;
    streams_.erase(it);
}

void TranscriptionStreams::connectionClosed(uint64_t connection) {
    std::vector<std::shared_ptr<Stream>> gone;  // freed after the lock: their decoders go back to the pool
    std::lock_guard lock(mutex_);
    for (auto it = streams_.begin(); it != streams_.end();) {
        if (it->second->connection == connection) {
            it->second->discarded = true;
            gone.push_back(std::move(it->second));
            it = streams_.erase(it);
        } else {
            ++it;
        }
    }
}

void TranscriptionStreams::expireIdle() {
    std::vector<std::shared_ptr<Stream>> gone;
    const double now = clock_.now();
    std::lock_guard lock(mutex_);
    for (auto it = streams_.begin(); it != streams_.end();) {
        Stream& s = *it->second;
        if (s.inFlight == 0 && now - s.lastRequest > idleSeconds_) {
            s.discarded = true;
            gone.push_back(std::move(it->second));
            it = streams_.erase(it);
        } else {
            ++it;
        }
    }
}

size_t TranscriptionStreams::size() const {
    std::lock_guard lock(mutex_);
    return streams_.size();
}

}  // namespace vocle::server
