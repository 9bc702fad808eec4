#include "app/ScreenFactory.h"

namespace vocle::app {

ui::ScreenFactory makeScreenFactory(DictationApp&) {
    // Wiring point for src/ui/screens: each kind maps to `XView(<its view model>&, parent)`.
    return [](const ui::DetailScreen&, QWidget*) -> QWidget* { return nullptr; };
}

}  // namespace vocle::app
