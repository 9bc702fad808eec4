#pragma once

#include <optional>
#include <vector>

#include "core/Mode.h"
#include "foundation/Signal.h"

namespace vocle {

// The list of modes and the active one. Grows the editing and switching operations with the modes work.
class ModeManager {
public:
    Observable<std::vector<Mode>> modes;
    Observable<std::optional<Mode>> activeMode;
};

}  // namespace vocle
