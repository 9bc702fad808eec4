#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/PermissionsViewModel.h"

#include <QWidget>

class QVBoxLayout;

class QLabel;

namespace vocle {

class PermissionsView : public QWidget {
    Q_OBJECT
  public:
    PermissionsView(PermissionsViewModel& viewModel, QWidget* parent);

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QLabel* problem_ = nullptr;
    QLabel* footer_ = nullptr;
    void rebuild();
    void showAlertIfAny();

    PermissionsViewModel& vm_;
    QVBoxLayout* items_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle
