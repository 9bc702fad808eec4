#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/TranscriptionHistory.h"
#include "foundation/Clock.h"
#include "foundation/Signal.h"
#include "storage/DataFolder.h"

namespace vocle {

// Past transcripts, newest first, kept for 30 calendar days in "transcription_history.json".
class HistoryService {
public:
    // Loads the file at construction.
    HistoryService(DataFolder folder, const Clock& clock);

    void addTranscription(const std::string& text);
    // A transcript of an earlier recording, placed by its time so the list stays newest first.
    void addTranscription(const std::string& text, double timestamp);
    Observable<std::vector<TranscriptionHistory>> transcriptions;

    std::filesystem::path historyFile() const;

private:
    void loadHistory();
    void removeEmptyEntries();
    void applyRetention();
    void save();

    DataFolder folder_;
    const Clock& clock_;
};

// Local midnight-aware "30 days before now" in the current calendar (DST shifts included).
double thirtyDaysBefore(double unixSeconds);

}  // namespace vocle
