#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/TranscriptionHistory.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "storage/HistoryService.h"
#include "storage/PendingDictationStore.h"

namespace vocle {

struct HistoryGroup {
    std::string label;
    std::vector<TranscriptionHistory> entries;
    // Recordings of this day that could not be transcribed yet, shown above its transcripts.
    std::vector<PendingDictation> kept = {};
    friend bool operator==(const HistoryGroup&, const HistoryGroup&) = default;
};

// Past transcripts grouped by local calendar day, newest day first, regrouped when the history changes
// and when the day rolls over. Transcripts are read-only apart from copying; kept recordings that failed
// to transcribe can be sent again or deleted.
class HistoryViewModel {
  public:
    using CopyText = std::function<void(const std::string&)>;

    // Where kept recordings come from and what their buttons do; without a store none are listed.
    struct KeptDictations {
        PendingDictationStore* store = nullptr;
        // The completion says whether the transcript came back.
        std::function<void(const Uuid&, std::function<void(bool)>)> retry;
        std::function<void(const Uuid&)> drop;
    };

    HistoryViewModel(MainQueue& main, HistoryService& history, CopyText copyToClipboard);
    HistoryViewModel(MainQueue& main, HistoryService& history, CopyText copyToClipboard, KeptDictations kept);
    ~HistoryViewModel();
    HistoryViewModel(const HistoryViewModel&) = delete;
    HistoryViewModel& operator=(const HistoryViewModel&) = delete;

    static constexpr Seconds kCopiedDuration{3.0};
    static constexpr const char* kLoadingText = "Loading transcription history...";
    static constexpr const char* kEmptyTitle = "No history yet";
    static constexpr const char* kEmptyText = "Your transcriptions will appear here";
    static constexpr const char* kNotTranscribed = "Not transcribed";
    static constexpr const char* kRetry = "Retry";
    static constexpr const char* kRetrying = "Retrying…";
    static constexpr const char* kDelete = "Delete";

    Observable<bool> isLoading{true};
    Observable<std::vector<HistoryGroup>> groups;
    // An entry's copy button changed between "copy" and "copied".
    Signal<Uuid> copyStateChanged;

    bool isCopied(const Uuid& id) const { return copied_.count(id) != 0; }
    void copy(const TranscriptionHistory& entry);
    void regroup();

    // A kept recording's buttons. A retry in progress disables both.
    void retry(const Uuid& id);
    void remove(const Uuid& id);
    bool isRetrying(const Uuid& id) const { return retrying_.count(id) != 0; }
    Signal<Uuid> retryStateChanged;

    // "Today", "Yesterday", else "d MMM" in the local calendar.
    static std::string dayLabel(double timestamp, double now);
    // The section order: Today, Yesterday, then labels that parse as medium-style dates newest first,
    // others in plain string order (so "12 Oct" precedes "3 Nov").
    static bool labelComesFirst(const std::string& a, const std::string& b);
    static std::vector<HistoryGroup> group(const std::vector<TranscriptionHistory>& entries, double now,
                                           const std::vector<PendingDictation>& kept = {});
    // Short time style, "3:07 PM".
    static std::string timeText(double timestamp);

  private:
    void scheduleDayChange();

    MainQueue& main_;
    HistoryService& history_;
    CopyText copyToClipboard_;
    KeptDictations kept_;
    std::set<Uuid> retrying_;
    Subscription keptSubscription_;
    std::map<Uuid, Timer> copied_;
    Timer dayChange_;
    Subscription historySubscription_;
    OwnerToken token_;
};

}  // namespace vocle
