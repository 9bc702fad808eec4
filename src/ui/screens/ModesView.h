#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "modes/ModesViewModel.h"

#include <QWidget>

class QVBoxLayout;

namespace vocle {

// The mode list: one row per mode with its type icon and an "Active" badge; a row opens the editor.
class ModesView : public QWidget {
    Q_OBJECT
  public:
    ModesView(ModesViewModel& viewModel, QWidget* parent);

  private:
    void rebuild();

    ModesViewModel& vm_;
    QVBoxLayout* rows_;
    Subscription changed_;
};

}  // namespace vocle
