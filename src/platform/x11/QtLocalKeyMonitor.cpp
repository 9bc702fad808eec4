#include "platform/x11/QtLocalKeyMonitor.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <vector>

namespace vocle::x11 {

QtLocalKeyMonitor::QtLocalKeyMonitor(QObject* parent) : QObject(parent) {
    if (auto* app = QCoreApplication::instance()) app->installEventFilter(this);
}

QtLocalKeyMonitor::~QtLocalKeyMonitor() {
    if (auto* app = QCoreApplication::instance()) app->removeEventFilter(this);
}

Subscription QtLocalKeyMonitor::addLocalMonitor(uint32_t mask, Handler handler) {
    const int id = nextId_++;
    entries_->emplace(id, Entry{mask, std::make_shared<Handler>(std::move(handler))});
    return Subscription([weak = std::weak_ptr(entries_), id] {
        if (auto e = weak.lock()) e->erase(id);
    });
}

std::optional<KeyEvent> QtLocalKeyMonitor::translate(const QKeyEvent& event) {
    std::optional<uint16_t> code = translator_.macKeyCode(event.nativeScanCode());
    unsigned long sym = translator_.baseKeysym(event.nativeScanCode());
    if (!code) {
        // No X key code (synthesised events): fall back to the symbol Qt reports.
        sym = event.nativeVirtualKey();
        code = macKeyCodeForKeysym(sym);
    }
    if (!code) return std::nullopt;

    const Qt::KeyboardModifiers mods = event.modifiers();
    uint64_t flags = 0;
    if (mods & Qt::ShiftModifier) flags |= kModifierShift;
    if (mods & Qt::ControlModifier) flags |= kModifierControl;
    if (mods & Qt::AltModifier) flags |= kModifierOption;
    if (mods & Qt::MetaModifier) flags |= kModifierCommand;
    // X reports the state before the event: a modifier key's own bit is added on press, dropped on release.
    const uint64_t own = macFlagForModifierKeysym(sym);
    const bool press = event.type() == QEvent::KeyPress;
    if (own) flags = press ? (flags | own) : (flags & ~own);
    if (own) return KeyEvent{KeyEventType::flagsChanged, *code, flags};
    return KeyEvent{press ? KeyEventType::keyDown : KeyEventType::keyUp, *code, flags};
}

bool QtLocalKeyMonitor::offer(const KeyEvent& event) {
    const uint32_t bit = event.type == KeyEventType::keyDown        ? kKeyDownMask
                         : event.type == KeyEventType::flagsChanged ? kFlagsChangedMask
                                                                    : 0;
    if (!bit) return false;
    std::vector<std::pair<int, Entry>> snapshot(entries_->begin(), entries_->end());
    for (const auto& [id, entry] : snapshot) {
        if (!(entry.mask & bit) || !entries_->count(id)) continue;
        if ((*entry.handler)(event)) return true;
    }
    return false;
}

bool QtLocalKeyMonitor::eventFilter(QObject* watched, QEvent* event) {
    const auto type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::KeyRelease) return QObject::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    if (event == lastEvent_ && key->timestamp() == lastTimestamp_) return lastResult_;
    lastEvent_ = event;
    lastTimestamp_ = key->timestamp();
    lastResult_ = false;
    if (entries_->empty()) return false;
    if (const auto translated = translate(*key)) lastResult_ = offer(*translated);
    return lastResult_;
}

}  // namespace vocle::x11
