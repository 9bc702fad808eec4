#pragma once

#include <map>
#include <memory>

// Before Qt: Qt's `emit` keyword macro would rewrite Signal::emit.
#include "platform/events.h"
#include "platform/x11/KeysymTable.h"

#include <QObject>

class QKeyEvent;

namespace vocle::x11 {

// The in-application key monitor: an event filter on the application object, so it sees key presses for
// every one of our windows before the focused widget does. Create on the GUI thread after the
// QGuiApplication.
class QtLocalKeyMonitor final : public QObject, public LocalKeyMonitor {
    Q_OBJECT
  public:
    explicit QtLocalKeyMonitor(QObject* parent = nullptr);
    ~QtLocalKeyMonitor() override;

    Subscription addLocalMonitor(uint32_t mask, Handler handler) override;

    // Translates a Qt key event to the Mac key code and modifier bits; none for keys the table lacks.
    std::optional<KeyEvent> translate(const QKeyEvent& event);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    bool offer(const KeyEvent& event);

    struct Entry {
        uint32_t mask;
        std::shared_ptr<Handler> handler;
    };
    std::shared_ptr<std::map<int, Entry>> entries_ = std::make_shared<std::map<int, Entry>>();
    int nextId_ = 0;
    KeycodeTranslator translator_;
    // An unhandled key event travels up the widget chain and passes the application filter once per
    // widget; it is offered to the monitors only the first time.
    const QEvent* lastEvent_ = nullptr;
    unsigned long lastTimestamp_ = 0;
    bool lastResult_ = false;
};

}  // namespace vocle::x11
