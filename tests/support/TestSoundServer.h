#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace vocle::testing {

// The sound server a test process runs against. PulseAudio unless VOCLE_TEST_SOUND_SERVER=pipewire,
// which CTest sets on the "pipewire." copies of the sound tests: PipeWire with pipewire-pulse and
// WirePlumber on a private runtime directory, reached through the same libpulse client.
class TestSoundServer {
  public:
    enum class Kind { pulseaudio, pipewire };

    static TestSoundServer fromEnvironment();
    explicit TestSoundServer(Kind kind) : kind_(kind) {}

    Kind kind() const { return kind_; }
    // "PulseAudio" or "PipeWire", for messages that must say which server failed.
    std::string name() const;
    // The script that starts the server (or finds it running) and builds the test devices.
    std::filesystem::path startScript() const;
    // Why the server cannot run on this machine (its programs are not installed), if so.
    std::optional<std::string> unavailable() const;
    // Starts or reuses the server with the test devices; returns its PULSE_SERVER address. Throws
    // std::runtime_error with the script's output when it does not come up.
    std::string start() const;

  private:
    Kind kind_;
};

// Where a missing sound server must fail rather than skip: CI installs every server.
bool soundServerRequired();

}  // namespace vocle::testing
