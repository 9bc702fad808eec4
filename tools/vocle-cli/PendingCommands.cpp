#include <ctime>
#include <iostream>
#include <optional>

#include "CliCommand.h"
#include "CliGraph.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/PendingDictationStore.h"
#include "storage/SessionStore.h"

namespace vocle::cli {

namespace {

namespace fs = std::filesystem;

std::string isoTime(double unixSeconds) {
    const auto whole = static_cast<std::time_t>(unixSeconds);
    std::tm utc{};
    ::gmtime_r(&whole, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

Json listing(const PendingDictation& e) {
    std::error_code ec;
    const auto size = fs::file_size(e.audioFile, ec);
    Json json{{"id", e.id.string()},
              {"time", isoTime(e.timestamp)},
              {"error", e.error},
              {"audioFile", e.audioFile.string()},
              {"size", ec ? 0 : static_cast<uint64_t>(size)},
              {"attempts", e.attempts},
              {"recovered", e.recovered}};
    json["mode"] = e.mode ? Json(e.mode->name) : Json(nullptr);
    return json;
}

// The whole id, or a prefix that names one dictation only.
Uuid resolveId(const PendingDictationStore& store, const std::string& text) {
    std::optional<Uuid> found;
    for (const auto& e : store.dictations.get()) {
        const std::string id = e.id.string();
        if (text.size() < 4 || text.size() > id.size()) continue;
        bool match = true;
        for (size_t i = 0; i < text.size(); ++i)
            match &= std::toupper(static_cast<unsigned char>(text[i])) == id[i];
        if (!match) continue;
        if (found)
            throw CliError{"\"" + text + "\" names more than one failed dictation; give more of the id"};
        found = e.id;
    }
    if (!found) throw CliError{"no failed dictation \"" + text + "\" (see vocle-cli pending)"};
    return *found;
}

int runPending(CliContext& ctx) {
    if (!ctx.args.empty()) throw CliError{"unexpected argument \"" + ctx.args.front() + "\"", 2};
    ScopedLogSink logs(std::make_shared<StreamLogSink>(ctx.err));
    SystemClock clock;
    PendingDictationStore store(DataFolder::fromEnvironment(ctx.env), clock);
    Json list = Json::array();
    for (const auto& e : store.dictations.get()) list.push_back(listing(e));
    ctx.out << toPrettyJson(list) << "\n";
    return 0;
}

int runDrop(CliContext& ctx) {
    if (ctx.args.size() != 1) throw CliError{"usage: vocle-cli drop ID", 2};
    ScopedLogSink logs(std::make_shared<StreamLogSink>(ctx.err));
    SystemClock clock;
    PendingDictationStore store(DataFolder::fromEnvironment(ctx.env), clock);
    const Uuid id = resolveId(store, ctx.args[0]);
    if (!store.remove(id)) throw CliError{"could not delete " + id.string()};
    return 0;
}

int runRetry(CliContext& ctx) {
    bool all = false;
    bool verbose = false;
    std::optional<std::string> idText;
    for (const auto& a : ctx.args) {
        if (a == "--all")
            all = true;
        else if (a == "--verbose")
            verbose = true;
        else if (!idText && !a.starts_with("--"))
            idText = a;
        else
            throw CliError{"unexpected argument \"" + a + "\"", 2};
    }
    if (all == idText.has_value()) throw CliError{"usage: vocle-cli retry ID|--all [--verbose]", 2};
    ScopedLogSink logs(verbose ? std::shared_ptr<LogSink>(std::make_shared<StreamLogSink>(ctx.err))
                               : std::make_shared<DiscardLogSink>());

    CliGraph cli(ctx, VOCLE_VERSION);
    ServiceGraph& services = cli.services;
    if (!services.sessions.load()) {
        throw CliError{"not signed in: sign in with the Vocle app first (no session in " +
                       (services.files.appSupportDirectory() / "session.json").string() + ")"};
    }
    std::vector<Uuid> ids;
    if (all) {
        for (const auto& e : services.pendingDictations.dictations.get()) ids.push_back(e.id);
    } else {
        ids.push_back(resolveId(services.pendingDictations, *idText));
    }

    int failures = 0;
    for (const Uuid& id : ids) {
        std::optional<Result<std::string>> result;
        services.dictationRetry->retry(id, [&](Result<std::string> r) { result = std::move(r); });
        // Four attempts of at most 60 s inside the 120 s budget.
        if (!cli.queue.runUntil([&] { return result.has_value(); }, Seconds(600)))
            throw CliError{"no answer from the backend"};
        if (result->ok()) {
            ctx.out << result->value() << std::endl;
        } else {
            ++failures;
            ctx.err << "vocle-cli retry: " << id.string() << ": " << result->error().description << std::endl;
        }
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace

void addPendingCommands(std::vector<CliCommand>& commands) {
    commands.push_back(
        {"pending", "pending",
         "List the dictations that could not be transcribed and are kept for another try (JSON).",
         runPending});
    commands.push_back({"retry", "retry ID|--all [--verbose]",
                        "Send kept dictations to the backend again; print each transcript and add it to the "
                        "history. ID may be shortened while it stays unique.",
                        runRetry});
    commands.push_back({"drop", "drop ID", "Delete a kept dictation and its recording.", runDrop});
}

}  // namespace vocle::cli
