#include "support/desktop/DesktopHarness.h"

#include <stdexcept>

#include <unistd.h>

#include <sstream>

#include "support/GnomeSession.h"
#include "support/TestSoundServer.h"

namespace vocle::testing {

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}


void require(bool condition, const std::string& message) {
    if (!condition) throw std::runtime_error(message);
}

}  // namespace

fs::path DesktopHarness::binary(const std::string& relative) { return fs::path(VOCLE_BINARY_DIR) / relative; }

DesktopHarness::DesktopHarness(DesktopSession::Server server) : server_kind_(server) {
    for (const char* sub : {"data", "config", "home", "tmp", "run"}) fs::create_directories(dir_.path() / sub);
    fs::permissions(dir_.path() / "run", fs::perms::owner_all, fs::perm_options::replace);
    env_ = {
        {"XDG_DATA_HOME", (dir_.path() / "data").string()},
        {"XDG_CONFIG_HOME", (dir_.path() / "config").string()},
        {"XDG_RUNTIME_DIR", (dir_.path() / "run").string()},
        {"HOME", (dir_.path() / "home").string()},
        {"TMPDIR", temporaryFolder().string()},
        {"QT_QPA_PLATFORM", "xcb"},
        {"NO_AT_BRIDGE", ""},
    };
    startDesktop();
    startPulseAudio();
    startServer();
}

DesktopHarness::~DesktopHarness() {
    programs_.clear();
    target_.reset();
    vocle_.reset();
    accessibilityRegistry_.reset();
    accessibilityBus_.reset();
    stopServer();
    desktop_.reset();
}

void DesktopHarness::startDesktop() {
    DesktopSession::Options options;
    options.screen = "1440x900x24";
    options.server = server_kind_;
    // Openbox as it comes, window-menu key included: the default shortcut must be free there.
    options.windowManagerKeyBindings = true;
    desktop_ = std::make_unique<DesktopSession>(options);
    env_["DISPLAY"] = desktop_->display();
    env_["DBUS_SESSION_BUS_ADDRESS"] = desktop_->busAddress();
    // Programs keep the harness's own runtime dir; the compositor's socket is named by its full path.
    if (isWayland() || server_kind_ == DesktopSession::Server::kde)
        env_["WAYLAND_DISPLAY"] = (desktop_->runtimeDir() / desktop_->waylandDisplay()).string();
    // GNOME: XWayland's cookie lives in the compositor's runtime dir; programs learn the desktop by name.
    if (server_kind_ == DesktopSession::Server::gnome) {
        if (const char* cookie = ::getenv("XAUTHORITY")) env_["XAUTHORITY"] = cookie;
        env_["XDG_CURRENT_DESKTOP"] = "GNOME";
    }
}

ChildProcess& DesktopHarness::startProgram(const std::vector<std::string>& argv,
                                           const std::map<std::string, std::string>& extraEnv) {
    ChildProcess::Options options{argv, env_};
    for (const auto& [name, value] : extraEnv) options.environment[name] = value;
    options.outputFile = dir_.path() / (fs::path(argv.at(0)).filename().string() + ".log");
    programs_.push_back(std::make_unique<ChildProcess>(options));
    return *programs_.back();
}

