#include "desktop/FloatingRecordingView.h"

#include <algorithm>
#include <variant>

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

namespace {
constexpr std::array<double, 3> kFlat{0.5, 0.5, 0.5};
constexpr double kFloorMultiplier = 0.05;

// Only single- or double-precision values count; the level never arrives as text or an integer.
std::optional<double> floatValue(const UserInfo& info, const std::string& key) {
    auto it = info.find(key);
    if (it == info.end()) return std::nullopt;
    if (auto f = std::get_if<float>(&it->second)) return *f;
    if (auto d = std::get_if<double>(&it->second)) return *d;
    return std::nullopt;
}
}  // namespace

FloatingRecordingView::FloatingRecordingView(MainQueue& mainQueue, NotificationCenter& notifications,
                                             std::function<double()> random)
    : mainQueue_(mainQueue), notifications_(notifications), random_(std::move(random)) {}

FloatingRecordingView::~FloatingRecordingView() = default;

void FloatingRecordingView::publish(SpringAnimation animation) { changed.emit(animation); }

double FloatingRecordingView::barHeight(int i) const {
    if (audioMultiplier_ <= kFloorMultiplier) return 4;
    return std::max(4.0, simulatedLevels_[static_cast<size_t>(i)] * 25 * audioMultiplier_);
}

void FloatingRecordingView::onAppear() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("💡 FloatingRecordingView appeared");
    simulatedLevels_ = kFlat;
    audioMultiplier_ = kFloorMultiplier;
    isBelowNoiseFloor_ = true;
    startListening();
    publish({});
}

void FloatingRecordingView::setRecording(bool recording) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (recording == isRecording_) return;
    isRecording_ = recording;
    log("💡 FloatingRecordingView - isRecording changed to: ", boolText(recording));
    if (recording) {
        simulatedLevels_ = kFlat;
        isBelowNoiseFloor_ = true;
        forceSpinner_ = false;
        startListening();
        publish({});
    } else {
        forceSpinner_ = true;
        stopAnimation();
        stopListening();
        audioMultiplier_ = kFloorMultiplier;
        simulatedLevels_ = kFlat;
        isBelowNoiseFloor_ = true;
        publish({0.04, 1.0, true});
    }
}

void FloatingRecordingView::setProcessing(bool processing) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (processing == isProcessing_) return;
    isProcessing_ = processing;
    log("💡 FloatingRecordingView - isProcessing changed to: ", boolText(processing));
    if (processing) {
        stopAnimation();
        stopListening();
        forceSpinner_ = true;
    }
    publish({});
}

void FloatingRecordingView::startListening() {
    stopListening();
    log("💡 FloatingRecordingView - Starting to listen for audio levels");
    observerToken_ = notifications_.addObserver(
        Notifications::audioLevelUpdate, [this](const Notification& n) { handleLevel(n); }, &mainQueue_);
}

void FloatingRecordingView::stopListening() { observerToken_.reset(); }

void FloatingRecordingView::handleLevel(const Notification& notification) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    const bool wasBelow = isBelowNoiseFloor_;
    if (auto level = floatValue(notification.userInfo, "level")) {
        if (*level <= -40) {
            isBelowNoiseFloor_ = true;
            audioMultiplier_ = kFloorMultiplier;
        } else if (*level >= -30) {
            isBelowNoiseFloor_ = false;
            audioMultiplier_ = 1.0;
        } else {
            isBelowNoiseFloor_ = false;
            audioMultiplier_ = (*level + 40) / 10 * 0.95 + 0.05;
        }
        publish({0.2, 0.7});
    } else if (auto normalized = floatValue(notification.userInfo, "normalizedLevel")) {
        audioMultiplier_ = std::max(*normalized, kFloorMultiplier);
        isBelowNoiseFloor_ = audioMultiplier_ <= kFloorMultiplier;
        publish({0.2, 0.6});
    } else {
        return;
    }
    if (isBelowNoiseFloor_ != wasBelow) setNoiseFloor(isBelowNoiseFloor_);
}

void FloatingRecordingView::setNoiseFloor(bool below) {
    if (below) {
        stopAnimation();
        simulatedLevels_ = kFlat;
        publish({0.3, 0.6});
    } else {
        startAnimation();
    }
}

void FloatingRecordingView::startAnimation() {
    stopAnimation();
    log("💡 FloatingRecordingView - Starting animation");
    if (isBelowNoiseFloor_) {
        simulatedLevels_ = kFlat;
        publish({});
        return;
    }
    for (auto& t : targetLevels_) t = 0.5 + random_() * 0.5;
    simulatedLevels_ = targetLevels_;
    publish({0.3, 0.6});
    animationTimer_.startRepeating(mainQueue_, kWobbleInterval, [this] {
        if (isBelowNoiseFloor_) return;
        for (auto& t : targetLevels_) t = 0.7 + random_() * 0.2;
        simulatedLevels_ = targetLevels_;
        publish({0.4, 0.6});
    });
}

void FloatingRecordingView::stopAnimation() {
    log("💡 FloatingRecordingView - Stopping animation");
    animationTimer_.cancel();
}

}  // namespace vocle
