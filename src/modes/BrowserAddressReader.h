#pragma once

#include <functional>
#include <optional>
#include <string>

#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "modes/RandomSource.h"
#include "platform/accessibility.h"
#include "platform/workspace.h"

namespace vocle {

// Reads the address of a browser's active tab: its scripts first (with their retries), then the
// accessibility tree within a one-second budget. Scripts and tree reads run on the background queue;
// the waits between retries are main-queue timers, so no worker sleeps.
class BrowserAddressReader {
  public:
    using Completion = std::function<void(const std::optional<std::string>& address)>;

    BrowserAddressReader(MainQueue& main, DispatchQueue& background, Workspace& workspace,
                         BrowserScripting& scripting, Accessibility& accessibility, RandomSource& random);

    // `accessibilityPid` is the process whose tree the fallback walks (none: no fallback possible).
    // The completion runs once on the main queue, unless the reader is destroyed first.
    void read(const std::string& bundleId, std::optional<int> accessibilityPid, Completion completion);

    static constexpr Seconds kSafariRetryDelay{0.5};
    static constexpr Seconds kChromeRetryDelay{0.3};
    static constexpr Seconds kAccessibilityBudget{1.0};
    static constexpr int kMaxSearchDepth = 5;
    static constexpr size_t kMaxChildrenPerElement = 20;

    static const std::string kSafariScript;
    static const std::string kChromeScripts[3];
    static const std::string kArcScript;

  private:
    void runScript(const std::string& source, std::function<void(std::optional<std::string>)> next);
    void trySafari(int attempt, std::optional<int> pid, Completion completion);
    void tryChrome(int index, int attempt, std::optional<int> pid, Completion completion);
    void readWithAccessibility(std::optional<int> pid, Completion completion);

    MainQueue& main_;
    DispatchQueue& background_;
    Workspace& workspace_;
    BrowserScripting& scripting_;
    Accessibility& accessibility_;
    RandomSource& random_;
    OwnerToken token_;
};

}  // namespace vocle