RunResult DesktopHarness::cli(const std::vector<std::string>& args) const {
    std::vector<std::string> argv = {binary("tools/vocle-cli/vocle-cli").string()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram({argv, env_}, 30s);
}

void DesktopHarness::startPulseAudio() {
    const auto sound = TestSoundServer::fromEnvironment();
    // The test script's PulseAudio daemon (scripts/test.sh starts it); started here when the test runs
    // alone. PipeWire always comes from its own script, whatever PULSE_SERVER says.
    const char* server = std::getenv("PULSE_SERVER");
    if (sound.kind() == TestSoundServer::Kind::pulseaudio && server && *server) {
        env_["PULSE_SERVER"] = server;
    } else {
        env_["PULSE_SERVER"] = sound.start();
    }
    const auto info = runProgram({{"pactl", "list", "short", "sources"}, env_}, 10s);
    require(info.output.find("vocle_mic") != std::string::npos, "no virtual microphone: " + info.output);
}

void DesktopHarness::startServer() {
    serverConfig_.dataDir = dir_.path() / "server";
    serverConfig_.listenPort = 0;
    serverConfig_.modelDir = VOCLE_POCKETSPHINX_MODEL_DIR;
    server_ = std::make_unique<server::ServerApp>(serverConfig_, clock_);
    port_ = server_->start();
    env_["VOCLE_BACKEND_URL"] = backendURL();
}

void DesktopHarness::restartServer() {
    stopServer();
    serverConfig_.listenPort = port_;
    server_ = std::make_unique<server::ServerApp>(serverConfig_, clock_);
    require(server_->start() == port_, "the server did not come back on port " + std::to_string(port_));
}

void DesktopHarness::stopServer() {
    if (server_) server_->stop();
    server_.reset();
}

std::vector<std::string> DesktopHarness::supportMessages() {
    require(server_ != nullptr, "the server is stopped");
    return server_->database().transaction([](server::SqlConnection& c) {
        std::vector<std::string> messages;
        for (const auto& row : c.query("SELECT message FROM support_messages ORDER BY id")) messages.push_back(row.text(0));
        return messages;
    });
}

std::string DesktopHarness::latestCode() const {
    std::string code;
    waitFor(
        [&] {
            if (!fs::exists(serverConfig_.outboxDir())) return false;
            auto newest = fs::file_time_type::min();
            for (const auto& entry : fs::directory_iterator(serverConfig_.outboxDir())) {
                // Messages being written are hidden temporary files.
                if (entry.path().extension() != ".eml") continue;
                std::error_code error;
                const auto written = fs::last_write_time(entry.path(), error);
                if (error) continue;
                std::smatch m;
                const std::string text = readFile(entry.path());
                if (written >= newest &&
                    std::regex_search(text, m, std::regex("\\n +([0-9]{6})\\r?\\n"))) {
                    newest = written;
                    code = m[1];
                }
            }
            return !code.empty();
        },
        10s);
    return code;
}

void DesktopHarness::signIn(const std::string& email) {
    ChildProcess::Options options{{binary("tools/vocle-cli/vocle-cli").string(), "signin", email}, env_,
                                  dir_.path() / "signin.log"};
    options.keepInputOpen = true;
    ChildProcess cli(options);
    const std::string code = latestCode();
    require(!code.empty(), "no sign-in code was mailed: " + cli.output());
    cli.writeInput(code + "\n");
    cli.closeInput();
    require(cli.waitForExit(60s) == 0, "vocle-cli signin failed: " + cli.output());
}

void DesktopHarness::startVocle(const std::string& readyLine) {
    // A restarted app appends to the same log; only its own lines count.
    const size_t from = logSize();
    vocle_ = std::make_unique<ChildProcess>(
        ChildProcess::Options{{binary("app/vocle").string()}, env_, dir_.path() / "vocle.log"});
    require(waitForLog(readyLine, 60s, from), "vocle did not log \"" + readyLine + "\":\n" + vocleLog().substr(from));
}

std::string DesktopHarness::vocleLog() const { return readFile(dir_.path() / "vocle.log"); }

bool DesktopHarness::waitForLog(const std::string& text, std::chrono::milliseconds deadline, size_t from) const {
    return waitFor([&] { return vocleLog().find(text, from) != std::string::npos; }, deadline, 50ms);
}

fs::path DesktopHarness::openTextTarget(const std::string& wmClass) {
    targetFile_ = dir_.path() / "target.txt";
    target_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        {binary("tests/vocle-test-text-target").string(), targetFile_.string(), wmClass}, env_,
        dir_.path() / "target.log"});
    const bool focused = waitFor([&] { return activeWindowName() == "Vocle test target"; }, 20s, 100ms);
    require(focused, "the text window did not get the focus; active: " + activeWindowName());
    return targetFile_;
}

std::string DesktopHarness::targetText() const { return fs::exists(targetFile_) ? readFile(targetFile_) : ""; }

