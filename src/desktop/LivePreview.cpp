#include "desktop/LivePreview.h"

#include <deque>
#include <sstream>

#include "desktop/FloatingIndicatorManager.h"

namespace vocle {

namespace {
size_t characters(const std::string& text) {
    size_t n = 0;
    for (unsigned char c : text) n += (c & 0xC0) != 0x80;
    return n;
}
}  // namespace

LivePreview::LivePreview(IndicatorPanelFactory& panels, std::function<bool()> enabled)
    : panels_(panels), enabled_(std::move(enabled)) {}

void LivePreview::setup(Observable<bool>& isRecording, Observable<std::string>& partialText) {
    recordingSubscription_ =
        isRecording.subscribe([this](const bool& recording) { recordingChanged(recording); });
    partialSubscription_ = partialText.subscribe([this](const std::string& text) { partialChanged(text); });
}

std::string LivePreview::lastLines(const std::string& text, size_t lineLength, size_t lines) {
    std::deque<std::string> wrapped;
    std::string line;
    std::istringstream words(text);
    std::string word;
    bool cut = false;
    while (words >> word) {
        if (!line.empty() && characters(line) + 1 + characters(word) > lineLength) {
            wrapped.push_back(std::move(line));
            line.clear();
        }
        line += line.empty() ? word : " " + word;
    }
    if (!line.empty()) wrapped.push_back(std::move(line));
    while (wrapped.size() > lines) {
        wrapped.pop_front();
        cut = true;
    }
    std::string out = cut ? "\u2026" : "";
    for (size_t i = 0; i < wrapped.size(); ++i) out += (i ? "\n" : "") + wrapped[i];
    return out;
}

ScreenRect LivePreview::bubbleFrame(const ScreenRect& screen) {
    const ScreenRect indicator = FloatingIndicatorManager::panelFrame(screen);
    return {indicator.x - kGap - kWidth, indicator.midY() - kHeight / 2, kWidth, kHeight};
}

void LivePreview::recordingChanged(bool recording) {
    if (recording == active_) return;
    if (recording) {
        active_ = enabled_ ? enabled_() : true;
        return;
    }
    active_ = false;
    shown_.clear();
    if (bubble_ && bubble_->isVisible()) bubble_->fadeOut(kFadeDuration);
}

void LivePreview::partialChanged(const std::string& text) {
    if (!active_ || text.empty()) return;
    const auto screen = panels_.mainScreenFrame();
    if (!screen) return;
    if (!bubble_) bubble_ = panels_.createPreviewBubble();
    if (!bubble_) return;
    shown_ = lastLines(text);
    bubble_->showText(bubbleFrame(*screen), shown_);
}

}  // namespace vocle
