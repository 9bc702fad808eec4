#pragma once

#include "desktop/FloatingRecordingView.h"
#include "foundation/Signal.h"

#include <array>

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

namespace vocle::ui {

// Draws the indicator's content: a dark rounded square with three level bars or a spinner. Eases the
// bars and the loudness towards the view model's targets along its springs.
class RecordingContainerView final : public QWidget {
    Q_OBJECT
public:
    explicit RecordingContainerView(FloatingRecordingView& view, QWidget* parent = nullptr);

    // What is drawn right now (after easing), for tests and screenshots.
    std::array<double, 3> displayedLevels() const { return levels_; }
    double displayedMultiplier() const { return multiplier_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void onChanged(const SpringAnimation& animation);
    void step();
    double barHeight(int i) const;

    FloatingRecordingView& view_;
    Subscription changed_;
    QTimer frameTimer_;
    QElapsedTimer clock_;
    double lastStep_ = 0;
    SpringAnimation spring_;
    std::array<double, 3> levels_{0.5, 0.5, 0.5};
    std::array<double, 3> levelVelocity_{0, 0, 0};
    double multiplier_ = 0.05;
    double multiplierVelocity_ = 0;
};

}  // namespace vocle::ui
