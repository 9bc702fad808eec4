#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/StreamingClient.h"
#include "core/LiveTranscription.h"
#include "core/RecordingProcessor.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Timer.h"

namespace vocle {

// One dictation streamed while it is recorded: opens the stream at once, posts what the capture thread
// buffered about every 250 ms with at most one request in flight, hands partials on, and at the finish
// posts the rest and asks for the final answer. Any failure (no streaming route, a network error, a 5xx,
// a request that takes too long) turns the dictation over to `fallback` with the finished file, so no
// word is lost; one log line says why. Main queue only.
class StreamingUploader final : public LiveAudioStream {
  public:
    struct Options {
        Mode mode;
        std::string vocabWords;
        std::vector<Replacement> replacements;
        std::function<void(std::string)> onPartial;
        // Runs when the stream has nothing left to do (answered, fallen back or cancelled).
        std::function<void()> onSettled;
    };

    StreamingUploader(MainQueue& mainQueue, BackendService& backend, RecordingProcessor& fallback,
                      Options options);
    ~StreamingUploader() override;

    // Sends the open request; the stream then runs on its own.
    void start();

    std::shared_ptr<PcmBuffer> buffer() const override { return buffer_; }
    void finish(const std::filesystem::path& audioFile,
                std::function<void(Result<std::string>)> completion) override;
    void cancel() override;

    bool hasFailed() const { return state_ == State::failed; }
    const std::string& streamId() const { return streamId_; }

    static constexpr Seconds kChunkInterval{0.25};
    // Longest wait for the open request or an audio chunk.
    static constexpr Seconds kRequestTimeout{5.0};
    // Longest wait for the final answer once the audio is all sent.
    static constexpr Seconds kEndTimeout{15.0};

  private:
    enum class State { opening, streaming, ending, done, failed, cancelled };

    void onOpened(Result<StreamOpened, BackendError> result);
    void sendPending();
    void sendChunk(std::string pcm);
    void onChunkAnswered(Result<StreamPartial, BackendError> result);
    void continueFinish();
    void fail(const std::string& reason, bool serverKnowsStream);
    void fallBack();
    void discardAtServer();
    void settleIfIdle();
    void armTimeout(Seconds limit, const char* what);
    void logLag() const;

    MainQueue& mainQueue_;
    StreamingClient client_;
    RecordingProcessor& fallback_;
    Options options_;
    std::shared_ptr<PcmBuffer> buffer_ = std::make_shared<PcmBuffer>();

    State state_ = State::opening;
    std::string streamId_;
    int64_t nextSeq_ = 0;
    std::string lastPartial_;
    Subscription inFlight_;
    bool requestInFlight_ = false;
    Subscription discardRequest_;
    bool discarding_ = false;
    bool handedOver_ = false;  // the transcript delivered, the file handed to the fallback, or cancelled
    bool settled_ = false;
    std::optional<std::filesystem::path> audioFile_;
    std::function<void(Result<std::string>)> completion_;
    // How far each partial trails the newest audio it covers: from taking the chunk to its answer.
    MonotonicTime chunkTakenAt_{};
    double lagSum_ = 0;
    double lagMax_ = 0;
    int lagCount_ = 0;
    Timer chunkTimer_;
    Timer timeout_;
    OwnerToken owner_;
};

}  // namespace vocle
