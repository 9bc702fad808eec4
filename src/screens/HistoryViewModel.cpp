#include "screens/HistoryViewModel.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>

namespace vocle {

namespace {

const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::tm localTime(double seconds) {
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm;
}

bool sameDay(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday;
}

// The calendar day before `day`, through mktime so month ends and DST are handled.
std::tm previousDay(std::tm day) {
    day.tm_mday -= 1;
    day.tm_hour = 12;
    day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    std::time_t t = std::mktime(&day);
    std::tm out{};
    localtime_r(&t, &out);
    return out;
}

// Medium date style, "Nov 3, 2026"; nothing else parses.
std::optional<std::time_t> parseMediumDate(const std::string& text) {
    char month[4] = {};
    int day = 0, year = 0, consumed = 0;
    if (std::sscanf(text.c_str(), "%3s %d, %d%n", month, &day, &year, &consumed) != 3) return std::nullopt;
    if (static_cast<size_t>(consumed) != text.size()) return std::nullopt;
    for (int m = 0; m < 12; ++m) {
        if (std::string(month) == kMonths[m]) {
            std::tm tm{};
            tm.tm_year = year - 1900;
            tm.tm_mon = m;
            tm.tm_mday = day;
            tm.tm_hour = 12;
            tm.tm_isdst = -1;
            return std::mktime(&tm);
        }
    }
    return std::nullopt;
}

}  // namespace

HistoryViewModel::HistoryViewModel(MainQueue& main, HistoryService& history, CopyText copyToClipboard)
    : HistoryViewModel(main, history, std::move(copyToClipboard), KeptDictations{}) {}

HistoryViewModel::HistoryViewModel(MainQueue& main, HistoryService& history, CopyText copyToClipboard,
                                   KeptDictations kept)
    : main_(main), history_(history), copyToClipboard_(std::move(copyToClipboard)), kept_(std::move(kept)) {
    historySubscription_ = history_.transcriptions.subscribe([this](const auto&) { regroup(); });
    if (kept_.store) {
        keptSubscription_ = kept_.store->dictations.subscribe([this](const auto&) { regroup(); });
        // vocle-cli may have sent or dropped some since the store was read.
        kept_.store->reload();
    }
    regroup();
    isLoading.set(false);
}

HistoryViewModel::~HistoryViewModel() = default;

void HistoryViewModel::regroup() {
    static const std::vector<PendingDictation> none;
    groups.set(group(history_.transcriptions.get(), main_.clock().now(),
                     kept_.store ? kept_.store->dictations.get() : none));
    scheduleDayChange();
}

void HistoryViewModel::retry(const Uuid& id) {
    if (!kept_.retry || isRetrying(id)) return;
    retrying_.insert(id);
    retryStateChanged.emit(id);
    kept_.retry(id, token_.guard([this, id](bool) {
        retrying_.erase(id);
        retryStateChanged.emit(id);
    }));
}

void HistoryViewModel::remove(const Uuid& id) {
    if (!kept_.drop || isRetrying(id)) return;
    kept_.drop(id);
}

void HistoryViewModel::scheduleDayChange() {
    const double now = main_.clock().now();
    std::tm next = localTime(now);
    next.tm_mday += 1;
    next.tm_hour = next.tm_min = next.tm_sec = 0;
    next.tm_isdst = -1;
    const double midnight = static_cast<double>(std::mktime(&next));
    // A calendar boundary, so measured on the wall clock: set a day ahead, the grouping follows at the next
    // regroup rather than at this timer.
    dayChange_.start(main_, Seconds(std::max(1.0, midnight - now + 1.0)),
                     token_.guard([this] { regroup(); }));
}

void HistoryViewModel::copy(const TranscriptionHistory& entry) {
    copyToClipboard_(entry.text);
    const Uuid id = entry.id;
    copied_[id].start(main_, kCopiedDuration, token_.guard([this, id] {
        copied_.erase(id);
        copyStateChanged.emit(id);
    }));
    copyStateChanged.emit(id);
}

std::string HistoryViewModel::dayLabel(double timestamp, double now) {
    const std::tm day = localTime(timestamp);
    const std::tm today = localTime(now);
    if (sameDay(day, today)) return "Today";
    if (sameDay(day, previousDay(today))) return "Yesterday";
    return std::to_string(day.tm_mday) + " " + kMonths[day.tm_mon];
}

bool HistoryViewModel::labelComesFirst(const std::string& a, const std::string& b) {
    if (a == "Today") return true;
    if (b == "Today") return false;
    if (a == "Yesterday") return true;
    if (b == "Yesterday") return false;
    auto da = parseMediumDate(a);
    auto db = parseMediumDate(b);
    if (da && db) return *da > *db;
    return a < b;
}

std::vector<HistoryGroup> HistoryViewModel::group(const std::vector<TranscriptionHistory>& entries,
                                                  double now, const std::vector<PendingDictation>& kept) {
    std::vector<HistoryGroup> groups;
    auto groupFor = [&](double timestamp) -> HistoryGroup& {
        const std::string label = dayLabel(timestamp, now);
        auto it = std::find_if(groups.begin(), groups.end(), [&](const HistoryGroup& g) { return g.label == label; });
        if (it != groups.end()) return *it;
        groups.push_back({label, {}});
        return groups.back();
    };
    for (const auto& entry : entries) groupFor(entry.timestamp).entries.push_back(entry);
    for (const auto& entry : kept) groupFor(entry.timestamp).kept.push_back(entry);
    // The comparison is not a strict weak order when a label equals "Today" on both sides; labels are
    // unique here, so a stable sort is safe.
    std::stable_sort(groups.begin(), groups.end(), [](const HistoryGroup& x, const HistoryGroup& y) {
        return x.label != y.label && labelComesFirst(x.label, y.label);
    });
    return groups;
}

std::string HistoryViewModel::timeText(double timestamp) {
    const std::tm tm = localTime(timestamp);
    const int hour12 = tm.tm_hour % 12 == 0 ? 12 : tm.tm_hour % 12;
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%d:%02d %s", hour12, tm.tm_min, tm.tm_hour < 12 ? "AM" : "PM");
    return buffer;
}

}  // namespace vocle
