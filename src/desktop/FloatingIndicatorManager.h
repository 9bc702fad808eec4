#pragma once

#include <memory>

#include "core/RecordingIndicator.h"
#include "desktop/FloatingRecordingView.h"
#include "desktop/IndicatorPanel.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"

namespace vocle {

// Shows the floating indicator while a recording runs or is processed and hides it 0.15 s after both
// have ended (so the hand-over from recording to processing does not flicker). The panel is made on the
// first show and reused for the life of the process. Main queue only.
class FloatingIndicatorManager final : public RecordingIndicator {
public:
    static constexpr Seconds kHideDelay{0.15};
    static constexpr Seconds kFadeOutDuration{0.12};
    static constexpr double kPanelSize = 40;
    static constexpr double kRightMargin = 30;
    // The pop-up-menu level the panel is raised to when shown; 3 is the floating level it starts at.
    static constexpr int kShownLevel = 101;
    static constexpr int kFloatingLevel = 3;

    FloatingIndicatorManager(MainQueue& mainQueue, IndicatorPanelFactory& panels, FloatingRecordingView& view);
    ~FloatingIndicatorManager() override;

    // Follows the two flags (AppState's isRecording and isProcessing); they must outlive the manager.
    void setup(Observable<bool>& isRecording, Observable<bool>& isProcessing);

    void showIndicator() override;
    void hideIndicator() override;

    // The panel frame for a screen: 40 x 40, its right edge 30 from the screen's, vertically centred.
    static ScreenRect panelFrame(const ScreenRect& screen);

    IndicatorPanel* panel() const { return panel_.get(); }
    bool hasPendingHide() const { return pendingHideWorkItem_.isActive(); }

private:
    void handleState(bool isRecording, bool isProcessing);
    void hideCheck();
    void createPanel();

    MainQueue& mainQueue_;
    IndicatorPanelFactory& panels_;
    FloatingRecordingView& view_;
    std::unique_ptr<IndicatorPanel> panel_;
    Observable<bool>* isRecording_ = nullptr;
    Observable<bool>* isProcessing_ = nullptr;
    Subscription recordingCancellable_;
    Subscription processingCancellable_;
    Timer pendingHideWorkItem_;
    bool viewAppeared_ = false;
    OwnerToken token_;
};

}  // namespace vocle
