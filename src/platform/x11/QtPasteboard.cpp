#include "platform/x11/QtPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>

namespace vocle::x11 {

void QtPasteboard::clearContents() {
    if (auto* clipboard = QGuiApplication::clipboard()) clipboard->clear(QClipboard::Clipboard);
}

void QtPasteboard::setString(const std::string& text) {
    if (auto* clipboard = QGuiApplication::clipboard())
        clipboard->setText(QString::fromStdString(text), QClipboard::Clipboard);
}

std::optional<std::string> QtPasteboard::string() const {
    auto* clipboard = QGuiApplication::clipboard();
    if (!clipboard) return std::nullopt;
    const QString text = clipboard->text(QClipboard::Clipboard);
    if (text.isNull()) return std::nullopt;
    return text.toStdString();
}

}  // namespace vocle::x11
