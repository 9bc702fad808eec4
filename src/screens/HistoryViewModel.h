#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/TranscriptionHistory.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "storage/HistoryService.h"

namespace vocle {

struct HistoryGroup {
    std::string label;
    std::vector<TranscriptionHistory> entries;
    friend bool operator==(const HistoryGroup&, const HistoryGroup&) = default;
};

// Past transcripts grouped by local calendar day, newest day first, regrouped when the history changes
// and when the day rolls over. Read-only apart from copying a transcript.
class HistoryViewModel {
  public:
    using CopyText = std::function<void(const std::string&)>;

    HistoryViewModel(MainQueue& main, HistoryService& history, CopyText copyToClipboard);
    ~HistoryViewModel();
    HistoryViewModel(const HistoryViewModel&) = delete;
    HistoryViewModel& operator=(const HistoryViewModel&) = delete;

    static constexpr Seconds kCopiedDuration{3.0};
    static constexpr const char* kLoadingText = "Loading transcription history...";
    static constexpr const char* kEmptyTitle = "No history yet";
    static constexpr const char* kEmptyText = "Your transcriptions will appear here";

    Observable<bool> isLoading{true};
    Observable<std::vector<HistoryGroup>> groups;
    // An entry's copy button changed between "copy" and "copied".
    Signal<Uuid> copyStateChanged;

    bool isCopied(const Uuid& id) const { return copied_.count(id) != 0; }
    void copy(const TranscriptionHistory& entry);
    void regroup();

    // "Today", "Yesterday", else "d MMM" in the local calendar.
    static std::string dayLabel(double timestamp, double now);
    // The section order: Today, Yesterday, then labels that parse as medium-style dates newest first,
    // others in plain string order (so "12 Oct" precedes "3 Nov").
    static bool labelComesFirst(const std::string& a, const std::string& b);
    static std::vector<HistoryGroup> group(const std::vector<TranscriptionHistory>& entries, double now);
    // Short time style, "3:07 PM".
    static std::string timeText(double timestamp);

  private:
    void scheduleDayChange();

    MainQueue& main_;
    HistoryService& history_;
    CopyText copyToClipboard_;
    std::map<Uuid, Timer> copied_;
    Timer dayChange_;
    Subscription historySubscription_;
    OwnerToken token_;
};

}  // namespace vocle
