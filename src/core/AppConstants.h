#pragma once

#include <string>

namespace vocle {

inline const std::string kDefaultModeTypeId = "22222222-2222-2222-2222-222222222222";
inline const std::string kDefaultModeName = "Default";

// Main-window tabs. The gaps (3, 6) are deliberate: the index is persisted and compared by value.
namespace Tab {
inline constexpr int home = -1;
inline constexpr int modes = 0;
inline constexpr int replacements = 1;
inline constexpr int vocabulary = 2;
inline constexpr int settings = 4;
inline constexpr int history = 5;
inline constexpr int help = 7;
}  // namespace Tab

// Process-wide notification names.
namespace Notifications {
inline const std::string transcriptionCompleted = "TranscriptionCompleted";
inline const std::string audioLevelUpdate = "AudioLevelUpdate";
inline const std::string autoSwitchModeForWebsite = "AutoSwitchModeForWebsite";
inline const std::string autoSwitchModeForApplication = "AutoSwitchModeForApplication";
inline const std::string toggleRecording = "ToggleRecording";
inline const std::string showPermissions = "ShowPermissions";
}  // namespace Notifications

// Prints the factory defaults block that AppState logs at construction.
void logAppDefaultValues();

}  // namespace vocle
