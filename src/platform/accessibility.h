#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vocle {

// An element of another application's accessibility tree; opaque outside the implementation.
class AccessibilityElement {
  public:
    virtual ~AccessibilityElement() = default;
};
using AXElement = std::shared_ptr<const AccessibilityElement>;

// Result codes as the accessibility layer reports them; 0 is success.
inline constexpr int kAXSuccess = 0;
inline constexpr int kAXFailure = -25200;
inline constexpr int kAXAttributeUnsupported = -25205;
inline constexpr int kAXNoValue = -25212;

// One attribute read: the result code, and the value when the read succeeded and the value had the
// asked-for kind.
template <class T>
struct AXRead {
    int code = kAXSuccess;
    std::optional<T> value;
};

// Reads of other applications' user interface. Blocking and possibly slow; call off the main queue.
// The attribute names follow the accessibility vocabulary ("AXFocusedWindow", "AXRole", "AXValue",
// "AXChildren"); implementations map them onto their own tree.
class Accessibility {
  public:
    virtual ~Accessibility() = default;

    // Whether this process may read other applications; with `prompt` the user is asked once.
    virtual bool isProcessTrusted(bool prompt) = 0;

    virtual AXElement applicationElement(int processIdentifier) = 0;
    virtual AXRead<AXElement> focusedWindow(const AXElement& application) = 0;
    virtual AXRead<std::string> role(const AXElement& element) = 0;
    // Succeeds with no value when the element's value is not text.
    virtual AXRead<std::string> stringValue(const AXElement& element) = 0;
    virtual AXRead<std::vector<AXElement>> children(const AXElement& element) = 0;
};

inline const std::string kAXTextFieldRole = "AXTextField";

}  // namespace vocle
