#include "ui/screens/KeyCapsView.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QEnterEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace vocle {

namespace {

// A clickable box is a button to assistive technology, read out as its name and the shortcut it shows;
// a plain one is static text.
class KeyCapsAccessible : public QAccessibleWidget {
  public:
    explicit KeyCapsAccessible(KeyCapsView* view)
        : QAccessibleWidget(view, view->isClickable() ? QAccessible::Button : QAccessible::StaticText) {}

    QString text(QAccessible::Text t) const override {
        const auto* view = static_cast<const KeyCapsView*>(widget());
        if (t == QAccessible::Name && view->accessibleName().isEmpty()) return view->partsText();
        if (t == QAccessible::Description && view->accessibleDescription().isEmpty()) return view->partsText();
        return QAccessibleWidget::text(t);
    }
    QStringList actionNames() const override {
        auto names = QAccessibleWidget::actionNames();
        if (static_cast<const KeyCapsView*>(widget())->isClickable()) names.prepend(pressAction());
        return names;
    }
    void doAction(const QString& action) override {
        if (action == pressAction()) static_cast<KeyCapsView*>(widget())->activate();
        else QAccessibleWidget::doAction(action);
    }
};

QAccessibleInterface* keyCapsAccessible(const QString& className, QObject* object) {
    if (className == QLatin1String(KeyCapsView::staticMetaObject.className()) && object && object->isWidgetType())
        return new KeyCapsAccessible(static_cast<KeyCapsView*>(object));
    return nullptr;
}

}  // namespace

KeyCapsView::KeyCapsView(QWidget* parent, bool clickable) : QWidget(parent), clickable_(clickable) {
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(keyCapsAccessible);
        return true;
    }();
    (void)factoryInstalled;
    if (clickable_) {
        setCursor(Qt::PointingHandCursor);
        // Reachable with Tab and opened with Space or Return, like a button.
        setFocusPolicy(Qt::StrongFocus);
    }
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
        if (hasFocus()) p.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
        else p.setPen(Qt::NoPen);
        p.setBrush(frame);
        p.drawRoundedRect(QRectF(rect()).adjusted(0.75, 0.75, -0.75, -0.75), 8, 8);
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

QString KeyCapsView::partsText() const {
    QStringList list(parts_.begin(), parts_.end());
    return list.join(' ');
}

void KeyCapsView::activate() {
    if (clickable_) emit clicked();
}

void KeyCapsView::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Space:
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (clickable_ && event->modifiers() == Qt::NoModifier) {
                activate();
                return;
            }
            break;
        default: break;
    }
    QWidget::keyPressEvent(event);
}

void KeyCapsView::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    update();
}

void KeyCapsView::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    update();
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
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) activate();
}

}  // namespace vocle
