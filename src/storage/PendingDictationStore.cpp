#include "storage/PendingDictationStore.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "storage/HistoryService.h"
#include "storage/UnreadableFileKeeper.h"

namespace vocle {

namespace fs = std::filesystem;

namespace {

bool isAudioExtension(const std::string& ext) {
    return ext == ".m4a" || ext == ".wav";
}

double modificationTime(const fs::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return 0;
    return static_cast<double>(st.st_mtim.tv_sec) + static_cast<double>(st.st_mtim.tv_nsec) / 1e9;
}

void removeQuietly(const fs::path& path) {
    std::error_code ec;
    fs::remove(path, ec);
}

// Leftovers of a write that a crash cut short: the original is still where it came from.
constexpr double kStaleTemporaryAge = 24 * 3600;

}  // namespace

PendingDictationStore::PendingDictationStore(DataFolder folder, const Clock& clock)
    : folder_(std::move(folder)), clock_(clock) {
    reload();
}

fs::path PendingDictationStore::directory() const {
    return folder_.appSupportDirectory() / "pending";
}

Json PendingDictationStore::recordJson(const PendingDictation& e) {
    Json replacements = Json::array();
    for (const auto& r : e.replacements) replacements.push_back(r.toJson());
    Json json{{"id", e.id.string()},
              {"timestamp", toReferenceDate(e.timestamp)},
              {"audioFile", e.audioFile.filename().string()},
              {"vocabulary", e.vocabulary},
              {"replacements", std::move(replacements)},
              {"error", e.error},
              {"attempts", e.attempts}};
    if (e.mode) {
        json["modeId"] = e.mode->id.string();
        json["mode"] = e.mode->toJson();
    }
    return json;
}

PendingDictation PendingDictationStore::fromRecordJson(const Json& json, const fs::path& folder) {
    requireObjectValue(json, "pending dictation");
    PendingDictation e;
    auto id = Uuid::parse(requireString(json, "id"));
    if (!id) throw DecodingError("\"id\" is not a UUID");
    e.id = *id;
    e.timestamp = fromReferenceDate(requireNumber(json, "timestamp"));
    const fs::path audio = requireString(json, "audioFile");
    if (audio.filename() != audio || audio.empty()) throw DecodingError("\"audioFile\" is not a file name");
    e.audioFile = folder / audio;
    e.vocabulary = requireString(json, "vocabulary");
    for (const auto& r : requireArray(json, "replacements"))
        e.replacements.push_back(Replacement::fromJson(r));
    e.error = requireString(json, "error");
    e.attempts = static_cast<int>(requireInteger(json, "attempts"));
    if (json.contains("mode") && !json["mode"].is_null()) e.mode = Mode::fromJson(json["mode"]);
    return e;
}

void PendingDictationStore::reload() {
    const fs::path dir = directory();
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) {
        publish({});
        return;
    }
    std::map<std::string, fs::path> audio;  // by stem
    std::vector<fs::path> records;
    for (const auto& item : fs::directory_iterator(dir, ec)) {
        const fs::path path = item.path();
        const std::string name = path.filename().string();
        if (name.starts_with(".")) {
            if (name.find(".tmp-") != std::string::npos &&
                clock_.now() - modificationTime(path) > kStaleTemporaryAge)
                removeQuietly(path);
            continue;
        }
        if (!Uuid::parse(path.stem().string())) continue;
        const std::string ext = path.extension().string();
        if (ext == ".json")
            records.push_back(path);
        else if (isAudioExtension(ext))
            audio[path.stem().string()] = path;
    }

