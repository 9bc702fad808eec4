#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/HelpViewModel.h"

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace vocle {

class HelpView : public QWidget {
    Q_OBJECT
  public:
    HelpView(HelpViewModel& viewModel, QWidget* parent);

  private:
    QLabel* docsProblem_ = nullptr;
    void refresh();

    HelpViewModel& vm_;
    QPlainTextEdit* editor_;
    QPushButton* send_;
    QLabel* error_;
    Subscription changed_;
};

}  // namespace vocle