std::string DesktopHarness::activeWindowName() const {
    auto out = runProgram({{"xdotool", "getactivewindow", "getwindowname"}, env_}, 5s).output;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

void DesktopHarness::pressKeys(const std::string& keys) const {
    // Held for a moment like a finger would, so the monitors see a real press and release.
    const auto result = runProgram({{"xdotool", "key", "--delay", "60", keys}, env_}, 10s);
    require(result.status == 0, "xdotool key " + keys + " failed: " + result.output);
}

void DesktopHarness::typeText(const std::string& text) const {
    const auto result = runProgram({{"xdotool", "type", "--delay", "40", "--", text}, env_}, 30s);
    require(result.status == 0, "xdotool type failed: " + result.output);
}

void DesktopHarness::click(int x, int y) const {
    // No --sync: it waits for the pointer to move and fails when the pointer is already there.
    const auto result =
        runProgram({{"xdotool", "mousemove", std::to_string(x), std::to_string(y), "sleep", "0.05", "click", "1"}, env_},
                   10s);
    require(result.status == 0, "xdotool click failed: " + result.output);
}

void DesktopHarness::scroll(int x, int y, int steps) const {
    const auto result = runProgram({{"xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "--repeat",
                                     std::to_string(std::abs(steps)), "--delay", "30", steps > 0 ? "5" : "4"},
                                    env_},
                                   10s);
    require(result.status == 0, "xdotool scroll failed: " + result.output);
}

void DesktopHarness::focusTextTarget() const {
    const auto found = runProgram({{"xdotool", "search", "--name", "^Vocle test target$", "getwindowgeometry",
                                    "--shell"},
                                   env_},
                                  10s);
    std::smatch x, y;
    require(std::regex_search(found.output, x, std::regex("X=(-?[0-9]+)")) &&
                std::regex_search(found.output, y, std::regex("Y=(-?[0-9]+)")),
            "no text window: " + found.output);
    click(std::stoi(x[1]) + 40, std::stoi(y[1]) + 40);
    const bool focused = waitFor([&] { return activeWindowName() == "Vocle test target"; }, 10s, 50ms);
    require(focused, "the text window did not take the focus; active: " + activeWindowName());
}

void DesktopHarness::screenshot(const fs::path& file) const {
    fs::create_directories(file.parent_path());
    // GNOME has no screen-copy protocol for grim: mutter's own screen cast.
    if (auto* gnome = desktop_->gnome()) return gnome->screenshot(file);
    const auto result =
        isWayland()
            ? runProgram({{"grim", file.string()}, env_}, 30s)
            : runProgram({{"import", "-display", env_.at("DISPLAY"), "-window", "root", file.string()}, env_},
                         30s);
    require(result.status == 0 && fs::exists(file), "import " + file.string() + " failed: " + result.output);
}

void DesktopHarness::enableAccessibility() {
    constexpr const char* kBusLauncher = "/usr/libexec/at-spi-bus-launcher";
    constexpr const char* kRegistry = "/usr/libexec/at-spi2-registryd";
    accessibilityBus_ = std::make_unique<ChildProcess>(
        ChildProcess::Options{{kBusLauncher}, env_, dir_.path() / "at-spi-bus-launcher.log"});
    const bool up = waitFor(
        [&] {
            return runProgram({{"dbus-send", "--session", "--print-reply", "--dest=org.a11y.Bus", "/org/a11y/bus",
                                "org.a11y.Bus.GetAddress"},
                               env_},
                              5s)
                       .status == 0;
        },
        15s, 100ms);
    require(up, "the accessibility bus did not start: " + readFile(dir_.path() / "at-spi-bus-launcher.log"));
    accessibilityRegistry_ = std::make_unique<ChildProcess>(
        ChildProcess::Options{{kRegistry}, env_, dir_.path() / "at-spi2-registryd.log"});
    // Qt publishes its widgets only while a reader is known to exist; say so from the start.
    env_["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
}

void DesktopHarness::play(const fs::path& file, bool toSpeakers) const {
    const auto result = runProgram(
        {{"paplay", "--device=" + std::string(toSpeakers ? "vocle_speaker" : "vocle_mic_feed"), file.string()}, env_},
        60s);
    require(result.status == 0, "paplay " + file.string() + " failed: " + result.output);
}

std::string DesktopHarness::clipboard() const {
    const auto result = runProgram({{"xclip", "-o", "-selection", "clipboard"}, env_}, 10s);
    return result.status == 0 ? result.output : "";
}

void DesktopHarness::setClipboard(const std::string& text) const {
    ChildProcess::Options options{{"xclip", "-i", "-selection", "clipboard"}, env_};
    options.input = text;
    const auto result = runProgram(options, 10s);
    require(result.status == 0 && waitFor([&] { return clipboard() == text; }, 5s, 50ms),
            "xclip did not take the clipboard: " + result.output);
}

std::string DesktopHarness::history() const {
    const fs::path file = dataFolder() / "transcription_history.json";
    return fs::exists(file) ? readFile(file) : "";
}

}  // namespace vocle::testing
