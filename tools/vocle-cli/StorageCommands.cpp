#include "CliCommand.h"

namespace vocle::cli {

void addStorageCommands(std::vector<CliCommand>&) {}

}  // namespace vocle::cli
