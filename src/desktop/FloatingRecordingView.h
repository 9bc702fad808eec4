#pragma once

#include <array>
#include <functional>

#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"

namespace vocle {

// A spring that a drawing eases the indicator's values along.
struct SpringAnimation {
    double response = 0.2;
    double damping = 0.7;
    bool linear = false;  // a plain linear ramp over `response` seconds instead
};

// The indicator's content: three level bars while recording, a spinner from the moment recording stops
// until processing has ended. Holds the state and the animation targets; a panel draws it and eases
// towards the targets with the spring given. Main queue only.
class FloatingRecordingView {
public:
    // `random` returns a uniform value in [0, 1).
    FloatingRecordingView(MainQueue& mainQueue, NotificationCenter& notifications,
                          std::function<double()> random);
    ~FloatingRecordingView();
    FloatingRecordingView(const FloatingRecordingView&) = delete;
    FloatingRecordingView& operator=(const FloatingRecordingView&) = delete;

    static constexpr double kSize = 40;
    static constexpr double kCornerRadius = 15;
    static constexpr Seconds kWobbleInterval{0.2};
    // sRGB 0.4, 92/255, 210/255.
    static constexpr std::array<double, 3> kAccentColor{0.4, 0.3607843137254902, 0.8235294117647058};

    // Fired after every change; carries the spring to animate it with.
    Signal<SpringAnimation> changed;

    const std::array<double, 3>& simulatedLevels() const { return simulatedLevels_; }
    const std::array<double, 3>& targetLevels() const { return targetLevels_; }
    double audioMultiplier() const { return audioMultiplier_; }
    bool isBelowNoiseFloor() const { return isBelowNoiseFloor_; }
    bool forceSpinner() const { return forceSpinner_; }
    bool isAnimating() const { return animationTimer_.isActive(); }
    bool isListening() const { return observerToken_.isActive(); }

    bool isRecording() const { return isRecording_; }
    bool isProcessing() const { return isProcessing_; }
    bool showsSpinner() const { return isProcessing_ || forceSpinner_; }
    bool showsBars() const { return !showsSpinner() && isRecording_; }
    // Height of bar i in points: at least 4, flat at the noise floor.
    double barHeight(int i) const;

    // Lifecycle, driven by the panel and the application state.
    void onAppear();
    void setRecording(bool isRecording);
    void setProcessing(bool isProcessing);

    // One "AudioLevelUpdate" notification.
    void handleLevel(const Notification& notification);

private:
    void startListening();
    void stopListening();
    void startAnimation();
    void stopAnimation();
    void setNoiseFloor(bool below);
    void publish(SpringAnimation animation);

    MainQueue& mainQueue_;
    NotificationCenter& notifications_;
    std::function<double()> random_;

    std::array<double, 3> simulatedLevels_{0.3, 0.5, 0.4};
    Timer animationTimer_;
    double audioMultiplier_ = 0.6;
    std::array<double, 3> targetLevels_{0.3, 0.5, 0.4};
    Subscription observerToken_;
    bool isBelowNoiseFloor_ = true;
    bool forceSpinner_ = false;

    bool isRecording_ = false;
    bool isProcessing_ = false;
};

}  // namespace vocle
