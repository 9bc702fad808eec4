#pragma once

#include "desktop/IndicatorPanel.h"
#include "ui/RecordingContainerView.h"

#include <QPointer>
#include <QPropertyAnimation>
#include <QWidget>

namespace vocle::ui {

// The indicator's window: frameless, above everything, on every desktop, never focused and transparent
// to the mouse. On X11 it is an override-redirect window (the window manager neither decorates, focuses
// nor stacks it) with an empty input shape, so clicks reach the window below.
class RecordingPanel final : public QWidget, public IndicatorPanel {
    Q_OBJECT
public:
    RecordingPanel(const ScreenRect& contentRect, FloatingRecordingView& view);
    ~RecordingPanel() override;

    // The panel never becomes the key or main window.
    bool canBecomeKeyWindow() const { return false; }
    bool canBecomeMainWindow() const { return false; }

    void orderFrontRegardless() override;
    void setLevel(int level) override;
    int level() const override { return level_; }
    void setAlpha(double alpha) override;
    void fadeOut(Seconds duration, std::function<void()> completion) override;
    bool isVisible() const override { return QWidget::isVisible(); }
    std::string description() const override;

    RecordingContainerView* containerView() const { return container_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void applyShape();
    // Whether a compositing manager runs; without one, translucent corners would show black.
    static bool hasCompositor();

    RecordingContainerView* container_ = nullptr;
    int level_ = 3;
    QPointer<QPropertyAnimation> fade_;
};

}  // namespace vocle::ui
