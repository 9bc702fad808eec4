#pragma once

#include "screens/SignInViewModel.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

namespace vocle::ui {

// The two-step e-mail code panel over the whole main window. Draws SignInViewModel; Ctrl+V in the code
// step pastes the clipboard's text, trimmed, as the code.
class SignInOverlay final : public QWidget {
    Q_OBJECT
public:
    SignInOverlay(SignInViewModel& model, std::function<std::optional<std::string>()> clipboardText,
                  QWidget* parent = nullptr);

    QLineEdit* emailField() const { return email_; }
    QLineEdit* codeField() const { return code_; }
    QPushButton* primaryButton() const { return primary_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refresh();

    SignInViewModel& model_;
    std::function<std::optional<std::string>()> clipboardText_;
    QLabel* heading_ = nullptr;
    QLabel* line_ = nullptr;
    QLineEdit* email_ = nullptr;
    QLineEdit* code_ = nullptr;
    QPushButton* primary_ = nullptr;
    QPushButton* resend_ = nullptr;
    QPushButton* back_ = nullptr;
    QLabel* error_ = nullptr;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle::ui
