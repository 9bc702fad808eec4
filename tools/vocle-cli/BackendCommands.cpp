#include <atomic>
#include <iostream>
#include <optional>

#include "CliAlerts.h"
#include "CliGraph.h"
#include "CliCommand.h"
#include "backend/AudioFileProcessor.h"
#include "backend/AudioFormatConverter.h"
#include "backend/BackendOrigin.h"
#include "backend/BackendService.h"
#include "core/AppConstants.h"
#include "foundation/DispatchQueue.h"
#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/RunLoopMainQueue.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"

namespace vocle::cli {

namespace {


struct TranscribeOptions {
    std::string file;
    std::optional<std::string> modeJson;
    std::optional<std::string> vocab;
    std::optional<std::string> replacementsJson;
    bool verbose = false;
};

TranscribeOptions parseTranscribeArgs(const std::vector<std::string>& args) {
    TranscribeOptions o;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= args.size()) throw CliError{a + " needs a value", 2};
            return args[++i];
        };
        if (a == "--mode-json") {
            o.modeJson = value();
        } else if (a == "--vocab") {
            o.vocab = value();
        } else if (a == "--replacements") {
            o.replacementsJson = value();
        } else if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (!a.empty() && a[0] == '-') {
            throw CliError{"unknown option " + a, 2};
        } else if (o.file.empty()) {
            o.file = a;
        } else {
            throw CliError{"more than one FILE given", 2};
        }
    }
    if (o.file.empty()) throw CliError{"FILE is missing", 2};
    return o;
}

Json readJsonFile(const std::string& path) {
    std::string error;
    auto text = readFile(path, &error);
    if (!text) throw CliError{error};
    try {
        return parseJson(*text);
    } catch (const DecodingError& e) {
        throw CliError{path + ": " + e.what()};
    }
}

Mode modeFrom(const TranscribeOptions& o, const DataFolder& folder, const FileStorageManager& files,
              const Clock& clock) {
    if (o.modeJson) {
        try {
            return Mode::fromJson(readJsonFile(*o.modeJson));
        } catch (const DecodingError& e) {
            throw CliError{*o.modeJson + ": not a mode: " + e.what()};
        }
    }
    const auto modes = LocalSettingsStore(folder, clock).loadModes();
    if (modes && !modes->empty()) {
        const auto active = files.loadSettings().lastActiveModeId;
        for (const auto& m : *modes) {
            if (active && m.id.string() == *active) return m;
        }
        for (const auto& m : *modes) {
            if (m.isDefault) return m;
        }
        return modes->front();
    }
    Mode fallback = Mode::fresh(kDefaultModeName);
    fallback.isDefault = true;
    fallback.modeTypeId = kDefaultModeTypeId;
    return fallback;
}

std::vector<Replacement> replacementsFrom(const TranscribeOptions& o, const AppSettings& settings) {
    std::vector<Replacement> out;
    if (!o.replacementsJson) {
        for (const auto& r : settings.textReplacements) out.push_back(r.toReplacement());
        return out;
    }
    const Json json = readJsonFile(*o.replacementsJson);
    if (!json.is_array())
        throw CliError{*o.replacementsJson + ": expected a JSON array of {\"from\", \"to\"}"};
    for (const auto& item : json) {
        try {
            requireObjectValue(item, "replacement");
            out.push_back(Replacement::make(requireString(item, "from"), requireString(item, "to")));
        } catch (const DecodingError& e) {
            throw CliError{*o.replacementsJson + ": " + e.what()};
        }
    }
    return out;
}

int runTranscribe(CliContext& ctx) {
    const TranscribeOptions o = parseTranscribeArgs(ctx.args);
    ScopedLogSink logs(o.verbose ? std::shared_ptr<LogSink>(std::make_shared<StreamLogSink>(std::cerr))
                                 : std::make_shared<DiscardLogSink>());

    CliGraph cli(ctx, VOCLE_VERSION);
    RunLoopMainQueue& mainQueue = cli.queue;
    const Clock& clock = cli.clock;
    const DataFolder& folder = cli.services.folder;
    const FileStorageManager& files = cli.services.files;
    SessionStore& sessions = cli.services.sessions;
    if (!sessions.load()) {
        throw CliError{"not signed in: sign in with the Vocle app first (no session in " +
                       (files.appSupportDirectory() / "session.json").string() + ")"};
    }
    const AppSettings settings = files.loadSettings();
    const Mode mode = modeFrom(o, folder, files, clock);
    const std::string vocab = o.vocab.value_or(settings.vocabularyWords);
    const auto replacements = replacementsFrom(o, settings);

    AudioFileProcessor& processor = *cli.services.audioFileProcessor;
    // The user's own file stays theirs: a failure here is reported, not kept.
    processor.setFailedDictationKeeper(nullptr);

    std::optional<Result<std::string>> result;
    processor.processRecording(o.file, mode, vocab, replacements, [&](Result<std::string> r) {
        // May arrive on the conversion queue; the main queue owns `result`.
        mainQueue.post([&result, r = std::move(r)] { result = r; });
    });
    // Four attempts of at most 60 s inside the 120 s budget, plus compression.
    if (!mainQueue.runUntil([&] { return result.has_value(); }, Seconds(600)))
        throw CliError{"no answer from the backend"};
    if (!result->ok()) throw CliError{result->error().description};
    ctx.out << result->value() << std::endl;
    return 0;
}

int runConvert(CliContext& ctx) {
    if (ctx.args.size() != 2) throw CliError{"usage: vocle-cli convert IN.wav OUT.m4a", 2};
    try {
        AudioFormatConverter().convertToMP3(ctx.args[0], ctx.args[1]);
    } catch (const AudioFormatConverter::ConversionError& e) {
        throw CliError{e.what()};
    }
    return 0;
}

}  // namespace

void addBackendCommands(std::vector<CliCommand>& commands) {
    commands.push_back(
        {"transcribe",
         "transcribe FILE [--mode-json MODE.json] [--vocab TEXT] [--replacements R.json] [--verbose]",
         "Compress FILE, send it to the configured backend with the stored session and print the "
         "transcript (backend: $VOCLE_BACKEND_URL, else $XDG_CONFIG_HOME/vocle/backend.conf).",
         runTranscribe});
    commands.push_back({"convert", "convert IN.wav OUT.m4a",
                        "Convert a recording to mono AAC the way uploads are compressed.", runConvert});
}

}  // namespace vocle::cli
