#include "ui/LoadingOverlay.h"

#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QTimerEvent>
#include <QVBoxLayout>

#include <cmath>

#include "ui/Theme.h"

namespace vocle::ui {

LoadingOverlay::LoadingOverlay(std::function<void()> onRetry, QWidget* parent)
    : QWidget(parent), onRetry_(std::move(onRetry)) {
    setObjectName("LoadingOverlay");
    setAttribute(Qt::WA_StyledBackground);
    Theme::setRole(this, "overlay");
    auto* layout = new QVBoxLayout(this);
    layout->setAlignment(Qt::AlignCenter);
    layout->setSpacing(12);

    spinnerSpace_ = new QWidget(this);
    spinnerSpace_->setFixedSize(48, 48);
    layout->addWidget(spinnerSpace_, 0, Qt::AlignCenter);

    icon_ = new QLabel(this);
    icon_->setPixmap(Theme::icon("warning", Theme::kRed).pixmap(QSize(48, 48), devicePixelRatioF()));
    icon_->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon_, 0, Qt::AlignCenter);

    title_ = new QLabel(this);
    title_->setObjectName("LoadingTitle");
    Theme::setRole(title_, "title");
    title_->setAlignment(Qt::AlignCenter);
    layout->addWidget(title_);

    text_ = new QLabel(this);
    text_->setObjectName("LoadingText");
    Theme::setRole(text_, "secondary");
    text_->setAlignment(Qt::AlignCenter);
    text_->setWordWrap(true);
    text_->setFixedWidth(420);
    layout->addWidget(text_, 0, Qt::AlignCenter);

    retry_ = new QPushButton("Try Again", this);
    retry_->setObjectName("LoadingRetry");
    Theme::setRole(retry_, "primary");
    layout->addWidget(retry_, 0, Qt::AlignCenter);
    connect(retry_, &QPushButton::clicked, this, [this] {
        if (onRetry_) onRetry_();
    });
    setError(std::nullopt);
}

void LoadingOverlay::setError(const std::optional<std::string>& error) {
    failed_ = error.has_value();
    spinnerSpace_->setVisible(!failed_);
    icon_->setVisible(failed_);
    retry_->setVisible(failed_);
    QFont f = title_->font();
    f.setWeight(failed_ ? QFont::DemiBold : QFont::Medium);
    title_->setFont(f);
    title_->setText(failed_ ? "Initialization Failed" : "Loading Vocle...");
    text_->setText(failed_ ? QString::fromStdString(*error) : "Setting up...");
    if (!failed_ && !timer_) timer_ = startTimer(80);
    if (failed_ && timer_) {
        killTimer(timer_);
        timer_ = 0;
    }
    update();
}

void LoadingOverlay::timerEvent(QTimerEvent* event) {
    if (event->timerId() == timer_) {
        frame_ = (frame_ + 1) % 12;
        update();
    }
}

void LoadingOverlay::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    if (failed_ || !spinnerSpace_->isVisible()) return;
    // A white circular progress indicator at 1.5 times the usual size.
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF centre = QRectF(spinnerSpace_->geometry()).center();
    const double outer = 15, inner = 8;
    for (int i = 0; i < 12; ++i) {
        const double angle = (i + frame_) * 3.14159265358979 / 6;
        QColor c(Qt::white);
        c.setAlphaF(0.2 + 0.8 * i / 11.0);
        p.setPen(QPen(c, 3, Qt::SolidLine, Qt::RoundCap));
        const QPointF d(std::cos(angle), std::sin(angle));
        p.drawLine(centre + d * inner, centre + d * outer);
    }
}

}  // namespace vocle::ui
