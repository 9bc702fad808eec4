#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Clock.h"

namespace vocle {

// A rectangle in screen coordinates of the window system (on X11: origin top left, pixels).
struct ScreenRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    double maxX() const { return x + width; }
    double midY() const { return y + height / 2; }
    friend bool operator==(const ScreenRect&, const ScreenRect&) = default;
};

// "(x, y, width, height)" with one decimal, as the indicator's log lines print rectangles.
std::string describeRect(const ScreenRect& rect);

// The borderless, non-activating window that shows the indicator. Created once, then shown and hidden.
class IndicatorPanel {
public:
    virtual ~IndicatorPanel() = default;
    // Shows the panel above everything without activating the application or taking the focus.
    virtual void orderFrontRegardless() = 0;
    virtual void setLevel(int level) = 0;
    virtual int level() const = 0;
    virtual void setAlpha(double alpha) = 0;
    // Animates the alpha to 0 over `seconds`, then hides the panel; `completion` runs after that.
    virtual void fadeOut(Seconds duration, std::function<void()> completion) = 0;
    virtual bool isVisible() const = 0;
    virtual std::string description() const = 0;
};

// The bubble beside the indicator that shows what the recogniser has heard so far: a window that never
// takes the focus and lets input pass to the windows under it.
class PreviewBubble {
  public:
    virtual ~PreviewBubble() = default;
    // Shows (or updates) the text at `frame`, fully opaque, above everything.
    virtual void showText(const ScreenRect& frame, const std::string& text) = 0;
    // Animates the alpha to 0 over `duration`, then hides.
    virtual void fadeOut(Seconds duration) = 0;
    virtual bool isVisible() const = 0;
};

class FloatingRecordingView;

// What the indicator needs from the window system: the screens and a way to make its panel.
class IndicatorPanelFactory {
public:
    virtual ~IndicatorPanelFactory() = default;
    // The screen with the focus or the primary one; none when the system cannot say.
    virtual std::optional<ScreenRect> mainScreenFrame() const = 0;
    virtual std::vector<ScreenRect> screenFrames() const = 0;
    // The panel hosts a drawing of `view`, which outlives it.
    virtual std::unique_ptr<IndicatorPanel> createPanel(const ScreenRect& contentRect,
                                                        FloatingRecordingView& view) = 0;
    // None when the window system cannot show one.
    virtual std::unique_ptr<PreviewBubble> createPreviewBubble() { return nullptr; }
};

}  // namespace vocle
