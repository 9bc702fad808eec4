#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/HomeViewModel.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QVBoxLayout;

namespace vocle {

class HomeView : public QWidget {
    Q_OBJECT
  public:
    HomeView(HomeViewModel& viewModel, QWidget* parent);

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QLabel* problem_ = nullptr;
    void rebuild();

    HomeViewModel& vm_;
    QLabel* progressText_;
    QProgressBar* progress_;
    QVBoxLayout* rows_;
    Subscription changed_;
};

}  // namespace vocle
