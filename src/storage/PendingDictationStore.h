#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Clock.h"
#include "foundation/Signal.h"
#include "foundation/Uuid.h"
#include "storage/DataFolder.h"

namespace vocle {

// One recording whose transcription failed, kept until it is transcribed, dropped or expires.
struct PendingDictation {
    Uuid id;
    double timestamp = 0;      // when it was recorded, seconds since 1970
    std::optional<Mode> mode;  // as sent; none for a recovered file
    std::string vocabulary;
    std::vector<Replacement> replacements;
    std::string error;  // the failure as the user was told it
    int attempts = 1;
    std::filesystem::path audioFile;
    bool recovered = false;  // found without its record

    friend bool operator==(const PendingDictation&, const PendingDictation&) = default;
};

// Failed dictations in "{data folder}/pending": "{id}.m4a" or "{id}.wav" and the record "{id}.json"
// beside it. Each file is written beside its name and renamed into place, the record last, so a crash
// leaves either nothing, or audio without a record, which the next scan lists as recovered. Entries
// expire with the history's 30 days. Main queue only.
class PendingDictationStore {
  public:
    // Scans the folder at construction.
    PendingDictationStore(DataFolder folder, const Clock& clock);

    static constexpr const char* kRecoveredError = "Recovered";

    std::filesystem::path directory() const;

    // Newest first.
    Observable<std::vector<PendingDictation>> dictations;

    // Copies `audio` into the folder and writes the record; `entry.id` and `entry.audioFile` are assigned.
    // None (and a log line) when the copy or the record could not be written.
    std::optional<PendingDictation> keep(const std::filesystem::path& audio, PendingDictation entry);
    std::optional<PendingDictation> find(const Uuid& id) const;
    // Another failed attempt: the new error and one more attempt, written to the record.
    bool recordFailure(const Uuid& id, const std::string& error);
    // Deletes the audio and the record.
    bool remove(const Uuid& id);
    // Re-reads the folder (another process may have changed it) and applies the expiry.
    void reload();

    static Json recordJson(const PendingDictation& entry);
    static PendingDictation fromRecordJson(const Json& json, const std::filesystem::path& folder);

  private:
    bool writeRecord(const PendingDictation& entry, std::string* error);
    void publish(std::vector<PendingDictation> list);

    DataFolder folder_;
    const Clock& clock_;
};

}  // namespace vocle
