#include "storage/HistoryService.h"

#include <algorithm>
#include <ctime>

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "storage/UnreadableFileKeeper.h"

namespace vocle {

double thirtyDaysBefore(double unixSeconds) {
    const auto whole = static_cast<std::time_t>(unixSeconds);
    const double fraction = unixSeconds - static_cast<double>(whole);
    std::tm local{};
    if (!::localtime_r(&whole, &local)) return unixSeconds;
    local.tm_mday -= 30;
    local.tm_isdst = -1;
    const std::time_t cutoff = std::mktime(&local);
    if (cutoff == static_cast<std::time_t>(-1)) return unixSeconds;
    return static_cast<double>(cutoff) + fraction;
}

HistoryService::HistoryService(DataFolder folder, const Clock& clock) : folder_(std::move(folder)), clock_(clock) {
    loadHistory();
}

std::filesystem::path HistoryService::historyFile() const {
    return folder_.appSupportDirectory() / "transcription_history.json";
}

void HistoryService::addTranscription(const std::string& text) {
    addTranscription(text, clock_.now());
}

void HistoryService::addTranscription(const std::string& text, double timestamp) {
    if (trimWhitespace(text).empty()) {
        logLine("Skipping empty transcription");
        return;
    }
    auto list = transcriptions.get();
    auto at = std::find_if(list.begin(), list.end(),
                           [&](const TranscriptionHistory& e) { return e.timestamp <= timestamp; });
    list.insert(at, TranscriptionHistory{Uuid::random(), text, timestamp});
    transcriptions.set(std::move(list));
    applyRetention();
    save();
    log("Added transcription to history: ", firstCharacters(text, 50), "...");
}

void HistoryService::loadHistory() {
    const auto path = historyFile();
    auto data = readFile(path);
    if (!data) {
        transcriptions.set({});
        return;
    }
    std::vector<TranscriptionHistory> list;
    try {
        const Json json = parseJson(*data);
        if (!json.is_array()) throw DecodingError("Expected an array of transcriptions");
        for (const auto& item : json) list.push_back(TranscriptionHistory::fromJson(item));
    } catch (const DecodingError& e) {
        log("Failed to load transcription history: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        transcriptions.set({});
        return;
    }
    transcriptions.set(std::move(list));
    removeEmptyEntries();
    applyRetention();
}

void HistoryService::removeEmptyEntries() {
    std::vector<TranscriptionHistory> kept;
    for (const auto& entry : transcriptions.get()) {
        if (!trimWhitespace(entry.text).empty()) kept.push_back(entry);
    }
    const size_t removed = transcriptions.get().size() - kept.size();
    transcriptions.set(std::move(kept));
    if (removed > 0) log("Removed ", removed, " empty transcription(s) from history");
}

void HistoryService::applyRetention() {
    const double cutoff = thirtyDaysBefore(clock_.now());
    std::vector<TranscriptionHistory> kept;
    for (const auto& entry : transcriptions.get()) {
        if (entry.timestamp > cutoff) kept.push_back(entry);
    }
    transcriptions.set(std::move(kept));
}

void HistoryService::save() {
    Json json = Json::array();
    for (const auto& entry : transcriptions.get()) json.push_back(entry.toJson());
    std::string error;
    if (!writeFileAtomically(historyFile(), toCompactJson(json), &error)) {
        log("Failed to save transcription history: ", error);
    }
}

}  // namespace vocle
