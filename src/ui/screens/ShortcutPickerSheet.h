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

// The modal sheet that records a new toggle shortcut. While it captures, every key event of the
// application goes to the view model (nothing reaches a text field or the dialog's own Esc handling).
class ShortcutPickerSheet : public QDialog {
    Q_OBJECT
  public:
    ShortcutPickerSheet(ShortcutPickerViewModel& viewModel, QWidget* parent);
    ~ShortcutPickerSheet() override;

  protected:
    void showEvent(QShowEvent* event) override;
    void reject() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void refresh();
    void stopFiltering();

    ShortcutPickerViewModel& vm_;
    QLabel* message_;
    KeyCapsView* preview_;
    QPushButton* save_;
    bool filtering_ = false;
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
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void refresh();
    void stopFiltering();

    CancelPickerViewModel& vm_;
    QLabel* message_;
    KeyCapsView* preview_;
    QPushButton* save_;
    bool filtering_ = false;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle
