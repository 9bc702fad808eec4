#include "ui/screens/ShortcutPickerSheet.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/screens/KeyCapsView.h"
#include "ui/screens/KeyCodeMapping.h"
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

bool isKeyEvent(QEvent* event) {
    return event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease ||
           event->type() == QEvent::ShortcutOverride;
}

}  // namespace

ShortcutPickerSheet::ShortcutPickerSheet(ShortcutPickerViewModel& vm, QWidget* parent) : QDialog(parent), vm_(vm) {
    auto* layout = sheetLayout(this, ShortcutPickerViewModel::kTitle);
    layout->addWidget(paragraph(ShortcutPickerViewModel::kHint, "subtitle"));
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
    subscriptions_.push_back(vm_.dismissed.subscribe([this] {
        stopFiltering();
        accept();
    }));
    refresh();
}

ShortcutPickerSheet::~ShortcutPickerSheet() { stopFiltering(); }

void ShortcutPickerSheet::showEvent(QShowEvent* event) {
    // The theme's title font is known only once polished; size to it.
    adjustSize();
    QDialog::showEvent(event);
    if (!filtering_) {
        qApp->installEventFilter(this);
        filtering_ = true;
    }
    vm_.startCapturing();
}

void ShortcutPickerSheet::stopFiltering() {
    if (filtering_) qApp->removeEventFilter(this);
    filtering_ = false;
}

void ShortcutPickerSheet::reject() {
    // The window's close button: same as "Cancel".
    if (vm_.isCapturing.get()) {
        vm_.cancel();
    } else {
        stopFiltering();
        QDialog::reject();
    }
}

bool ShortcutPickerSheet::eventFilter(QObject* watched, QEvent* event) {
    if (!vm_.isCapturing.get() || !isKeyEvent(event)) return QDialog::eventFilter(watched, event);
    if (event->type() == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->isAutoRepeat()) return true;
    if (modifierOfKey(key->key()) != 0) return vm_.handleFlagsChanged(flagsAfter(*key));
    if (event->type() != QEvent::KeyPress) return true;
    auto code = storedKeyCode(*key);
    if (!code) return true;
    return vm_.handleKeyDown(*code, storedModifiers(key->modifiers()));
}

void ShortcutPickerSheet::refresh() {
    message_->setText(qs(vm_.message.get()));
    preview_->setParts(vm_.previewParts());
    save_->setEnabled(vm_.canSave());
}

CancelPickerSheet::CancelPickerSheet(CancelPickerViewModel& vm, QWidget* parent) : QDialog(parent), vm_(vm) {
    auto* layout = sheetLayout(this, CancelPickerViewModel::kTitle);
    message_ = paragraph("", "subtitle");
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
    subscriptions_.push_back(vm_.dismissed.subscribe([this] {
        stopFiltering();
        accept();
    }));
    refresh();
}

CancelPickerSheet::~CancelPickerSheet() { stopFiltering(); }

void CancelPickerSheet::showEvent(QShowEvent* event) {
    adjustSize();
    QDialog::showEvent(event);
    if (!filtering_) {
        qApp->installEventFilter(this);
        filtering_ = true;
    }
    vm_.startCapturing();
}

void CancelPickerSheet::stopFiltering() {
    if (filtering_) qApp->removeEventFilter(this);
    filtering_ = false;
}

void CancelPickerSheet::reject() {
    if (vm_.isCapturing.get()) {
        vm_.close();
    } else {
        stopFiltering();
        QDialog::reject();
    }
}

bool CancelPickerSheet::eventFilter(QObject* watched, QEvent* event) {
    if (!vm_.isCapturing.get() || !isKeyEvent(event)) return QDialog::eventFilter(watched, event);
    if (event->type() == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    auto* key = static_cast<QKeyEvent*>(event);
    if (event->type() != QEvent::KeyPress || key->isAutoRepeat() || modifierOfKey(key->key()) != 0) return true;
    auto code = storedKeyCode(*key);
    if (!code) return true;
    return vm_.handleKeyDown(*code, storedModifiers(key->modifiers()));
}

void CancelPickerSheet::refresh() {
    message_->setText(qs(vm_.message.get()));
    preview_->setParts(vm_.previewParts());
    save_->setEnabled(vm_.canSave());
}

}  // namespace vocle
