#include "support/TestSoundServer.h"

#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "support/ChildProcess.h"

namespace vocle::testing {

namespace {

bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (!folder.empty() && ::access((std::filesystem::path(folder) / program).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

}  // namespace

TestSoundServer TestSoundServer::fromEnvironment() {
    const char* kind = std::getenv("VOCLE_TEST_SOUND_SERVER");
    return TestSoundServer(kind && std::string(kind) == "pipewire" ? Kind::pipewire : Kind::pulseaudio);
}

std::string TestSoundServer::name() const {
    return kind_ == Kind::pipewire ? "PipeWire" : "PulseAudio";
}

std::filesystem::path TestSoundServer::startScript() const {
    return std::filesystem::path(VOCLE_SOURCE_DIR) / "scripts" /
           (kind_ == Kind::pipewire ? "start-test-pipewire.sh" : "start-test-pulseaudio.sh");
}

std::optional<std::string> TestSoundServer::unavailable() const {
    const std::vector<std::string> programs =
        kind_ == Kind::pipewire
            ? std::vector<std::string>{"pipewire", "pipewire-pulse", "wireplumber", "pactl"}
            : std::vector<std::string>{"pulseaudio", "pactl"};
    for (const auto& program : programs) {
        if (!onPath(program))
            return name() + " is not installed (" + program + " not found); scripts/setup.sh installs it";
    }
    return std::nullopt;
}

std::string TestSoundServer::start() const {
    const auto result = runProgram({{startScript().string()}}, std::chrono::seconds(30));
    std::smatch m;
    if (result.status != 0 || !std::regex_search(result.output, m, std::regex("export PULSE_SERVER=(\\S+)")))
        throw std::runtime_error(name() + " did not start: " + result.output);
    return m[1];
}

bool soundServerRequired() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

}  // namespace vocle::testing
