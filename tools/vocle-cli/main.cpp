#include <iostream>

#include "CliCommand.h"

using namespace vocle::cli;

namespace {

std::vector<CliCommand> allCommands() {
    std::vector<CliCommand> commands;
    addStorageCommands(commands);
    addSessionCommands(commands);
    addBackendCommands(commands);
    addPendingCommands(commands);
    addAudioCommands(commands);
    addControlCommands(commands);
    return commands;
}

void printHelp(const std::vector<CliCommand>& commands, std::ostream& out) {
    out << "Usage: vocle-cli COMMAND [ARGS]\n\nThe command-line companion of Vocle.\n\nCommands:\n";
    for (const auto& c : commands) {
        out << "  " << c.usage << "\n      " << c.summary << "\n";
    }
    out << "\nData lives in $XDG_DATA_HOME/Vocle (default ~/.local/share/Vocle).\n";
}

}  // namespace

int main(int argc, char** argv) {
    const auto commands = allCommands();
    if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h" ||
        std::string(argv[1]) == "help") {
        printHelp(commands, std::cout);
        return argc < 2 ? 2 : 0;
    }
    const std::string name = argv[1];
    for (const auto& c : commands) {
        if (c.name != name) continue;
        vocle::ProcessEnvironment env;
        CliContext ctx{std::vector<std::string>(argv + 2, argv + argc), std::cin, std::cout, std::cerr, env};
        try {
            return c.run(ctx);
        } catch (const CliError& e) {
            std::cerr << "vocle-cli " << name << ": " << e.message << "\n";
            return e.exitCode;
        } catch (const std::exception& e) {
            std::cerr << "vocle-cli " << name << ": " << e.what() << "\n";
            return 1;
        }
    }
    std::cerr << "vocle-cli: unknown command \"" << name << "\" (see vocle-cli --help)\n";
    return 2;
}
