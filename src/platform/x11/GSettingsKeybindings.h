#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/custom_keybindings.h"

namespace vocle {

// GNOME's custom keyboard shortcuts, written through GSettings: the list of entry paths under
// org.gnome.settings-daemon.plugins.media-keys "custom-keybindings", and one relocatable
// ...media-keys.custom-keybinding entry (name, command, binding) at each path. Ours lives at
// ".../custom-keybindings/<id>/"; an entry the user made by hand for the same command counts as ours, so a
// click never adds a second one. Schemas are looked up before use: GSettings aborts the process on one that
// is not installed.
class GSettingsKeybindings final : public CustomKeybindings {
  public:
    static constexpr const char* kSchema = "org.gnome.settings-daemon.plugins.media-keys";
    static constexpr const char* kEntrySchema =
        "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
    static constexpr const char* kListKey = "custom-keybindings";
    static constexpr const char* kEntryBase =
        "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/";

    // `schemaDirectory`: look schemas up there alone instead of in the system's (for tests).
    explicit GSettingsKeybindings(std::string id = "vocle-toggle",
                                  std::optional<std::filesystem::path> schemaDirectory = std::nullopt);

    std::optional<std::string> unavailableReason() const override;
    std::optional<DesktopKeybinding> find() const override;
    std::optional<std::string> write(const DesktopKeybinding& binding) override;

    std::string ownPath() const { return kEntryBase + id_ + "/"; }

  private:
    // The listed path holding our entry, or none.
    std::optional<std::string> entryPath() const;

    std::string id_;
    std::optional<std::filesystem::path> schemaDirectory_;
};

}  // namespace vocle
