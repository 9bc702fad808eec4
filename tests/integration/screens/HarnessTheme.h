#pragma once

class QApplication;

namespace vocle::testing {

// The main window's dark scheme as the screens expect it (palette plus the role stylesheet), for
// rendering screens on their own. Stands in for the application's theme in these tests.
void applyHarnessTheme(QApplication& app);

}  // namespace vocle::testing
