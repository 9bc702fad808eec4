#include "backend/StreamingUploader.h"

#include "backend/DecimalText.h"
#include "foundation/Log.h"

#include <algorithm>

namespace vocle {

namespace {
std::string describe(const BackendError& error) {
    switch (error.kind) {
        case BackendError::Kind::serverError:
            return "HTTP " + std::to_string(error.status) + ": " + error.message;
        case BackendError::Kind::networkError:
            return "network error: " + error.underlying;
        case BackendError::Kind::decodingError:
            return "unreadable answer: " + error.underlying;
        default:
            return error.errorDescription();
    }
}
// A stream the server never made, or has already forgotten, needs no DELETE.
bool serverHoldsStream(const BackendError& error) {
    return !(error.kind == BackendError::Kind::serverError && error.status == 404);
}
}  // namespace

StreamingUploader::StreamingUploader(MainQueue& mainQueue, BackendService& backend,
                                     RecordingProcessor& fallback, Options options)
    : mainQueue_(mainQueue), client_(backend), fallback_(fallback), options_(std::move(options)) {}

StreamingUploader::~StreamingUploader() = default;

void StreamingUploader::start() {
    log("Streaming transcription: opening a stream for mode ", options_.mode.name);
    requestInFlight_ = true;
    inFlight_ =
        client_.open(options_.mode, options_.vocabWords, options_.replacements,
                     owner_.guard([this](Result<StreamOpened, BackendError> r) { onOpened(std::move(r)); }));
    armTimeout(kRequestTimeout, "to the open request");
}

void StreamingUploader::armTimeout(Seconds limit, const char* what) {
    timeout_.start(mainQueue_, limit, owner_.guard([this, limit, what] {
        fail(std::string("no answer ") + what + " within " + decimalText(limit.count()) + " s", true);
    }));
}

void StreamingUploader::onOpened(Result<StreamOpened, BackendError> result) {
    requestInFlight_ = false;
    timeout_.cancel();
    if (state_ != State::opening) return;
    if (!result.ok()) {
        const bool noRoute =
            result.error().kind == BackendError::Kind::serverError && result.error().status == 404;
        return fail(
            noRoute ? "the server has no streaming route" : "opening the stream: " + describe(result.error()),
            false);
    }
    streamId_ = result.value().streamId;
    state_ = State::streaming;
    if (audioFile_) {
        state_ = State::ending;
        return continueFinish();
    }
    chunkTimer_.startRepeating(mainQueue_, kChunkInterval, owner_.guard([this] { sendPending(); }));
}

void StreamingUploader::sendPending() {
    if (state_ != State::streaming || requestInFlight_) return;
    std::string pcm = buffer_->take();
    if (!pcm.empty()) sendChunk(std::move(pcm));
}

void StreamingUploader::sendChunk(std::string pcm) {
    requestInFlight_ = true;
    chunkTakenAt_ = mainQueue_.clock().monotonicNow();
    inFlight_ = client_.sendAudio(
        streamId_, nextSeq_, std::move(pcm),
        owner_.guard([this](Result<StreamPartial, BackendError> r) { onChunkAnswered(std::move(r)); }));
    armTimeout(kRequestTimeout, "to an audio chunk");
}

void StreamingUploader::onChunkAnswered(Result<StreamPartial, BackendError> result) {
    requestInFlight_ = false;
    timeout_.cancel();
    if (state_ != State::streaming && state_ != State::ending) return;
    if (!result.ok())
        return fail("audio chunk " + std::to_string(nextSeq_) + ": " + describe(result.error()),
                    serverHoldsStream(result.error()));
    ++nextSeq_;
    const double lag = (mainQueue_.clock().monotonicNow() - chunkTakenAt_).count();
    lagSum_ += lag;
    lagMax_ = std::max(lagMax_, lag);
    ++lagCount_;
    if (!result.value().partial.empty() && result.value().partial != lastPartial_) {
        if (lastPartial_.empty()) log("Streaming transcription: first words heard after chunk ", nextSeq_ - 1);
        lastPartial_ = result.value().partial;
        if (options_.onPartial) options_.onPartial(lastPartial_);
    }
    if (state_ == State::ending) continueFinish();
}

void StreamingUploader::finish(const std::filesystem::path& audioFile,
                               std::function<void(Result<std::string>)> completion) {
    audioFile_ = audioFile;
    completion_ = std::move(completion);
    chunkTimer_.cancel();
    // The file is complete, so the capture thread has appended its last block.
    buffer_->close(false);
    switch (state_) {
        case State::opening:
            return;  // continues once the stream is open (or has failed)
        case State::streaming:
            state_ = State::ending;
            if (!requestInFlight_) continueFinish();
            return;
        case State::ending:
            return;
        case State::failed:
        case State::done:
        case State::cancelled:
            return fallBack();
    }
}

void StreamingUploader::continueFinish() {
    std::string rest = buffer_->take();
    if (!rest.empty()) return sendChunk(std::move(rest));
    requestInFlight_ = true;
    inFlight_ = client_.end(streamId_, owner_.guard([this](Result<TranscribeResponse, BackendError> result) {
        requestInFlight_ = false;
        timeout_.cancel();
        if (state_ != State::ending) return;
        if (!result.ok())
            return fail("final transcript: " + describe(result.error()), serverHoldsStream(result.error()));
        state_ = State::done;
        logLag();
        log("TIMESTAMP: ", formatTimestamp(mainQueue_.clock().now()), " - streamed transcript received, ",
            result.value().transcript.size(), " bytes");
        auto completion = std::exchange(completion_, nullptr);
        handedOver_ = true;
        if (completion) completion(std::move(result.value().transcript));
        settleIfIdle();
    }));
    armTimeout(kEndTimeout, "to the end of the stream");
}

void StreamingUploader::logLag() const {
    if (lagCount_ == 0) return;
    log("Streaming transcription: ", lagCount_, " chunks, partials ", decimalText(lagSum_ / lagCount_),
        " s behind the audio on average, ", decimalText(lagMax_), " s at most");
}

void StreamingUploader::fail(const std::string& reason, bool serverKnowsStream) {
    if (state_ == State::failed || state_ == State::done || state_ == State::cancelled) return;
    log("⚠️ Streaming transcription failed (", reason, "); the recording will be sent whole");
    state_ = State::failed;
    chunkTimer_.cancel();
    timeout_.cancel();
    inFlight_ = Subscription();
    requestInFlight_ = false;
    buffer_->close(true);
    if (serverKnowsStream && !streamId_.empty()) discardAtServer();
    if (audioFile_) fallBack();
}

void StreamingUploader::fallBack() {
    auto completion = std::exchange(completion_, nullptr);
    handedOver_ = true;
    if (completion && audioFile_)
        fallback_.processRecording(*audioFile_, options_.mode, options_.vocabWords, options_.replacements,
                                   std::move(completion));
    settleIfIdle();
}

void StreamingUploader::cancel() {
    if (state_ == State::done || state_ == State::cancelled || handedOver_) return;
    log("Streaming transcription cancelled");
    const bool opened = !streamId_.empty() && state_ != State::failed;
    state_ = State::cancelled;
    chunkTimer_.cancel();
    timeout_.cancel();
    inFlight_ = Subscription();  // an open still on its way is aborted with its connection
    requestInFlight_ = false;
    buffer_->close(true);
    if (opened) discardAtServer();
    handedOver_ = true;
    settleIfIdle();
}

void StreamingUploader::discardAtServer() {
    discarding_ = true;
    discardRequest_ = client_.discard(streamId_, owner_.guard([this](Result<NoContent, BackendError> result) {
        discarding_ = false;
        if (!result.ok())
            log("Streaming transcription: the server did not discard the stream: ", describe(result.error()));
        settleIfIdle();
    }));
}

void StreamingUploader::settleIfIdle() {
    if (!handedOver_ || discarding_ || settled_) return;
    settled_ = true;
    if (options_.onSettled) options_.onSettled();
}

}  // namespace vocle
