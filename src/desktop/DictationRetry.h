#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "backend/BackendService.h"
#include "backend/TranscriptionClient.h"
#include "core/FailedDictationKeeper.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/alerts.h"
#include "storage/HistoryService.h"
#include "storage/PendingDictationStore.h"

namespace vocle {

// Keeps failed dictations and sends them again through the same transcription request. A success puts
// the transcript on the clipboard (never pastes: the user is elsewhere by now), adds it to the history at
// the recording's time and removes the kept files; a failure updates the kept record. Main queue only.
class DictationRetry final : public FailedDictationKeeper {
  public:
    using CopyText = std::function<void(const std::string&)>;
    using Completion = std::function<void(Result<std::string>)>;

    struct Dependencies {
        MainQueue& mainQueue;
        BackendService& backend;
        PendingDictationStore& store;
        HistoryService& history;
        // Empty: nothing is copied (the command line prints the transcript instead).
        CopyText copyToClipboard;
        // The mode for a recording found without its record; none fails the retry.
        std::function<std::optional<Mode>()> currentMode;
        // Where a retry started from the failure alert reports a second failure; may be null.
        Alerts* alerts = nullptr;
    };

    explicit DictationRetry(Dependencies deps);
    ~DictationRetry() override;
    DictationRetry(const DictationRetry&) = delete;
    DictationRetry& operator=(const DictationRetry&) = delete;

    static constexpr const char* kNoModeError = "No mode selected";
    static constexpr const char* kRetryFailedTitle = "Retry failed";

    // Kept dictations the tray offers to retry: all of them once the backend has answered since the last
    // failure, else 0.
    Observable<size_t> offeredCount{0};
    // A retry started or finished.
    Signal<Uuid> retryingChanged;

    std::optional<Uuid> keepFailedDictation(const FailedDictation& dictation) override;
    // From the failure alert: a second failure is reported with another alert.
    void retryFailedDictation(const Uuid& id) override;

    // The completion runs once on the main queue; a dictation already being retried is not sent twice.
    void retry(const Uuid& id, Completion completion = {});
    // Every kept dictation, one after another; `done` gets the number transcribed.
    void retryAll(std::function<void(size_t transcribed, size_t failed)> done = {});
    bool isRetrying(const Uuid& id) const { return inFlight_.count(id) != 0; }
    bool drop(const Uuid& id);
    void setCopyToClipboard(CopyText copy) { deps_.copyToClipboard = std::move(copy); }

  private:
    void finish(const PendingDictation& entry, Result<std::string, BackendError> result,
                const Completion& done);
    void retryNext(std::vector<Uuid> queue, size_t transcribed, size_t failed,
                   std::function<void(size_t, size_t)> done);
    void setBackendAnswered(bool answered);
    void updateOffer();

    Dependencies deps_;
    TranscriptionClient transcription_;
    bool backendAnswered_ = false;
    std::map<Uuid, Subscription> inFlight_;
    Subscription answeredSubscription_;
    Subscription storeSubscription_;
    OwnerToken owner_;
};

}  // namespace vocle
