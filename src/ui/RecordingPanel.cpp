#include "ui/RecordingPanel.h"

#include <QGuiApplication>
#include <QPainterPath>
#include <QRegion>
#include <QScreen>

#include <sstream>

#include "foundation/Log.h"

// Last: Xlib's macros (None, Status) collide with names in the headers above.
#include <X11/Xlib.h>


namespace vocle::ui {

RecordingPanel::RecordingPanel(const ScreenRect& rect, FloatingRecordingView& view)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
                           Qt::WindowTransparentForInput | Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint) {
    log("💡 Initializing RecordingPanel with rect: ", describeRect(rect));
    setObjectName("RecordingPanel");
    setWindowTitle("Vocle Recording Indicator");
    level_ = 3;
    log("💡 Initial window level: ", level_);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
    setGeometry(static_cast<int>(rect.x), static_cast<int>(rect.y), static_cast<int>(rect.width),
                static_cast<int>(rect.height));
    setFixedSize(static_cast<int>(rect.width), static_cast<int>(rect.height));
    container_ = new RecordingContainerView(view, this);
    container_->move(0, 0);
    setWindowOpacity(1.0);
    applyShape();
    log("💡 RecordingPanel initialized: level=", level_, ", alpha=", windowOpacity());
}

RecordingPanel::~RecordingPanel() = default;

bool RecordingPanel::hasCompositor() {
    // A compositing manager owns the _NET_WM_CM_S<screen> selection (EWMH).
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display* display = x11 ? x11->display() : nullptr;
    if (!display) return false;
    const std::string name = "_NET_WM_CM_S" + std::to_string(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.c_str(), False);
    return XGetSelectionOwner(display, selection) != 0;
}

void RecordingPanel::applyShape() {
    // Without a compositor the transparent corners would show black; clip the window to its shape.
    if (hasCompositor()) {
        clearMask();
        return;
    }
    QPainterPath path;
    path.addRoundedRect(QRectF(0, 0, width(), height()), FloatingRecordingView::kCornerRadius,
                        FloatingRecordingView::kCornerRadius);
    setMask(QRegion(path.toFillPolygon().toPolygon()));
}

void RecordingPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    applyShape();
}

void RecordingPanel::orderFrontRegardless() {
    if (fade_) {
        fade_->stop();
        fade_->deleteLater();
    }
    setWindowOpacity(1.0);
    show();
    raise();
}

void RecordingPanel::setLevel(int level) {
    level_ = level;
    if (QWidget::isVisible()) raise();
}

void RecordingPanel::setAlpha(double alpha) { setWindowOpacity(alpha); }

void RecordingPanel::fadeOut(Seconds duration, std::function<void()> completion) {
    if (fade_) fade_->stop();
    auto* animation = new QPropertyAnimation(this, "windowOpacity", this);
    animation->setDuration(static_cast<int>(duration.count() * 1000));
    animation->setStartValue(windowOpacity());
    animation->setEndValue(0.0);
    connect(animation, &QPropertyAnimation::finished, this, [this, completion = std::move(completion)] {
        hide();
        if (completion) completion();
    });
    fade_ = animation;
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

std::string RecordingPanel::description() const {
    std::ostringstream out;
    out << "<RecordingPanel: window 0x" << std::hex << winId() << std::dec << ", frame " << describeRect({
        static_cast<double>(x()), static_cast<double>(y()), static_cast<double>(width()), static_cast<double>(height())})
        << ">";
    return out.str();
}

}  // namespace vocle::ui
