#include "ui/screens/VocabularyView.h"

#include <QLabel>
#include <QPlainTextEdit>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

VocabularyView::VocabularyView(VocabularyViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    header(page, "Vocabulary", VocabularyViewModel::kExplanation);
    page->addWidget(paragraph(VocabularyViewModel::kExamples, "caption"));
    editor_ = new QPlainTextEdit;
    editor_->setAccessibleName("Vocabulary");
    editor_->setMinimumHeight(200);
    editor_->setPlaceholderText("John Doe, ACME Corp, …");
    page->addWidget(editor_, 1);
    status_ = label("", "caption");
    page->addWidget(status_);
    connect(editor_, &QPlainTextEdit::textChanged, this, [this] { vm_.setText(ss(editor_->toPlainText())); });
    subscriptions_.push_back(vm_.vocabularyText.subscribe([this](const auto&) { refresh(); }));
    subscriptions_.push_back(vm_.isDirty.subscribe([this](const auto&) { refresh(); }));
    refresh();
}

void VocabularyView::hideEvent(QHideEvent* event) {
    vm_.flush();
    QWidget::hideEvent(event);
}

void VocabularyView::refresh() {
    if (ss(editor_->toPlainText()) != vm_.vocabularyText.get()) editor_->setPlainText(qs(vm_.vocabularyText.get()));
    status_->setText(vm_.isDirty.get() ? "Editing…" : "Saved");
}

}  // namespace vocle
