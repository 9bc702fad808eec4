#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/ShortcutPickerViewModel.h"

#include <QDialog>

class QLabel;
class QPushButton;

namespace vocle {

class KeyCapsView;

// The modal sheet that records a new toggle shortcut; the view model's key monitors do the capturing.
class ShortcutPickerSheet : public QDialog {
    Q_OBJECT
  public:
    ShortcutPickerSheet(ShortcutPickerViewModel& viewModel, QWidget* parent);
    ~ShortcutPickerSheet() override;

  protected:
    void showEvent(QShowEvent* event) override;
    void reject() override;

  private:
    void refresh();

    ShortcutPickerViewModel& vm_;
    QLabel* message_;
    KeyCapsView* preview_;
    QPushButton* save_;
    std::vector<Subscription> subscriptions_;
};

// The cancel-shortcut sheet: one key; Escape is captured, "Close" leaves.
class CancelPickerSheet : public QDialog {
    Q_OBJECT
  public:
    CancelPickerSheet(CancelPickerViewModel& viewModel, QWidget* parent);
    ~CancelPickerSheet() override;

  protected:
    void showEvent(QShowEvent* event) override;
    void reject() override;

  private:
    void refresh();

    CancelPickerViewModel& vm_;
    QLabel* message_;
    KeyCapsView* preview_;
    QPushButton* save_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle
