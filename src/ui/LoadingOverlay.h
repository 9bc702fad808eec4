#pragma once

#include <QWidget>

#include <functional>
#include <optional>
#include <string>

class QLabel;
class QPushButton;

namespace vocle::ui {

// Start-up progress over the main window, or its failure with "Try Again".
class LoadingOverlay final : public QWidget {
    Q_OBJECT
public:
    explicit LoadingOverlay(std::function<void()> onRetry, QWidget* parent = nullptr);

    void setError(const std::optional<std::string>& error);
    QPushButton* retryButton() const { return retry_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    std::function<void()> onRetry_;
    QLabel* icon_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* text_ = nullptr;
    QPushButton* retry_ = nullptr;
    QWidget* spinnerSpace_ = nullptr;
    bool failed_ = false;
    int frame_ = 0;
    int timer_ = 0;
};

}  // namespace vocle::ui
