#pragma once

#include "application/DictationApp.h"
#include "ui/MainView.h"

namespace vocle::app {

// The screens of the detail area, built from their view models. Screens not built yet return null and
// the main window shows its placeholder.
ui::ScreenFactory makeScreenFactory(DictationApp& app);

}  // namespace vocle::app
