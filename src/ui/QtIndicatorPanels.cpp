#include "ui/QtIndicatorPanels.h"
#include "ui/PreviewBubbleWidget.h"
#include "ui/RecordingPanel.h"

#include <QGuiApplication>
#include <QScreen>

namespace vocle::ui {

namespace {
ScreenRect toRect(const QRect& r) {
    return {static_cast<double>(r.x()), static_cast<double>(r.y()), static_cast<double>(r.width()),
            static_cast<double>(r.height())};
}
}  // namespace

std::optional<ScreenRect> QtIndicatorPanels::mainScreenFrame() const {
    if (auto* screen = QGuiApplication::primaryScreen()) return toRect(screen->geometry());
    return std::nullopt;
}

std::vector<ScreenRect> QtIndicatorPanels::screenFrames() const {
    std::vector<ScreenRect> out;
    for (auto* screen : QGuiApplication::screens()) out.push_back(toRect(screen->geometry()));
    return out;
}

std::unique_ptr<IndicatorPanel> QtIndicatorPanels::createPanel(const ScreenRect& rect, FloatingRecordingView& view) {
    return std::make_unique<RecordingPanel>(rect, view);
}

std::unique_ptr<PreviewBubble> QtIndicatorPanels::createPreviewBubble() {
    return std::make_unique<PreviewBubbleWidget>();
}

}  // namespace vocle::ui
