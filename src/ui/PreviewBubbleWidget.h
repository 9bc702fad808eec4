#pragma once

#include <QPointer>
#include <QPropertyAnimation>
#include <QString>
#include <QWidget>

#include "desktop/IndicatorPanel.h"

namespace vocle::ui {

// The live preview's window, made like the indicator's: frameless, above everything, never focused,
// transparent to the mouse (override-redirect on X11). Paints a dark rounded bubble with up to two
// lines of text, the newest words last.
class PreviewBubbleWidget final : public QWidget, public PreviewBubble {
    Q_OBJECT
  public:
    PreviewBubbleWidget();

    void showText(const ScreenRect& frame, const std::string& text) override;
    void fadeOut(Seconds duration) override;
    bool isVisible() const override { return QWidget::isVisible() && !fading_; }

    QString text() const { return text_; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QString text_;
    QPointer<QPropertyAnimation> fade_;
    bool fading_ = false;
};

}  // namespace vocle::ui
