#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Signal.h"

namespace vocle {

// A running desktop application as the window system reports it. On Linux the application id is the
// desktop-file id (e.g. "org.mozilla.firefox", "google-chrome").
struct RunningApplication {
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> localizedName;
    int processIdentifier = 0;

    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

// Which application is in front and which ones run.
class Workspace {
  public:
    virtual ~Workspace() = default;

    virtual std::optional<RunningApplication> frontmostApplication() const = 0;
    virtual std::vector<RunningApplication> runningApplications() const = 0;

    // Called for every activation of an application, on the main queue. The application is absent
    // when the window system could not tell which one it was.
    using ActivationHandler = std::function<void(const std::optional<RunningApplication>&)>;
    [[nodiscard]] virtual Subscription observeActivations(ActivationHandler handler) = 0;
};

// Outcome of one script sent to a scriptable browser.
struct ScriptOutcome {
    enum class Kind { value, error, couldNotCreate };
    Kind kind = Kind::value;
    // The result's string value (none when the result has no string form).
    std::optional<std::string> value;
    // With Kind::error: the error number and message when the script host reported them.
    std::optional<int> errorNumber;
    std::optional<std::string> errorMessage;

    static ScriptOutcome result(std::optional<std::string> v) { return {Kind::value, std::move(v), {}, {}}; }
    static ScriptOutcome failure(std::optional<int> number, std::optional<std::string> message) {
        return {Kind::error, std::nullopt, number, std::move(message)};
    }
    static ScriptOutcome notCreated() { return {Kind::couldNotCreate, {}, {}, {}}; }
};

// Scripts that ask a browser for its address. Blocking; runs off the main queue. Desktops without
// such scripting report isAvailable() false and the accessibility path is used alone.
class BrowserScripting {
  public:
    virtual ~BrowserScripting() = default;
    virtual bool isAvailable() const = 0;
    virtual ScriptOutcome execute(const std::string& source) = 0;
};

// The script error number for "application is not running".
inline constexpr int kScriptErrorAppNotRunning = -600;

}  // namespace vocle
