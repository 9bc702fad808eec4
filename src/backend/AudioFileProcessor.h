#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "backend/BackendService.h"
#include "core/FailedDictationKeeper.h"
#include "backend/TranscriptionClient.h"
#include "core/RecordingProcessor.h"
#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "platform/alerts.h"

namespace vocle {

// The upload pipeline: compress the recording to AAC (falling back to the WAV on any conversion
// problem), send it for transcription, alert the user about backend failures, report the outcome.
// Compression and file reads run on `workQueue`; backend outcomes, alerts and their completions run on
// the main queue. Only an unreadable recording completes from the work queue.
class AudioFileProcessor final : public RecordingProcessor {
  public:
    // `signOut` runs on the main queue after the user has closed the "Please sign in again" alert.
    AudioFileProcessor(BackendService& backend, MainQueue& mainQueue, DispatchQueue& workQueue,
                       Alerts& alerts, std::function<void()> signOut,
                       std::filesystem::path temporaryDirectory);

    void processRecording(const std::filesystem::path& audioFile, const Mode& mode,
                          const std::string& vocabWords, const std::vector<Replacement>& replacements,
                          std::function<void(Result<std::string>)> completion) override;

    // "audio_{UUID}.{extension}" in `directory`; empty when there is no directory to put it in.
    static std::filesystem::path temporaryFileURL(const std::filesystem::path& directory,
                                                  const std::string& extension);

    // Recordings whose transcription fails are handed here before the alert, whose "Retry" asks it for
    // another try. Without a keeper the alert has its one "OK" button.
    void setFailedDictationKeeper(FailedDictationKeeper* keeper) { keeper_ = keeper; }

    static constexpr const char* kRetryButton = "Retry";

    // Uploads still waiting for their outcome.
    size_t pendingUploads() const { return cancellables_.size(); }

  private:
    using Completion = std::function<void(Result<std::string>)>;
    struct Job;

    static void runInBackground(const std::shared_ptr<Job>& job);
    void send(const std::shared_ptr<Job>& job, std::string audioData);
    void reportFailure(const std::shared_ptr<Job>& job, const BackendError& error);

    TranscriptionClient transcription_;
    MainQueue& mainQueue_;
    DispatchQueue& workQueue_;
    Alerts& alerts_;
    std::function<void()> signOut_;
    std::filesystem::path temporaryDirectory_;
    FailedDictationKeeper* keeper_ = nullptr;
    std::map<uint64_t, Subscription> cancellables_;  // main queue only
    uint64_t nextUploadId_ = 0;
    OwnerToken owner_;
};

}  // namespace vocle
