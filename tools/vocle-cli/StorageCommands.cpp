#include <ostream>

#include "CliCommand.h"
#include "desktop/KeyCaps.h"
#include "desktop/Shortcut.h"
#include "desktop/ShortcutManager.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "storage/FileStorageManager.h"
#include "storage/HistoryService.h"
#include "storage/LocalSettingsStore.h"

namespace vocle::cli {

namespace {

// A stored shortcut as a person reads it; the file holds Base64 of its JSON. Absent: the default applies.
Json describeShortcut(const std::optional<std::string>& stored, const Shortcut& standard) {
    Json j = Json::object();
    std::optional<Shortcut> shortcut = standard;
    if (stored) {
        shortcut = Shortcut::decode(*stored);
        if (!shortcut) {
            j["error"] = "not a shortcut record; the app uses the default";
            j["stored"] = *stored;
            shortcut = standard;
        }
    } else {
        j["default"] = true;
    }
    const auto parts = ShortcutManager::displayParts(shortcut->keyCode, shortcut->modifiers);
    j["keyCode"] = shortcut->keyCode;
    j["modifiersRaw"] = shortcut->modifiers;
    j["key"] = parts.back();
    j["modifiers"] = modifierKeyCaps(shortcut->modifiers);
    j["display"] = joinKeyCaps(parts);
    return j;
}

void expectNoArguments(const CliContext& ctx) {
    if (!ctx.args.empty()) throw CliError{"unexpected argument \"" + ctx.args.front() + "\""};
}

template <class F>
int withStores(CliContext& ctx, F body) {
    expectNoArguments(ctx);
    ScopedLogSink logs(std::make_shared<StreamLogSink>(ctx.err));
    SystemClock clock;
    DataFolder folder = DataFolder::fromEnvironment(ctx.env);
    body(folder, clock);
    return 0;
}

}  // namespace

void addStorageCommands(std::vector<CliCommand>& commands) {
    commands.push_back({"settings", "settings",
                        "Print the settings record as the app loads it (JSON; shortcuts decoded).",
                        [](CliContext& ctx) {
                            return withStores(ctx, [&](const DataFolder& folder, const Clock& clock) {
                                FileStorageManager files(folder, clock);
                                const AppSettings settings = files.loadSettings();
                                Json json = settings.toJson();
                                json["toggleShortcut"] =
                                    describeShortcut(settings.toggleShortcut, Shortcut::defaultToggle());
                                json["cancelShortcut"] =
                                    describeShortcut(settings.cancelShortcut, Shortcut::defaultCancel());
                                ctx.out << toPrettyJson(json) << "\n";
                            });
                        }});
    commands.push_back({"history", "history", "Print the transcription history as loaded (JSON array).",
                        [](CliContext& ctx) {
                            return withStores(ctx, [&](const DataFolder& folder, const Clock& clock) {
                                HistoryService history(folder, clock);
                                Json list = Json::array();
                                for (const auto& e : history.transcriptions.get()) list.push_back(e.toJson());
                                ctx.out << toPrettyJson(list) << "\n";
                            });
                        }});
    commands.push_back({"modes", "modes", "Print the stored modes (JSON array), or null when none are usable.",
                        [](CliContext& ctx) {
                            return withStores(ctx, [&](const DataFolder& folder, const Clock& clock) {
                                LocalSettingsStore store(folder, clock);
                                auto modes = store.loadModes();
                                if (!modes) {
                                    ctx.out << "null\n";
                                    return;
                                }
                                Json list = Json::array();
                                for (const auto& m : *modes) list.push_back(m.toJson());
                                ctx.out << toPrettyJson(list) << "\n";
                            });
                        }});
    commands.push_back({"device-id", "device-id", "Print this installation's device id.", [](CliContext& ctx) {
                            return withStores(ctx, [&](const DataFolder& folder, const Clock& clock) {
                                FileStorageManager files(folder, clock);
                                ctx.out << files.deviceId() << "\n";
                            });
                        }});
}

}  // namespace vocle::cli
