#include "desktop/DictationRetry.h"

#include <filesystem>

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "foundation/Text.h"

namespace vocle {

DictationRetry::DictationRetry(Dependencies deps) : deps_(std::move(deps)), transcription_(deps_.backend) {
    answeredSubscription_ = deps_.backend.requestSucceeded.subscribe([this] { setBackendAnswered(true); });
    storeSubscription_ = deps_.store.dictations.subscribe([this](const auto&) { updateOffer(); });
}

DictationRetry::~DictationRetry() = default;

void DictationRetry::setBackendAnswered(bool answered) {
    backendAnswered_ = answered;
    updateOffer();
}

void DictationRetry::updateOffer() {
    offeredCount.setIfChanged(backendAnswered_ ? deps_.store.dictations.get().size() : 0);
}

std::optional<Uuid> DictationRetry::keepFailedDictation(const FailedDictation& d) {
    VOCLE_ASSERT_MAIN_QUEUE(deps_.mainQueue);
    backendAnswered_ = false;
    PendingDictation entry;
    entry.timestamp = d.recordedAt;
    entry.mode = d.mode;
    entry.vocabulary = d.vocabWords;
    entry.replacements = d.replacements;
    entry.error = d.error;
    entry.attempts = 1;
    auto kept = deps_.store.keep(d.audioFile, std::move(entry));
    updateOffer();
    if (!kept) return std::nullopt;
    return kept->id;
}

void DictationRetry::retryFailedDictation(const Uuid& id) {
    retry(id, [this, id, alive = owner_.weak()](Result<std::string> result) {
        if (result.ok() || alive.expired() || !deps_.alerts || !deps_.store.find(id)) return;
        AlertRequest alert{
            kRetryFailedTitle,
            result.error().description + "\n\nThe recording is kept: retry it later from History.",
            AlertStyle::warning,
            {"OK", "Retry"}};
        deps_.alerts->show(alert, [this, id, alive](int response) {
            if (response == 1 && !alive.expired()) retryFailedDictation(id);
        });
    });
}

void DictationRetry::retry(const Uuid& id, Completion completion) {
    VOCLE_ASSERT_MAIN_QUEUE(deps_.mainQueue);
    auto fail = [&](const std::string& text) {
        if (completion)
            deps_.mainQueue.post(owner_.guard([completion, text] {
                completion(Error{"DictationRetry", -1, text});
            }));
    };
    if (isRetrying(id)) return fail("This dictation is already being transcribed");
    auto entry = deps_.store.find(id);
    if (!entry) return fail("No failed dictation " + id.string());
    std::optional<Mode> mode = entry->mode;
    if (!mode && deps_.currentMode) mode = deps_.currentMode();
    if (!mode) return fail(kNoModeError);
    std::string readError;
    auto audio = readFile(entry->audioFile, &readError);
    if (!audio) {
        // Another process (vocle-cli) may have transcribed or dropped it meanwhile.
        deps_.store.reload();
        return fail("Failed to read audio file: " + readError);
    }

    log("Retrying failed dictation ", id.string(), " (", audio->size(), " bytes)");
    auto subscription = transcription_.transcribeAudio(
        std::move(*audio), *mode, entry->vocabulary, entry->replacements,
        [this, entry = *entry, completion](Result<std::string, BackendError> result) {
            finish(entry, std::move(result), completion);
        });
    inFlight_.emplace(id, std::move(subscription));
    retryingChanged.emit(id);
}

void DictationRetry::finish(const PendingDictation& entry, Result<std::string, BackendError> result,
                            const Completion& done) {
    const bool wasInFlight = inFlight_.erase(entry.id) != 0;
    if (result.ok()) {
        const std::string& text = result.value();
        log("Transcribed failed dictation ", entry.id.string());
        // History first: if the removal is cut short the audio comes back as recovered, never the reverse.
        deps_.history.addTranscription(text, entry.timestamp);
        deps_.store.remove(entry.id);
        if (deps_.copyToClipboard && !trimWhitespace(text).empty()) deps_.copyToClipboard(text);
        setBackendAnswered(true);
    } else {
        log("Retry of failed dictation ", entry.id.string(), " failed: ", result.error().errorDescription());
        backendAnswered_ = false;
        deps_.store.recordFailure(entry.id, result.error().errorDescription());
        updateOffer();
    }
    if (wasInFlight) retryingChanged.emit(entry.id);
    if (!done) return;
    if (result.ok())
        done(std::move(result.value()));
    else
        done(result.error().toError());
}

void DictationRetry::retryAll(std::function<void(size_t, size_t)> done) {
    std::vector<Uuid> queue;
    for (const auto& e : deps_.store.dictations.get()) queue.push_back(e.id);
    retryNext(std::move(queue), 0, 0, std::move(done));
}

void DictationRetry::retryNext(std::vector<Uuid> queue, size_t transcribed, size_t failed,
                               std::function<void(size_t, size_t)> done) {
    if (queue.empty()) {
        if (done) done(transcribed, failed);
        return;
    }
    const Uuid id = queue.front();
    queue.erase(queue.begin());
    retry(id, [this, queue = std::move(queue), transcribed, failed,
               done = std::move(done)](Result<std::string> result) mutable {
        if (result.ok())
            ++transcribed;
        else
            ++failed;
        retryNext(std::move(queue), transcribed, failed, std::move(done));
    });
}

bool DictationRetry::drop(const Uuid& id) {
    if (isRetrying(id)) return false;
    const bool removed = deps_.store.remove(id);
    if (removed) log("Deleted failed dictation ", id.string());
    return removed;
}

}  // namespace vocle
