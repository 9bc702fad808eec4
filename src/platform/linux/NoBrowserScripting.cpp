#include "platform/linux/NoBrowserScripting.h"

namespace vocle {

ScriptOutcome NoBrowserScripting::execute(const std::string&) { return ScriptOutcome::notCreated(); }

}  // namespace vocle
