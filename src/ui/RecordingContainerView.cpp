#include "ui/RecordingContainerView.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

#include "ui/Theme.h"

namespace vocle::ui {

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kSpinnerPeriod = 0.9;

// One step of a damped spring towards `target` (response = period of the undamped oscillation).
void springStep(double& value, double& velocity, double target, const SpringAnimation& s, double dt) {
    if (s.linear) {
        const double rate = s.response > 0 ? dt / s.response : 1.0;
        value += (target - value) * std::min(1.0, rate * 3);
        velocity = 0;
        return;
    }
    const double omega = 2 * kPi / std::max(0.01, s.response);
    const double k = omega * omega;
    const double c = 2 * s.damping * omega;
    velocity += (k * (target - value) - c * velocity) * dt;
    value += velocity * dt;
}
}  // namespace

RecordingContainerView::RecordingContainerView(FloatingRecordingView& view, QWidget* parent)
    : QWidget(parent), view_(view) {
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFixedSize(static_cast<int>(FloatingRecordingView::kSize), static_cast<int>(FloatingRecordingView::kSize));
    frameTimer_.setInterval(16);
    frameTimer_.setTimerType(Qt::PreciseTimer);
    connect(&frameTimer_, &QTimer::timeout, this, &RecordingContainerView::step);
    clock_.start();
    levels_ = view.simulatedLevels();
    multiplier_ = view.audioMultiplier();
    changed_ = view_.changed.subscribe([this](const SpringAnimation& a) { onChanged(a); });
    frameTimer_.start();
}

void RecordingContainerView::onChanged(const SpringAnimation& animation) {
    spring_ = animation;
    if (!frameTimer_.isActive()) frameTimer_.start();
}

void RecordingContainerView::step() {
    const double now = clock_.elapsed() / 1000.0;
    double dt = std::clamp(now - lastStep_, 0.0, 0.05);
    lastStep_ = now;
    const auto& target = view_.simulatedLevels();
    bool settled = true;
    // Small sub-steps keep the stiff springs stable at 60 frames a second.
    for (int sub = 0; sub < 4; ++sub) {
        for (size_t i = 0; i < 3; ++i) springStep(levels_[i], levelVelocity_[i], target[i], spring_, dt / 4);
        springStep(multiplier_, multiplierVelocity_, view_.audioMultiplier(), spring_, dt / 4);
    }
    for (size_t i = 0; i < 3; ++i)
        if (std::abs(levels_[i] - target[i]) > 1e-3 || std::abs(levelVelocity_[i]) > 1e-3) settled = false;
    if (std::abs(multiplier_ - view_.audioMultiplier()) > 1e-3) settled = false;
    update();
    // The spinner turns continuously; the bars only until they reach their targets.
    if (settled && !view_.showsSpinner()) frameTimer_.stop();
}

double RecordingContainerView::barHeight(int i) const {
    if (multiplier_ <= 0.05 + 1e-6) return 4;
    return std::max(4.0, levels_[static_cast<size_t>(i)] * 25 * multiplier_);
}

void RecordingContainerView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF box(0.5, 0.5, width() - 1, height() - 1);
    QPainterPath shape;
    shape.addRoundedRect(box, FloatingRecordingView::kCornerRadius, FloatingRecordingView::kCornerRadius);
    p.fillPath(shape, QColor::fromRgbF(0.2, 0.2, 0.2));
    p.setPen(QPen(QColor::fromRgbF(0.3, 0.3, 0.3), 1));
    p.drawPath(shape);
    p.setClipPath(shape);

    if (view_.showsSpinner()) {
        // Eight spokes, the brightest leading, one turn every 0.9 s.
        const QPointF centre = rect().center() + QPointF(0.5, 0.5);
        const double radius = 10;
        const double length = radius * 0.28 * 2;
        const double phase = std::fmod(clock_.elapsed() / 1000.0 / kSpinnerPeriod, 1.0);
        const int spokes = 8;
        for (int i = 0; i < spokes; ++i) {
            const double angle = 2 * kPi * (static_cast<double>(i) / spokes + phase);
            const double alpha = 0.25 + 0.75 * (static_cast<double>(i) / (spokes - 1));
            QColor c(Qt::white);
            c.setAlphaF(alpha);
            p.setPen(QPen(c, 2, Qt::SolidLine, Qt::RoundCap));
            const QPointF dir(std::cos(angle), std::sin(angle));
            p.drawLine(centre + dir * (radius - length), centre + dir * radius);
        }
        return;
    }
    if (!view_.isRecording()) return;
    const auto& a = FloatingRecordingView::kAccentColor;
    const QColor accent = QColor::fromRgbF(static_cast<float>(a[0]), static_cast<float>(a[1]), static_cast<float>(a[2]));
    // A 25 x 30 frame, centred, bars bottom-aligned inside it.
    const double frameBottom = (height() - 30) / 2.0 + 30;
    const double barWidth = 5, spacing = 3;
    const double total = 3 * barWidth + 2 * spacing;
    double x = (width() - total) / 2.0;
    p.setPen(Qt::NoPen);
    p.setBrush(accent);
    for (int i = 0; i < 3; ++i) {
        const double h = barHeight(i);
        p.drawRoundedRect(QRectF(x, frameBottom - h, barWidth, h), 2, 2);
        x += barWidth + spacing;
    }
}

}  // namespace vocle::ui
