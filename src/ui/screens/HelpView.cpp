#include "ui/screens/HelpView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

HelpView::HelpView(HelpViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    header(page, "Help");
    auto* docs = button(HelpViewModel::kOpenDocs, "link");
    docs->setIcon(symbolIcon("arrow.up.right.square"));
    docs->setLayoutDirection(Qt::RightToLeft);
    auto* docsRow = new QHBoxLayout;
    docsRow->addWidget(docs);
    docsRow->addStretch();
    page->addLayout(docsRow);
    docsProblem_ = paragraph("", "warning");
    page->addWidget(docsProblem_);
    connect(docs, &QPushButton::clicked, this, [this] { vm_.openDocs(); });

    auto* form = section(page, "Contact");
    form->addWidget(paragraph(HelpViewModel::kIntro));
    editor_ = new QPlainTextEdit;
    editor_->setAccessibleName("Message");
    editor_->setMinimumHeight(160);
    editor_->setPlaceholderText("Your message");
    form->addWidget(editor_);
    connect(editor_, &QPlainTextEdit::textChanged, this, [this] { vm_.setMessage(ss(editor_->toPlainText())); });
    auto* buttons = new QHBoxLayout;
    send_ = button("Send message", "primary");
    send_->setMinimumWidth(130);
    buttons->addStretch();
    buttons->addWidget(send_);
    form->addLayout(buttons);
    connect(send_, &QPushButton::clicked, this, [this] { vm_.send(); });
    error_ = paragraph("", "error");
    form->addWidget(error_);
    page->addStretch();

    changed_ = vm_.changed.subscribe([this] { refresh(); });
    refresh();
}

void HelpView::refresh() {
    if (ss(editor_->toPlainText()) != vm_.message.get()) editor_->setPlainText(qs(vm_.message.get()));
    send_->setText(qs(vm_.sendButtonTitle()));
    send_->setEnabled(vm_.canSend());
    error_->setText(qs(vm_.errorMessage.get().value_or("")));
    error_->setVisible(vm_.errorMessage.get().has_value());
    docsProblem_->setText(qs(vm_.openProblem.get().value_or("")));
    docsProblem_->setVisible(vm_.openProblem.get().has_value());
}

}  // namespace vocle
