#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "app/ServerApp.h"
#include "foundation/Clock.h"
#include "support/ChildProcess.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

namespace vocle::testing {

using namespace std::chrono_literals;

// A whole desktop for one user, private to the test: an X server with a window manager, a session bus,
// a sound server with a virtual microphone (PulseAudio, or PipeWire: see TestSoundServer), the real
// vocle-server with speech recognition, and a data folder already signed in. Everything the harness
// starts is stopped with it. A part that does not come up throws std::runtime_error with what it printed.
class DesktopHarness {
  public:
    // `server`: an X desktop (Xvfb and openbox), or a headless sway with XWayland.
    explicit DesktopHarness(DesktopSession::Server server = DesktopSession::Server::x11);
    ~DesktopHarness();

    bool isWayland() const {
        return server_kind_ == DesktopSession::Server::wayland || server_kind_ == DesktopSession::Server::gnome;
    }
    // The session itself (GNOME: its consent dialogs are answered through it).
    DesktopSession& session() { return *desktop_; }
    // Wayland: runs swaymsg against the compositor; its output, or none on failure.
    std::optional<std::string> swaymsg(const std::vector<std::string>& args) const { return desktop_->swaymsg(args); }
    // Starts a program of another application in the session (stopped with the harness); its output goes
    // to root()/<name>.log.
    ChildProcess& startProgram(const std::vector<std::string>& argv,
                               const std::map<std::string, std::string>& extraEnv = {});
    // vocle-cli with the session's environment; its exit status and output.
    RunResult cli(const std::vector<std::string>& args) const;

    // The environment every desktop program of this session gets.
    const std::map<std::string, std::string>& environment() const { return env_; }
    // Adds to the environment of programs started from now on.
    void setEnvironment(const std::string& name, const std::string& value) { env_[name] = value; }
    std::filesystem::path root() const { return dir_.path(); }
    std::filesystem::path dataFolder() const { return dir_.path() / "data" / "Vocle"; }
    std::filesystem::path temporaryFolder() const { return dir_.path() / "tmp"; }
    std::string backendURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

    void stopServer();
    // The stopped server back on its old port with its data (accounts and sessions) intact.
    void restartServer();
    // The support messages the server has taken in, oldest first.
    std::vector<std::string> supportMessages();
    // The sign-in code the server mailed last.
    std::string latestCode() const;
    void signIn(const std::string& email);

    // Starts `vocle` and waits for `readyLine` in its own log (by default: start-up complete).
    void startVocle(const std::string& readyLine = "AppState: Initialization complete!");
    ChildProcess& vocle() { return *vocle_; }
    void stopVocle() { vocle_.reset(); }
    std::string vocleLog() const;
    bool waitForLog(const std::string& text, std::chrono::milliseconds deadline, size_t from = 0) const;
    size_t logSize() const { return vocleLog().size(); }

    // A text window of another application, focused; returns the file its text is mirrored to.
    std::filesystem::path openTextTarget(const std::string& wmClass = "vocle-test-text-target");
    std::string targetText() const;
    std::string activeWindowName() const;

    // Key presses through XTest, as a user's keyboard would make them ("ctrl+alt+space", "Escape").
    void pressKeys(const std::string& keys) const;
    // Text typed key by key into the focused window.
    void typeText(const std::string& text) const;
    // A left click at a point of the screen, through XTest.
    void click(int x, int y) const;
    // Turns the mouse wheel over a point: positive `steps` scroll down, negative up.
    void scroll(int x, int y, int steps) const;
    // Clicks into the text window of the other application, as a user giving it the focus would.
    void focusTextTarget() const;
    // The whole screen as a PNG (on Wayland through grim, so native windows show too).
    void screenshot(const std::filesystem::path& file) const;

    // Starts the desktop's accessibility bus and registry; programs started afterwards publish their
    // widgets on it (Qt's bridge), and this process can read them through libatspi.
    void enableAccessibility();
    // Plays a file into the virtual microphone (or, with `toSpeakers`, to the default output) to the end.
    void play(const std::filesystem::path& file, bool toSpeakers = false) const;

    std::string history() const;
    // What the desktop's clipboard holds as text (empty when nothing).
    std::string clipboard() const;
    // Puts text on the clipboard as another application would (xclip keeps it until someone takes over).
    void setClipboard(const std::string& text) const;

    static std::filesystem::path binary(const std::string& relative);

  private:
    void startDesktop();
    void startPulseAudio();
    void startServer();

    TempDir dir_;
    std::map<std::string, std::string> env_;
    std::unique_ptr<DesktopSession> desktop_;
    DesktopSession::Server server_kind_;
    std::unique_ptr<ChildProcess> vocle_;
    std::vector<std::unique_ptr<ChildProcess>> programs_;
    std::unique_ptr<ChildProcess> target_;
    std::unique_ptr<ChildProcess> accessibilityBus_;
    std::unique_ptr<ChildProcess> accessibilityRegistry_;
    std::filesystem::path targetFile_;
    SystemClock clock_;
    server::ServerConfig serverConfig_;
    std::unique_ptr<server::ServerApp> server_;
    int port_ = 0;
};

}  // namespace vocle::testing
