#pragma once

#include <functional>
#include <memory>
#include <string>

#include "desktop/IndicatorPanel.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"

namespace vocle {

// The live preview: while a streamed dictation records, the recogniser's latest text (its last line or
// two) in a bubble to the left of the floating indicator; the bubble fades when the recording ends.
// Whether it shows is read from the settings at each recording's start. Main queue only.
class LivePreview {
  public:
    static constexpr double kWidth = 360;
    static constexpr double kHeight = 58;
    static constexpr double kGap = 10;  // between the bubble and the indicator
    static constexpr size_t kLineLength = 46;
    static constexpr size_t kLines = 2;
    static constexpr Seconds kFadeDuration{0.35};

    // `enabled` is asked at each start of a recording.
    LivePreview(IndicatorPanelFactory& panels, std::function<bool()> enabled);

    // Follows the engine's flag and partial text; both must outlive the preview.
    void setup(Observable<bool>& isRecording, Observable<std::string>& partialText);

    // The last `lines` lines of `text` wrapped at `lineLength` characters on spaces, with "…" in front
    // when something was left out; lines are joined with "\n".
    static std::string lastLines(const std::string& text, size_t lineLength = kLineLength,
                                 size_t lines = kLines);
    // Left of the indicator (see FloatingIndicatorManager::panelFrame), centred on it vertically.
    static ScreenRect bubbleFrame(const ScreenRect& screen);

    // What is shown, for tests and diagnostics; empty when hidden.
    const std::string& shownText() const { return shown_; }

  private:
    void recordingChanged(bool recording);
    void partialChanged(const std::string& text);

    IndicatorPanelFactory& panels_;
    std::function<bool()> enabled_;
    std::unique_ptr<PreviewBubble> bubble_;
    bool active_ = false;  // a recording runs and the preview is on
    std::string shown_;
    Subscription recordingSubscription_;
    Subscription partialSubscription_;
};

}  // namespace vocle
