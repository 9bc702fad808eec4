#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "desktop/IndicatorPanel.h"

namespace vocle::testing {

// A window system with scriptable screens; the panels it makes record what was asked of them.
class FakeIndicatorPanel final : public IndicatorPanel {
public:
    explicit FakeIndicatorPanel(ScreenRect frame) : frame(frame) {}
    void orderFrontRegardless() override {
        visible = true;
        ++frontCount;
    }
    void setLevel(int l) override { currentLevel = l; }
    int level() const override { return currentLevel; }
    void setAlpha(double a) override { alpha = a; }
    void fadeOut(Seconds duration, std::function<void()> completion) override {
        ++fadeCount;
        lastFadeSeconds = duration.count();
        alpha = 0;
        visible = false;
        if (completion) completion();
    }
    bool isVisible() const override { return visible; }
    std::string description() const override { return "FakeIndicatorPanel" + describeRect(frame); }

    ScreenRect frame;
    bool visible = false;
    int currentLevel = 3;
    double alpha = 1.0;
    int frontCount = 0;
    int fadeCount = 0;
    double lastFadeSeconds = 0;
};

class FakePreviewBubble final : public PreviewBubble {
  public:
    void showText(const ScreenRect& f, const std::string& t) override {
        frame = f;
        text = t;
        visible = true;
        ++showCount;
    }
    void fadeOut(Seconds duration) override {
        ++fadeCount;
        lastFadeSeconds = duration.count();
        visible = false;
    }
    bool isVisible() const override { return visible; }

    ScreenRect frame;
    std::string text;
    bool visible = false;
    int showCount = 0;
    int fadeCount = 0;
    double lastFadeSeconds = 0;
};

class FakeIndicatorPanels final : public IndicatorPanelFactory {
public:
    std::optional<ScreenRect> mainScreenFrame() const override { return mainScreen; }
    std::vector<ScreenRect> screenFrames() const override { return screens; }
    std::unique_ptr<IndicatorPanel> createPanel(const ScreenRect& rect, FloatingRecordingView&) override {
        auto panel = std::make_unique<FakeIndicatorPanel>(rect);
        created.push_back(panel.get());
        return panel;
    }

    std::unique_ptr<PreviewBubble> createPreviewBubble() override {
        auto bubble = std::make_unique<FakePreviewBubble>();
        bubbles.push_back(bubble.get());
        return bubble;
    }

    std::optional<ScreenRect> mainScreen = ScreenRect{0, 0, 1440, 900};
    std::vector<ScreenRect> screens{ScreenRect{0, 0, 1440, 900}};
    std::vector<FakeIndicatorPanel*> created;  // owned by the manager
    std::vector<FakePreviewBubble*> bubbles;   // owned by the live preview
};

}  // namespace vocle::testing
