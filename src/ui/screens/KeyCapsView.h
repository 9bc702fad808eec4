#pragma once

#include <QWidget>

#include <string>
#include <vector>

namespace vocle {

// A shortcut shown as key caps: rounded gray keys, one per display part. With `clickable` it reacts
// to hovering and clicks (the settings screen's shortcut boxes).
class KeyCapsView : public QWidget {
    Q_OBJECT
  public:
    explicit KeyCapsView(QWidget* parent = nullptr, bool clickable = false);

    void setParts(const std::vector<std::string>& parts);
    void setKeyMetrics(int minWidth, int height, int fontSize);
    bool isClickable() const { return clickable_; }
    // The parts as one line ("Ctrl Alt Space"), as assistive technology reads them.
    QString partsText() const;
    // What a click does; also the accessible "press" action.
    void activate();
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  signals:
    void clicked();

  protected:
    void paintEvent(QPaintEvent*) override;
    void enterEvent(QEnterEvent*) override;
    void leaveEvent(QEvent*) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

  private:
    int capWidth(const QString& label) const;

    std::vector<QString> parts_;
    bool clickable_;
    bool hovering_ = false;
    int minWidth_ = 28;
    int height_ = 26;
    int fontSize_ = 12;
    static constexpr int kSpacing = 6;
    static constexpr int kPadding = 6;
};

}  // namespace vocle
