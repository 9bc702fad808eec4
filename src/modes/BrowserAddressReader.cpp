#include "modes/BrowserAddressReader.h"

#include <memory>

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "modes/SupportedBrowsers.h"

namespace vocle {

const std::string BrowserAddressReader::kSafariScript =
    "tell application \"Safari\" to return URL of front document";
const std::string BrowserAddressReader::kChromeScripts[3] = {
    "tell app \"Google Chrome\" to get the url of the active tab of window 1",
    "tell application \"Google Chrome\" to return URL of active tab of front window",
    "tell application \"Google Chrome\" to get URL of active tab of first window",
};
const std::string BrowserAddressReader::kArcScript =
    "tell app \"Arc\" to get the url of the active tab of window 1";

namespace {

// Blocking; runs on the background queue.
std::optional<std::string> executeScript(BrowserScripting& scripting, const std::string& source) {
    log("AutoModeManager: Executing AppleScript: ", source);
    const ScriptOutcome outcome = scripting.execute(source);
    switch (outcome.kind) {
        case ScriptOutcome::Kind::couldNotCreate:
            log("AutoModeManager: Failed to create AppleScript object");
            return std::nullopt;
        case ScriptOutcome::Kind::error:
            if (outcome.errorNumber == kScriptErrorAppNotRunning) {
                log("AutoModeManager: Browser not running (expected error)");
            } else {
                log("AutoModeManager: AppleScript error (code ", outcome.errorNumber.value_or(0),
                    "): ", outcome.errorMessage.value_or("Unknown error"));
            }
            return std::nullopt;
        case ScriptOutcome::Kind::value:
            break;
    }
    if (outcome.value && !outcome.value->empty()) {
        log("AutoModeManager: AppleScript success, result: '", *outcome.value, "'");
        return outcome.value;
    }
    log("AutoModeManager: AppleScript returned empty or nil result");
    return std::nullopt;
}

// Depth-first walk of a window for a text field holding a web address. Deep trees are cut off at
// kMaxSearchDepth and kMaxChildrenPerElement; failures are logged one time in fifty.
std::optional<std::string> searchForAddress(Accessibility& ax, RandomSource& random, const AXElement& element,
                                            int depth) {
    if (depth >= BrowserAddressReader::kMaxSearchDepth) return std::nullopt;
    const auto role = ax.role(element);
    if (role.code != kAXSuccess) {
        if (random.next(49) == 0) log("AutoModeManager: Failed to get element role, AX result: ", role.code);
    } else if (role.value == kAXTextFieldRole) {
        const auto value = ax.stringValue(element);
        if (value.code == kAXSuccess && value.value && value.value->starts_with("http")) return value.value;
    }
    const auto children = ax.children(element);
    if (children.code != kAXSuccess || !children.value) {
        if (random.next(49) == 0)
            log("AutoModeManager: Failed to get element children, AX result: ", children.code);
        return std::nullopt;
    }
    size_t visited = 0;
    for (const auto& child : *children.value) {
        if (visited++ >= BrowserAddressReader::kMaxChildrenPerElement) break;
        if (auto found = searchForAddress(ax, random, child, depth + 1)) return found;
    }
    return std::nullopt;
}

std::optional<std::string> lookUpAddress(Accessibility& ax, RandomSource& random, int pid) {
    const AXElement app = ax.applicationElement(pid);
    const auto window = ax.focusedWindow(app);
    if (window.code != kAXSuccess || !window.value || !*window.value) {
        log("AutoModeManager: Failed to get focused window, AX result: ",
            window.code != kAXSuccess ? window.code : kAXNoValue);
        return std::nullopt;
    }
    return searchForAddress(ax, random, *window.value, 0);
}

}  // namespace

BrowserAddressReader::BrowserAddressReader(MainQueue& main, DispatchQueue& background, Workspace& workspace,
                                           BrowserScripting& scripting, Accessibility& accessibility,
                                           RandomSource& random)
    : main_(main),
      background_(background),
      workspace_(workspace),
      scripting_(scripting),
      accessibility_(accessibility),
      random_(random) {}

void BrowserAddressReader::read(const std::string& bundleId, std::optional<int> accessibilityPid,
                                Completion completion) {
    bool running = false;
    for (const auto& app : workspace_.runningApplications()) {
        if (app.bundleIdentifier == bundleId) running = true;
    }
    if (!running) {
        log("AutoModeManager: Browser ", bundleId, " is not running");
        main_.post(token_.guard([completion] { completion(std::nullopt); }));
        return;
    }
    const auto browser = supportedBrowser(bundleId);
    if (!browser) {
        log("AutoModeManager: Unsupported browser: ", bundleId);
        main_.post(token_.guard([completion] { completion(std::nullopt); }));
        return;
    }
    // Without browser scripting on this desktop the tree is the only source.
    if (!scripting_.isAvailable()) {
        readWithAccessibility(accessibilityPid, std::move(completion));
        return;
    }
    switch (browser->source) {
        case BrowserAddressSource::safariScript:
            trySafari(1, accessibilityPid, std::move(completion));
            break;
        case BrowserAddressSource::chromeScripts:
            tryChrome(1, 1, accessibilityPid, std::move(completion));
            break;
        case BrowserAddressSource::arcScript:
            runScript(kArcScript, [this, accessibilityPid, completion](std::optional<std::string> url) {
                if (url) {
                    completion(url);
                } else {
                    readWithAccessibility(accessibilityPid, completion);
                }
            });
            break;
        case BrowserAddressSource::accessibilityOnly:
            readWithAccessibility(accessibilityPid, std::move(completion));
            break;
    }
}

void BrowserAddressReader::runScript(const std::string& source,
                                     std::function<void(std::optional<std::string>)> next) {
    background_.async(
        [&scripting = scripting_, source, deliver = bindToMain(main_, token_, std::move(next))] {
            deliver(executeScript(scripting, source));
        });
}

void BrowserAddressReader::trySafari(int attempt, std::optional<int> pid, Completion completion) {
    runScript(kSafariScript, [this, attempt, pid, completion](std::optional<std::string> url) {
        if (url) {
            completion(url);
            return;
        }
        if (attempt < 3) {
            log("AutoModeManager: Safari AppleScript attempt ", attempt, " failed, retrying...");
            main_.postAfter(kSafariRetryDelay, token_.guard([this, attempt, pid, completion] {
                trySafari(attempt + 1, pid, completion);
            }));
            return;
        }
        log("AutoModeManager: All Safari AppleScript attempts failed");
        readWithAccessibility(pid, completion);
    });
}

void BrowserAddressReader::tryChrome(int index, int attempt, std::optional<int> pid, Completion completion) {
    const std::string& script = kChromeScripts[index - 1];
    if (attempt == 1) log("AutoModeManager: Trying Chrome script ", index, ": ", script);
    runScript(script, [this, index, attempt, pid, completion](std::optional<std::string> url) {
        if (url) {
            log("AutoModeManager: Chrome script ", index, " succeeded on attempt ", attempt);
            completion(url);
            return;
        }
        if (attempt == 1) {
            main_.postAfter(kChromeRetryDelay, token_.guard([this, index, pid, completion] {
                tryChrome(index, 2, pid, completion);
            }));
        } else if (index < 3) {
            tryChrome(index + 1, 1, pid, completion);
        } else {
            log("AutoModeManager: All Chrome AppleScript approaches failed");
            readWithAccessibility(pid, completion);
        }
    });
}

void BrowserAddressReader::readWithAccessibility(std::optional<int> pid, Completion completion) {
    if (!pid) {
        log("AutoModeManager: No current application for accessibility check");
        main_.post(token_.guard([completion] { completion(std::nullopt); }));
        return;
    }
    // Whichever comes first, the lookup or the budget, answers; the other is dropped.
    auto answered = std::make_shared<bool>(false);
    auto timeout = main_.postAfter(kAccessibilityBudget, token_.guard([answered, completion] {
        if (*answered) return;
        *answered = true;
        log("AutoModeManager: Accessibility API timed out after 1 second");
        completion(std::nullopt);
    }));
    auto onResult =
        bindToMain(main_, token_, [answered, completion, timeout](const std::optional<std::string>& url) {
            if (*answered) return;
            *answered = true;
            timeout.cancel();
            completion(url);
        });
    background_.async([&ax = accessibility_, &random = random_, pid = *pid, onResult] {
        onResult(lookUpAddress(ax, random, pid));
    });
}

}  // namespace vocle
