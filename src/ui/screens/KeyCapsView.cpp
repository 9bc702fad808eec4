#include "ui/screens/KeyCapsView.h"

#include <QEnterEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace vocle {

KeyCapsView::KeyCapsView(QWidget* parent, bool clickable) : QWidget(parent), clickable_(clickable) {
    if (clickable_) setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover, clickable_);
}

void KeyCapsView::setParts(const std::vector<std::string>& parts) {
    parts_.clear();
    for (const auto& p : parts) parts_.push_back(QString::fromStdString(p));
    updateGeometry();
    update();
}

void KeyCapsView::setKeyMetrics(int minWidth, int height, int fontSize) {
    minWidth_ = minWidth;
    height_ = height;
    fontSize_ = fontSize;
    updateGeometry();
    update();
}

int KeyCapsView::capWidth(const QString& label) const {
    QFont f = font();
    f.setPixelSize(fontSize_);
    f.setWeight(QFont::DemiBold);
    return std::max(minWidth_, QFontMetrics(f).horizontalAdvance(label) + 20);
}

QSize KeyCapsView::sizeHint() const {
    int w = 0;
    for (const auto& p : parts_) w += capWidth(p) + kSpacing;
    if (!parts_.empty()) w -= kSpacing;
    const int pad = clickable_ ? kPadding : 0;
    return {std::max(w, minWidth_) + 2 * pad, height_ + 2 * pad};
}

void KeyCapsView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const int pad = clickable_ ? kPadding : 0;
    if (clickable_) {
        QColor frame = palette().color(QPalette::WindowText);
        frame.setAlphaF(hovering_ ? 0.12 : 0.05);
        p.setPen(Qt::NoPen);
        p.setBrush(frame);
        p.drawRoundedRect(rect().adjusted(0, 0, -1, -1), 8, 8);
    }
    QFont f = font();
    f.setPixelSize(fontSize_);
    f.setWeight(QFont::DemiBold);
    p.setFont(f);
    QColor fill(128, 128, 128);
    fill.setAlphaF(0.15);
    QColor stroke(128, 128, 128);
    stroke.setAlphaF(0.4);
    int x = pad;
    for (const auto& label : parts_) {
        const QRectF cap(x + 0.5, pad + 0.5, capWidth(label) - 1, height_ - 1);
        QPainterPath path;
        path.addRoundedRect(cap, 5, 5);
        p.fillPath(path, fill);
        p.setPen(QPen(stroke, 1));
        p.drawPath(path);
        p.setPen(palette().color(QPalette::WindowText));
        p.drawText(cap, Qt::AlignCenter, label);
        x += capWidth(label) + kSpacing;
    }
}

void KeyCapsView::enterEvent(QEnterEvent*) {
    hovering_ = true;
    update();
}

void KeyCapsView::leaveEvent(QEvent*) {
    hovering_ = false;
    update();
}

void KeyCapsView::mouseReleaseEvent(QMouseEvent* event) {
    if (clickable_ && event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) emit clicked();
}

}  // namespace vocle
