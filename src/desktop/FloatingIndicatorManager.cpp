#include "desktop/FloatingIndicatorManager.h"

#include <cstdio>
#include <stdexcept>

#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

std::string describeRect(const ScreenRect& r) {
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, "(%.1f, %.1f, %.1f, %.1f)", r.x, r.y, r.width, r.height);
    return buffer;
}

FloatingIndicatorManager::FloatingIndicatorManager(MainQueue& mainQueue, IndicatorPanelFactory& panels,
                                                   FloatingRecordingView& view)
    : mainQueue_(mainQueue), panels_(panels), view_(view) {}

FloatingIndicatorManager::~FloatingIndicatorManager() = default;

ScreenRect FloatingIndicatorManager::panelFrame(const ScreenRect& screen) {
    return {screen.maxX() - kPanelSize - kRightMargin, screen.midY() - kPanelSize / 2, kPanelSize, kPanelSize};
}

void FloatingIndicatorManager::setup(Observable<bool>& isRecording, Observable<bool>& isProcessing) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("💡 FloatingIndicatorManager: Setting up with AppState");
    isRecording_ = &isRecording;
    isProcessing_ = &isProcessing;
    recordingCancellable_.reset();
    processingCancellable_.reset();
    // The latest pair, delivered on the main queue: the current one first, then one per change.
    auto deliver = token_.guard([this] { handleState(isRecording_->get(), isProcessing_->get()); });
    mainQueue_.post(deliver);
    recordingCancellable_ = isRecording.subscribe(
        [this](const bool& recording) {
            const bool processing = isProcessing_->get();
            mainQueue_.post(token_.guard([this, recording, processing] { handleState(recording, processing); }));
        });
    processingCancellable_ = isProcessing.subscribe([this](const bool& processing) {
        const bool recording = isRecording_->get();
        mainQueue_.post(token_.guard([this, recording, processing] { handleState(recording, processing); }));
    });
    // The view follows the same flags.
    view_.setRecording(isRecording.get());
    view_.setProcessing(isProcessing.get());
    if (isRecording.get() || isProcessing.get()) {
        log("💡 App is already recording - showing indicator immediately");
        showIndicator();
    }
    log("💡 FloatingIndicatorManager setup complete");
}

void FloatingIndicatorManager::handleState(bool isRecording, bool isProcessing) {
    log("💡 FloatingIndicatorManager: isRecording=", boolText(isRecording), " isProcessing=",
        boolText(isProcessing));
    view_.setRecording(isRecording);
    view_.setProcessing(isProcessing);
    pendingHideWorkItem_.cancel();
    if (!isRecording && !isProcessing) {
        log("💡 RECORDING STOPPED - Hiding indicator");
        pendingHideWorkItem_.start(mainQueue_, kHideDelay, token_.guard([this] { hideCheck(); }));
    } else {
        log("💡 RECORDING STARTED - Showing indicator");
        showIndicator();
    }
}

void FloatingIndicatorManager::hideCheck() {
    if (!isRecording_ || isRecording_->get() || isProcessing_->get()) {
        log("💡 Hide canceled due to state change");
        return;
    }
    hideIndicator();
}

void FloatingIndicatorManager::showIndicator() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("💡 Showing floating indicator");
    if (!panel_) {
        createPanel();
    } else {
        log("💡 Reusing existing panel (no recreation)");
    }
    mainQueue_.post(token_.guard([this] {
        if (!panel_) {
            log("❌ ERROR: Panel is nil when trying to show");
            createPanel();
            if (!panel_) return;
        }
        log("💡 Making panel visible...");
        panel_->orderFrontRegardless();
        panel_->setLevel(kShownLevel);
        log("💡 Window level set to: ", panel_->level());
        panel_->setAlpha(1.0);
        if (!viewAppeared_) {
            viewAppeared_ = true;
            view_.onAppear();
        }
    }));
}

void FloatingIndicatorManager::hideIndicator() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("Hiding floating indicator");
    mainQueue_.post(token_.guard([this] {
        if (panel_) panel_->fadeOut(kFadeOutDuration, [] {});
    }));
}

void FloatingIndicatorManager::createPanel() {
    log("💡 Creating floating panel...");
    if (panel_ || !isRecording_) {
        log("💡 Cannot create panel: panel exists or appState is nil");
        return;
    }
    auto screen = panels_.mainScreenFrame();
    if (!screen) {
        const auto all = panels_.screenFrames();
        if (all.empty()) throw std::runtime_error("FloatingIndicatorManager: no screen to show the indicator on");
        screen = all.front();
    }
    log("💡 Main screen: ", describeRect(*screen));
    const ScreenRect rect = panelFrame(*screen);
    log("💡 Creating panel at right edge: ", describeRect(rect));
    panel_ = panels_.createPanel(rect, view_);
    log("💡 Panel created successfully: ", panel_->description());
}

}  // namespace vocle
