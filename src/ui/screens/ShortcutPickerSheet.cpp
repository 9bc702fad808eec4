#include "ui/screens/ShortcutPickerSheet.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/screens/KeyCapsView.h"
#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

QVBoxLayout* sheetLayout(QDialog* dialog, const char* title) {
    dialog->setModal(true);
    dialog->setWindowTitle(title);
    dialog->setMinimumWidth(460);
    auto* layout = new QVBoxLayout(dialog);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(12);
    layout->addWidget(label(title, "title"));
    return layout;
}

KeyCapsView* previewRow(QVBoxLayout* layout) {
    auto* row = new QHBoxLayout;
    auto* caps = new KeyCapsView;
    caps->setKeyMetrics(40, 36, 16);
    row->addStretch();
    row->addWidget(caps);
    row->addStretch();
    auto* holder = new QWidget;
    holder->setMinimumHeight(48);
    holder->setLayout(row);
    layout->addWidget(holder);
    return caps;
}

}  // namespace

ShortcutPickerSheet::ShortcutPickerSheet(ShortcutPickerViewModel& vm, QWidget* parent) : QDialog(parent), vm_(vm) {
    auto* layout = sheetLayout(this, ShortcutPickerViewModel::kTitle);
    layout->addWidget(paragraph(ShortcutPickerViewModel::kHint, "secondary"));
    message_ = paragraph("", "caption");
    layout->addWidget(message_);
    preview_ = previewRow(layout);
    auto* buttons = new QHBoxLayout;
    auto* restore = button("Restore Default");
    auto* cancel = button("Cancel");
    save_ = button("Save", "primary");
    for (auto* b : {restore, cancel, save_}) b->setFocusPolicy(Qt::NoFocus);
    buttons->addWidget(restore);
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(save_);
    layout->addLayout(buttons);
    connect(restore, &QPushButton::clicked, this, [this] { vm_.restoreDefault(); });
    connect(cancel, &QPushButton::clicked, this, [this] { vm_.cancel(); });
    connect(save_, &QPushButton::clicked, this, [this] { vm_.save(); });
    subscriptions_.push_back(vm_.changed.subscribe([this] { refresh(); }));
    subscriptions_.push_back(vm_.dismissed.subscribe([this] { accept(); }));
    refresh();
}

ShortcutPickerSheet::~ShortcutPickerSheet() {
    subscriptions_.clear();
    if (vm_.isCapturing.get()) vm_.cancel();
}

void ShortcutPickerSheet::showEvent(QShowEvent* event) {
    // The theme's title font is known only once polished; size to it. A sheet is not resized, so the
    // window manager draws no resize handle under it.
    adjustSize();
    setFixedSize(size());
    QDialog::showEvent(event);
    vm_.startCapturing();
}

void ShortcutPickerSheet::reject() {
    // The window's close button: same as "Cancel".
    if (vm_.isCapturing.get()) {
        vm_.cancel();
    } else {
        QDialog::reject();
    }
}

void ShortcutPickerSheet::refresh() {
    message_->setText(qs(vm_.message.get()));
    preview_->setParts(vm_.previewParts());
    save_->setEnabled(vm_.canSave());
}

CancelPickerSheet::CancelPickerSheet(CancelPickerViewModel& vm, QWidget* parent) : QDialog(parent), vm_(vm) {
    auto* layout = sheetLayout(this, CancelPickerViewModel::kTitle);
    message_ = paragraph("", "secondary");
    layout->addWidget(message_);
    preview_ = previewRow(layout);
    auto* buttons = new QHBoxLayout;
    auto* restore = button("Restore Default");
    auto* close = button("Close");
    save_ = button("Save", "primary");
    for (auto* b : {restore, close, save_}) b->setFocusPolicy(Qt::NoFocus);
    buttons->addWidget(restore);
    buttons->addStretch();
    buttons->addWidget(close);
    buttons->addWidget(save_);
    layout->addLayout(buttons);
    connect(restore, &QPushButton::clicked, this, [this] { vm_.restoreDefault(); });
    connect(close, &QPushButton::clicked, this, [this] { vm_.close(); });
    connect(save_, &QPushButton::clicked, this, [this] { vm_.save(); });
    subscriptions_.push_back(vm_.changed.subscribe([this] { refresh(); }));
    subscriptions_.push_back(vm_.dismissed.subscribe([this] { accept(); }));
    refresh();
}

CancelPickerSheet::~CancelPickerSheet() {
    subscriptions_.clear();
    if (vm_.isCapturing.get()) vm_.close();
}

void CancelPickerSheet::showEvent(QShowEvent* event) {
    adjustSize();
    setFixedSize(size());
    QDialog::showEvent(event);
    vm_.startCapturing();
}

void CancelPickerSheet::reject() {
    if (vm_.isCapturing.get()) {
        vm_.close();
    } else {
        QDialog::reject();
    }
}

void CancelPickerSheet::refresh() {
    message_->setText(qs(vm_.message.get()));
    preview_->setParts(vm_.previewParts());
    save_->setEnabled(vm_.canSave());
}

}  // namespace vocle
