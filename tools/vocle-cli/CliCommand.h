#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace vocle::cli {

// What every command gets: its arguments (after the command name), the streams and the environment.
struct CliContext {
    std::vector<std::string> args;
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    const Environment& env;
};

// A failure that the command reports as one line on standard error, exiting non-zero.
struct CliError {
    std::string message;
    int exitCode = 1;
};

struct CliCommand {
    std::string name;
    std::string usage;    // e.g. "record SECONDS OUT.wav [--system]"
    std::string summary;  // one line for --help
    std::function<int(CliContext&)> run;
};

// Each group of commands lives in its own file and adds itself here.
void addStorageCommands(std::vector<CliCommand>& commands);
void addSessionCommands(std::vector<CliCommand>& commands);
void addBackendCommands(std::vector<CliCommand>& commands);
void addAudioCommands(std::vector<CliCommand>& commands);
void addControlCommands(std::vector<CliCommand>& commands);
void addPendingCommands(std::vector<CliCommand>& commands);

}  // namespace vocle::cli
