#include "backend/AudioFileProcessor.h"

#include "backend/AudioFormatConverter.h"
#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/Uuid.h"

namespace vocle {

namespace {
// Characters as the user counts them: UTF-8 sequences, not bytes.
size_t characterCount(const std::string& text) {
    size_t n = 0;
    for (unsigned char c : text) n += (c & 0xC0) != 0x80;
    return n;
}
}  // namespace

struct AudioFileProcessor::Job {
    std::filesystem::path audioFile;
    Mode mode;
    std::string vocabWords;
    std::vector<Replacement> replacements;
    Completion completion;
    const Clock* clock = nullptr;
    double startedAt = 0;
    std::filesystem::path compressedFile;  // set before the compressed bytes go to the main queue
    std::filesystem::path temporaryDirectory;
    // The work queue may still run this job after the processor is gone: it reaches the processor only
    // through the main queue, and only while `alive` holds.
    MainQueue* mainQueue = nullptr;
    std::weak_ptr<void> alive;
    AudioFileProcessor* processor = nullptr;

    void sendOnMainQueue(std::shared_ptr<Job> self, std::string audio) {
        mainQueue->post([self = std::move(self), audio = std::move(audio)]() mutable {
            if (self->alive.lock()) self->processor->send(self, std::move(audio));
        });
    }

    std::string timestamp() const { return formatTimestamp(clock->now()); }
};

AudioFileProcessor::AudioFileProcessor(BackendService& backend, MainQueue& mainQueue,
                                       DispatchQueue& workQueue, Alerts& alerts,
                                       std::function<void()> signOut,
                                       std::filesystem::path temporaryDirectory)
    : transcription_(backend),
      mainQueue_(mainQueue),
      workQueue_(workQueue),
      alerts_(alerts),
      signOut_(std::move(signOut)),
      temporaryDirectory_(std::move(temporaryDirectory)) {}

std::filesystem::path AudioFileProcessor::temporaryFileURL(const std::filesystem::path& directory,
                                                           const std::string& extension) {
    if (directory.empty()) return {};
    return directory / ("audio_" + Uuid::random().string() + "." + extension);
}

void AudioFileProcessor::processRecording(const std::filesystem::path& audioFile, const Mode& mode,
                                          const std::string& vocabWords,
                                          const std::vector<Replacement>& replacements,
                                          Completion completion) {
    auto job = std::make_shared<Job>();
    job->audioFile = audioFile;
    job->mode = mode;
    job->vocabWords = vocabWords;
    job->replacements = replacements;
    job->completion = std::move(completion);
    job->clock = &mainQueue_.clock();
    job->startedAt = job->clock->now();
    job->temporaryDirectory = temporaryDirectory_;
    job->mainQueue = &mainQueue_;
    job->alive = owner_.weak();
    job->processor = this;
    log("TIMESTAMP: ", job->timestamp(), " - AudioFileProcessor.processRecording() started");
    workQueue_.async([job] { runInBackground(job); });
}

void AudioFileProcessor::runInBackground(const std::shared_ptr<Job>& job) {
    // Work-queue thread: touches only the job, the files and the queues.
    log("TIMESTAMP: ", job->timestamp(), " - starting MP3 compression");
    std::string fallbackReason;
    const auto compressed = temporaryFileURL(job->temporaryDirectory, "m4a");
    if (compressed.empty()) {
        fallbackReason = "temporary MP3 URL was nil";
    } else {
        bool converted = false;
        std::string failure;
        try {
            AudioFormatConverter converter;
            converted = converter.convertToMP3(job->audioFile, compressed);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        log("TIMESTAMP: ", job->timestamp(), " - MP3 compression completed");
        if (!failure.empty()) {
            log("ERROR during MP3 conversion: ", failure, ". Falling back to WAV upload.");
            fallbackReason = failure;
        } else if (!converted) {
            fallbackReason = "conversion returned false";
        } else {
            std::string readError;
            if (auto bytes = readFile(compressed, &readError)) {
                log("Successfully converted and read MP3 file: ", bytes->size(), " bytes");
                job->compressedFile = compressed;
                job->sendOnMainQueue(job, std::move(*bytes));
                return;
            }
            log("ERROR during MP3 conversion: ", readError, ". Falling back to WAV upload.");
            fallbackReason = readError;
        }
    }

    log("⚠️ Falling back to original WAV upload (reason: ", fallbackReason, ")");
    std::string readError;
    auto bytes = readFile(job->audioFile, &readError);
    if (!bytes) {
        log("ERROR reading audio file: ", readError);
        job->completion(Error{"AudioFileProcessor", -1, "Failed to read audio file: " + readError});
        return;
    }
    log("Successfully read original audio file: ", bytes->size(), " bytes");
    // The backend client lives on the main queue, so the upload starts there too.
    job->sendOnMainQueue(job, std::move(*bytes));
}

void AudioFileProcessor::send(const std::shared_ptr<Job>& job, std::string audioData) {
    log("TIMESTAMP: ", job->timestamp(), " - sending ", audioData.size(), " bytes to backend");
    const uint64_t id = nextUploadId_++;
    auto subscription = transcription_.transcribeAudio(
        std::move(audioData), job->mode, job->vocabWords, job->replacements,
        [this, id, job](Result<std::string, BackendError> result) {
            cancellables_.erase(id);  // the call has finished; dropping its subscription cancels nothing
            if (result.ok()) {
                log("TIMESTAMP: ", job->timestamp(), " - backend request completed, received ",
                    characterCount(result.value()), " chars");
                job->completion(std::move(result.value()));
            } else {
                reportFailure(job, result.error());
            }
        });
    cancellables_.emplace(id, std::move(subscription));
}

void AudioFileProcessor::reportFailure(const std::shared_ptr<Job>& job, const BackendError& error) {
    // Kept before the alert: the user may never answer it, the app may not survive it.
    std::optional<Uuid> kept;
    if (keeper_) {
        kept = keeper_->keepFailedDictation(
            FailedDictation{job->compressedFile.empty() ? job->audioFile : job->compressedFile, job->mode,
                            job->vocabWords, job->replacements, job->startedAt, error.errorDescription()});
    }
    AlertRequest alert;
    alert.buttons = {"OK"};
    const bool signInAgain = error.kind == BackendError::Kind::authenticationFailed;
    if (signInAgain) {
        alert.title = "Please sign in again";
        alert.text = "Your session has expired.";
        alert.style = AlertStyle::informational;
    } else if (error.kind == BackendError::Kind::networkError) {
        alert.title = "No internet connection";
        alert.text = "Check your network and try again.";
        alert.style = AlertStyle::warning;
    } else {
        alert.title = "Transcription Error";
        alert.text = error.errorDescription();
        alert.style = AlertStyle::warning;
        log("Backend transcription failed: ", error.errorDescription());
    }
    // Retrying with an expired session would only fail again; that one waits for the next sign-in.
    if (kept && !signInAgain) alert.buttons.push_back(kRetryButton);
    alerts_.show(alert, [this, alive = owner_.weak(), signInAgain, error, kept,
                         completion = job->completion](int response) {
        if (signInAgain && !alive.expired() && signOut_) signOut_();
        completion(error.toError());
        if (response == 1 && kept && !alive.expired() && keeper_) keeper_->retryFailedDictation(*kept);
    });
}

}  // namespace vocle
