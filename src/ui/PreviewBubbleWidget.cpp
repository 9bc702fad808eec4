#include "ui/PreviewBubbleWidget.h"

#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <QTextOption>

#include "ui/Theme.h"

namespace vocle::ui {

namespace {
constexpr double kRadius = 12;
constexpr int kPadding = 12;
}  // namespace

PreviewBubbleWidget::PreviewBubbleWidget()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput |
                           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint) {
    setObjectName("PreviewBubble");
    setWindowTitle("Vocle Live Preview");
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
}

void PreviewBubbleWidget::showText(const ScreenRect& frame, const std::string& text) {
    if (fade_) {
        fade_->stop();
        fade_->deleteLater();
    }
    fading_ = false;
    text_ = QString::fromStdString(text);
    const QRect rect(static_cast<int>(frame.x), static_cast<int>(frame.y), static_cast<int>(frame.width),
                     static_cast<int>(frame.height));
    if (geometry() != rect) {
        setGeometry(rect);
        // Clipped to its shape: without a compositing manager the transparent corners would show black.
        QPainterPath shape;
        shape.addRoundedRect(QRectF(0, 0, rect.width(), rect.height()), kRadius, kRadius);
        setMask(QRegion(shape.toFillPolygon().toPolygon()));
    }
    setWindowOpacity(1.0);
    if (!QWidget::isVisible()) show();
    raise();
    update();
}

void PreviewBubbleWidget::fadeOut(Seconds duration) {
    if (fade_) fade_->stop();
    fading_ = true;
    auto* animation = new QPropertyAnimation(this, "windowOpacity", this);
    animation->setDuration(static_cast<int>(duration.count() * 1000));
    animation->setStartValue(windowOpacity());
    animation->setEndValue(0.0);
    connect(animation, &QPropertyAnimation::finished, this, [this] {
        hide();
        fading_ = false;
    });
    fade_ = animation;
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

void PreviewBubbleWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kRadius, kRadius);
    QColor fill = Theme::kWindow;
    fill.setAlpha(235);
    painter.fillPath(path, fill);
    painter.setPen(QPen(Theme::kBorder, 1));
    painter.drawPath(path);

    QFont font = painter.font();
    font.setPointSizeF(11);
    painter.setFont(font);
    painter.setPen(Theme::kText);
    QTextOption option(Qt::AlignLeft | Qt::AlignVCenter);
    option.setWrapMode(QTextOption::NoWrap);
    // The view-model has wrapped the text already; each line is elided on the left if a wide font
    // still overflows, so the newest words stay in sight.
    const QStringList lines = text_.split('\n');
    const QFontMetrics metrics(font);
    const int available = width() - 2 * kPadding;
    QStringList fitted;
    for (const auto& line : lines) fitted << metrics.elidedText(line, Qt::ElideLeft, available);
    painter.drawText(rect().adjusted(kPadding, kPadding / 2, -kPadding, -kPadding / 2), fitted.join('\n'),
                     option);
}

}  // namespace vocle::ui
