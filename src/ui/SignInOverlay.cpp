#include "ui/SignInOverlay.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/Theme.h"

namespace vocle::ui {

SignInOverlay::SignInOverlay(SignInViewModel& model, std::function<std::optional<std::string>()> clipboardText,
                             QWidget* parent)
    : QWidget(parent), model_(model), clipboardText_(std::move(clipboardText)) {
    setObjectName("SignInOverlay");
    setAttribute(Qt::WA_StyledBackground);
    Theme::setRole(this, "overlay");

    auto* outer = new QVBoxLayout(this);
    outer->setAlignment(Qt::AlignCenter);
    auto* card = new QFrame(this);
    card->setObjectName("SignInCard");
    Theme::setRole(card, "card");
    card->setFixedWidth(340);
    outer->addWidget(card, 0, Qt::AlignCenter);

    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(24, 20, 24, 24);
    layout->setSpacing(12);

    auto* top = new QHBoxLayout();
    back_ = new QPushButton(card);
    back_->setObjectName("SignInBack");
    back_->setIcon(Theme::icon("back", Theme::kText));
    back_->setToolTip("Back");
    back_->setFixedSize(28, 28);
    Theme::setRole(back_, "plain");
    top->addWidget(back_);
    top->addStretch();
    layout->addLayout(top);

    auto* logo = new QLabel(card);
    logo->setPixmap(Theme::originalIcon("vocle").pixmap(QSize(56, 56), devicePixelRatioF()));
    logo->setAlignment(Qt::AlignCenter);
    layout->addWidget(logo);

    heading_ = new QLabel(card);
    heading_->setObjectName("SignInHeading");
    Theme::setRole(heading_, "title");
    heading_->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading_);

    line_ = new QLabel("Enter the code we emailed you below.", card);
    Theme::setRole(line_, "secondary");
    line_->setAlignment(Qt::AlignCenter);
    line_->setWordWrap(true);
    layout->addWidget(line_);

    email_ = new QLineEdit(card);
    email_->setObjectName("SignInEmail");
    email_->setPlaceholderText("Enter your email");
    layout->addWidget(email_);

    code_ = new QLineEdit(card);
    code_->setObjectName("SignInCode");
    code_->setPlaceholderText("Code");
    code_->setAlignment(Qt::AlignCenter);
    layout->addWidget(code_);

    primary_ = new QPushButton(card);
    primary_->setObjectName("SignInPrimary");
    Theme::setRole(primary_, "primary");
    primary_->setDefault(true);
    layout->addWidget(primary_);

    resend_ = new QPushButton(card);
    resend_->setObjectName("SignInResend");
    Theme::setRole(resend_, "link");
    layout->addWidget(resend_, 0, Qt::AlignCenter);

    error_ = new QLabel(card);
    error_->setObjectName("SignInError");
    Theme::setRole(error_, "error");
    error_->setAlignment(Qt::AlignCenter);
    error_->setWordWrap(true);
    layout->addWidget(error_);

    connect(email_, &QLineEdit::textEdited, this, [this](const QString& t) { model_.email.set(t.toStdString()); });
    connect(code_, &QLineEdit::textEdited, this, [this](const QString& t) { model_.code.set(t.toStdString()); });
    auto primaryAction = [this] {
        if (model_.step.get() == 1) model_.sendCode();
        else model_.verifyCode();
    };
    connect(primary_, &QPushButton::clicked, this, primaryAction);
    connect(email_, &QLineEdit::returnPressed, this, primaryAction);
    connect(code_, &QLineEdit::returnPressed, this, primaryAction);
    connect(resend_, &QPushButton::clicked, this, [this] { model_.resendCode(); });
    connect(back_, &QPushButton::clicked, this, [this] { model_.goBack(); });

    auto redraw = [this](const auto&) { refresh(); };
    subscriptions_.push_back(model_.email.subscribe(redraw));
    subscriptions_.push_back(model_.code.subscribe(redraw));
    subscriptions_.push_back(model_.step.subscribe(redraw));
    subscriptions_.push_back(model_.error.subscribe(redraw));
    subscriptions_.push_back(model_.isLoading.subscribe(redraw));
    subscriptions_.push_back(model_.retryCountdown.subscribe(redraw));

    // The paste shortcut is caught before the focused field sees it.
    qApp->installEventFilter(this);
    refresh();
}

bool SignInOverlay::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress && isVisible() && watched->isWidgetType() &&
        window() == static_cast<QWidget*>(watched)->window()) {
        auto* key = static_cast<QKeyEvent*>(event);
        const auto mods = key->modifiers();
        SignInKeyPress press;
        press.shift = mods & Qt::ShiftModifier;
        press.control = mods & Qt::ControlModifier;
        press.alt = mods & Qt::AltModifier;
        press.super = mods & Qt::MetaModifier;
        if (key->key() >= Qt::Key_A && key->key() <= Qt::Key_Z)
            press.charactersIgnoringModifiers = std::string(1, static_cast<char>('a' + (key->key() - Qt::Key_A)));
        if (model_.handleKeyDown(press, clipboardText_)) return true;
    }
    return QWidget::eventFilter(watched, event);
}

void SignInOverlay::refresh() {
    const bool codeStep = model_.step.get() == 2;
    heading_->setText(QString::fromStdString(model_.heading()));
    line_->setVisible(codeStep);
    email_->setVisible(!codeStep);
    code_->setVisible(codeStep);
    back_->setVisible(codeStep);
    resend_->setVisible(codeStep);
    if (email_->text().toStdString() != model_.email.get()) email_->setText(QString::fromStdString(model_.email.get()));
    if (code_->text().toStdString() != model_.code.get()) code_->setText(QString::fromStdString(model_.code.get()));
    primary_->setText(QString::fromStdString(model_.primaryButtonTitle()));
    primary_->setEnabled(!model_.isLoading.get());
    resend_->setText(QString::fromStdString(model_.resendButtonTitle()));
    resend_->setEnabled(model_.retryCountdown.get() < 1 && !model_.isLoading.get());
    const auto& error = model_.error.get();
    error_->setText(error ? QString::fromStdString(*error) : QString());
    error_->setVisible(error.has_value());
    if (codeStep && !code_->hasFocus() && isVisible()) code_->setFocus();
}

}  // namespace vocle::ui
