#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "platform/accessibility.h"

namespace vocle::testing {

// One node of a scripted accessibility tree. Each read answers with the code and value given here.
struct FakeAXNode final : AccessibilityElement {
    AXRead<std::string> role{kAXSuccess, std::string("AXGroup")};
    AXRead<std::string> value{kAXNoValue, std::nullopt};
    int childrenCode = kAXSuccess;
    std::vector<std::shared_ptr<FakeAXNode>> children;

    static std::shared_ptr<FakeAXNode> make(std::string role);
    static std::shared_ptr<FakeAXNode> textField(std::string value);
    std::shared_ptr<FakeAXNode> add(std::shared_ptr<FakeAXNode> child);
};

// A scripted accessibility layer: a focused window per process, counted reads.
class FakeAccessibility final : public Accessibility {
  public:
    bool isProcessTrusted(bool prompt) override;
    AXElement applicationElement(int processIdentifier) override;
    AXRead<AXElement> focusedWindow(const AXElement& application) override;
    AXRead<std::string> role(const AXElement& element) override;
    AXRead<std::string> stringValue(const AXElement& element) override;
    AXRead<std::vector<AXElement>> children(const AXElement& element) override;

    void setTrusted(bool trusted);
    void setFocusedWindow(int pid, std::shared_ptr<FakeAXNode> window);
    void setFocusedWindowError(int pid, int code);
    size_t roleReads() const;
    size_t focusedWindowReads() const;
    int promptCount() const;

  private:
    struct App final : AccessibilityElement {
        int pid;
        explicit App(int p) : pid(p) {}
    };
    mutable std::mutex mutex_;
    bool trusted_ = true;
    int prompts_ = 0;
    std::map<int, std::shared_ptr<FakeAXNode>> windows_;
    std::map<int, int> windowErrors_;
    size_t roleReads_ = 0;
    size_t windowReads_ = 0;
};

}  // namespace vocle::testing