    std::vector<PendingDictation> list;
    for (const auto& recordPath : records) {
        const std::string stem = recordPath.stem().string();
        auto data = readFile(recordPath);
        if (!data) continue;
        try {
            PendingDictation e = fromRecordJson(parseJson(*data), dir);
            if (e.id.string() != stem) throw DecodingError("\"id\" does not match the file name");
            if (!fs::exists(e.audioFile, ec)) {
                // Nothing left to transcribe: the record alone is no dictation.
                log("Removed failed dictation without audio: ", stem);
                removeQuietly(recordPath);
                continue;
            }
            audio.erase(e.audioFile.stem().string());
            list.push_back(std::move(e));
        } catch (const DecodingError& err) {
            // The audio stays listed as recovered below; the unreadable record is kept aside.
            log("Failed to load failed dictation record ", stem, ": ", err.what());
            keepUnreadableFile(recordPath, *data, clock_);
            removeQuietly(recordPath);
        }
    }
    for (const auto& [stem, path] : audio) {
        PendingDictation e;
        e.id = *Uuid::parse(stem);
        e.timestamp = modificationTime(path);
        e.error = kRecoveredError;
        e.attempts = 0;
        e.audioFile = path;
        e.recovered = true;
        list.push_back(std::move(e));
    }

    const double cutoff = thirtyDaysBefore(clock_.now());
    std::vector<PendingDictation> kept;
    for (auto& e : list) {
        if (e.timestamp > cutoff) {
            kept.push_back(std::move(e));
            continue;
        }
        log("Removed expired failed dictation ", e.id.string());
        removeQuietly(e.audioFile);
        removeQuietly(dir / (e.id.string() + ".json"));
    }
    publish(std::move(kept));
}

void PendingDictationStore::publish(std::vector<PendingDictation> list) {
    std::stable_sort(list.begin(), list.end(), [](const PendingDictation& a, const PendingDictation& b) {
        return a.timestamp > b.timestamp;
    });
    dictations.set(std::move(list));
}

bool PendingDictationStore::writeRecord(const PendingDictation& entry, std::string* error) {
    return writeFileAtomically(directory() / (entry.id.string() + ".json"), toPrettyJson(recordJson(entry)),
                               error);
}

std::optional<PendingDictation> PendingDictationStore::keep(const fs::path& audio, PendingDictation entry) {
    std::string error;
    const fs::path dir = directory();
    if (!ensureDirectory(dir, &error)) {
        log("Couldn't keep failed dictation ", audio.string(), ": ", error);
        return std::nullopt;
    }
    auto bytes = readFile(audio, &error);
    if (!bytes) {
        log("Couldn't keep failed dictation ", audio.string(), ": ", error);
        return std::nullopt;
    }
    entry.id = Uuid::random();
    entry.recovered = false;
    const std::string ext = audio.extension() == ".m4a" ? ".m4a" : ".wav";
    entry.audioFile = dir / (entry.id.string() + ext);
    // Audio first, record last: a crash in between leaves a recoverable file, never a record of nothing.
    if (!writeFileAtomically(entry.audioFile, *bytes, &error) || !writeRecord(entry, &error)) {
        log("Couldn't keep failed dictation ", audio.string(), ": ", error);
        removeQuietly(entry.audioFile);
        return std::nullopt;
    }
    log("Kept failed dictation ", entry.id.string(), " in ", entry.audioFile.string());
    auto list = dictations.get();
    list.push_back(entry);
    publish(std::move(list));
    return entry;
}

std::optional<PendingDictation> PendingDictationStore::find(const Uuid& id) const {
    for (const auto& e : dictations.get())
        if (e.id == id) return e;
    return std::nullopt;
}

bool PendingDictationStore::recordFailure(const Uuid& id, const std::string& error) {
    auto list = dictations.get();
    auto it = std::find_if(list.begin(), list.end(), [&](const PendingDictation& e) { return e.id == id; });
    if (it == list.end()) return false;
    it->error = error;
    it->attempts += 1;
    it->recovered = false;
    std::string writeError;
    if (!writeRecord(*it, &writeError))
        log("Couldn't update failed dictation ", id.string(), ": ", writeError);
    publish(std::move(list));
    return true;
}

bool PendingDictationStore::remove(const Uuid& id) {
    auto list = dictations.get();
    auto it = std::find_if(list.begin(), list.end(), [&](const PendingDictation& e) { return e.id == id; });
    if (it == list.end()) return false;
    // The record goes first: if the audio then survives a crash it is recovered, not silently dropped.
    removeQuietly(directory() / (id.string() + ".json"));
    removeQuietly(it->audioFile);
    list.erase(it);
    publish(std::move(list));
    return true;
}

}  // namespace vocle
