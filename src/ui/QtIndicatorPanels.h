#pragma once

#include "desktop/IndicatorPanel.h"

namespace vocle::ui {

// Screens from QGuiApplication (full geometry, not the work area); panels are RecordingPanels.
class QtIndicatorPanels final : public IndicatorPanelFactory {
public:
    std::optional<ScreenRect> mainScreenFrame() const override;
    std::vector<ScreenRect> screenFrames() const override;
    std::unique_ptr<IndicatorPanel> createPanel(const ScreenRect& contentRect,
                                                FloatingRecordingView& view) override;
    std::unique_ptr<PreviewBubble> createPreviewBubble() override;
};

}  // namespace vocle::ui
