#include "platform/x11/GSettingsKeybindings.h"

#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "foundation/Log.h"

namespace vocle {

namespace {

struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct SchemaUnref {
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
struct SourceUnref {
    void operator()(GSettingsSchemaSource* source) const { g_settings_schema_source_unref(source); }
};
struct StrvFree {
    void operator()(gchar** strv) const { g_strfreev(strv); }
};
using Settings = std::unique_ptr<GSettings, ObjectUnref>;
using Schema = std::unique_ptr<GSettingsSchema, SchemaUnref>;
using SchemaSource = std::unique_ptr<GSettingsSchemaSource, SourceUnref>;
using Strv = std::unique_ptr<gchar*, StrvFree>;

SchemaSource openSource(const std::optional<std::filesystem::path>& directory) {
    if (!directory) {
        GSettingsSchemaSource* source = g_settings_schema_source_get_default();
        return SchemaSource(source ? g_settings_schema_source_ref(source) : nullptr);
    }
    GError* error = nullptr;
    GSettingsSchemaSource* source =
        g_settings_schema_source_new_from_directory(directory->c_str(), nullptr, TRUE, &error);
    if (error) g_error_free(error);
    return SchemaSource(source);
}

Schema lookup(const std::optional<std::filesystem::path>& directory, const char* id, const char* key) {
    const auto source = openSource(directory);
    if (!source) return nullptr;
    Schema schema(g_settings_schema_source_lookup(source.get(), id, TRUE));
    if (schema && !g_settings_schema_has_key(schema.get(), key)) return nullptr;
    return schema;
}

std::string text(GSettings* settings, const char* key) {
    gchar* value = g_settings_get_string(settings, key);
    std::string out = value ? value : "";
    g_free(value);
    return out;
}

std::vector<std::string> listed(GSettings* list) {
    Strv paths(g_settings_get_strv(list, GSettingsKeybindings::kListKey));
    std::vector<std::string> out;
    for (gchar** p = paths.get(); p && *p; ++p) out.emplace_back(*p);
    return out;
}

// "…/vocle-cli toggle" or "vocle-cli toggle", as the user may have typed it.
bool runsOurToggle(const std::string& command) {
    const std::string tail = "vocle-cli toggle";
    if (command.size() < tail.size() || command.compare(command.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    return command.size() == tail.size() || command[command.size() - tail.size() - 1] == '/';
}

// The entry paths GSettings accepts: absolute, ending in a slash, no empty parts.
bool validPath(const std::string& path) {
    return path.size() > 1 && path.front() == '/' && path.back() == '/' &&
           path.find("//") == std::string::npos;
}

}  // namespace

GSettingsKeybindings::GSettingsKeybindings(std::string id,
                                           std::optional<std::filesystem::path> schemaDirectory)
    : id_(std::move(id)), schemaDirectory_(std::move(schemaDirectory)) {}

std::optional<std::string> GSettingsKeybindings::unavailableReason() const {
    // Without dconf's module GLib keeps settings in memory: a write would "succeed" and vanish at exit.
    const std::string backend = G_OBJECT_TYPE_NAME(g_settings_backend_get_default());
    if (backend == "GMemorySettingsBackend" || backend == "GNullSettingsBackend")
        return std::string(
            "GNOME's settings cannot be saved from here: GSettings has no storage on this system "
            "(the dconf-gsettings-backend package is missing). Bind the command below by hand.");
    if (!lookup(schemaDirectory_, kSchema, kListKey) || !lookup(schemaDirectory_, kEntrySchema, "binding"))
        return std::string(
                   "GNOME's keyboard shortcut settings are not installed on this system (the schema ") +
               kSchema +
               " is missing), so Vocle cannot add the shortcut there. Bind the command below by hand.";
    return std::nullopt;
}

std::optional<std::string> GSettingsKeybindings::entryPath() const {
    const auto listSchema = lookup(schemaDirectory_, kSchema, kListKey);
    const auto entrySchema = lookup(schemaDirectory_, kEntrySchema, "binding");
    if (!listSchema || !entrySchema) return std::nullopt;
    Settings list(g_settings_new_full(listSchema.get(), nullptr, nullptr));
    const auto paths = listed(list.get());
    for (const auto& path : paths)
        if (path == ownPath()) return path;
    for (const auto& path : paths) {
        if (!validPath(path)) continue;
        Settings entry(g_settings_new_full(entrySchema.get(), nullptr, path.c_str()));
        if (runsOurToggle(text(entry.get(), "command"))) return path;
    }
    return std::nullopt;
}

std::optional<DesktopKeybinding> GSettingsKeybindings::find() const {
    const auto path = entryPath();
    if (!path) return std::nullopt;
    const auto entrySchema = lookup(schemaDirectory_, kEntrySchema, "binding");
    Settings entry(g_settings_new_full(entrySchema.get(), nullptr, path->c_str()));
    return DesktopKeybinding{text(entry.get(), "name"), text(entry.get(), "command"),
                             text(entry.get(), "binding")};
}

std::optional<std::string> GSettingsKeybindings::write(const DesktopKeybinding& binding) {
    if (auto reason = unavailableReason()) {
        log("❌ GSettingsKeybindings: ", kSchema, " is not installed");
        return reason;
    }
    const auto listSchema = lookup(schemaDirectory_, kSchema, kListKey);
    const auto entrySchema = lookup(schemaDirectory_, kEntrySchema, "binding");
    const std::string path = entryPath().value_or(ownPath());
    // The entry first, then the list: the settings daemon binds a listed path as soon as it sees it.
    Settings entry(g_settings_new_full(entrySchema.get(), nullptr, path.c_str()));
    const bool entryWritten = g_settings_set_string(entry.get(), "name", binding.name.c_str()) &&
                              g_settings_set_string(entry.get(), "command", binding.command.c_str()) &&
                              g_settings_set_string(entry.get(), "binding", binding.binding.c_str());
    Settings list(g_settings_new_full(listSchema.get(), nullptr, nullptr));
    auto paths = listed(list.get());
    bool listWritten = true;
    if (entryWritten && std::find(paths.begin(), paths.end(), path) == paths.end()) {
        paths.push_back(path);
        std::vector<const gchar*> strv;
        for (const auto& p : paths) strv.push_back(p.c_str());
        strv.push_back(nullptr);
        listWritten = g_settings_set_strv(list.get(), kListKey, strv.data());
    }
    g_settings_sync();
    if (!entryWritten || !listWritten) {
        log("❌ GSettingsKeybindings: The keyboard shortcut settings at ", path, " are not writable");
        return std::string(
            "GNOME did not accept the shortcut: its keyboard shortcut settings are locked on this system.");
    }
    log("GSettingsKeybindings: Wrote ", path, " (", binding.binding, " runs ", binding.command, ")");
    return std::nullopt;
}

}  // namespace vocle
