#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/SettingsRecords.h"
#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Uuid.h"

namespace vocle {

// A mode as the cloud backup keeps it. A type-less mode is backed up as "Custom" (a transcription
// sends "raw" for the same mode; both are intended). Empty activation fields are left out.
SettingsMode settingsMode(const Mode& mode);

// The backup document of the application's current state: modes in list order, the replacements, the
// vocabulary ("" when none) and the active mode's id (left out when no mode is active).
SettingsDoc settingsDocument(const std::vector<Mode>& modes, const std::optional<Uuid>& activeModeId,
                             const std::optional<std::string>& vocabulary,
                             const std::vector<Replacement>& replacements);

}  // namespace vocle
