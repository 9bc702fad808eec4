#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/SettingsViewModel.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSlider;

namespace vocle {

class KeyCapsView;

class SettingsView : public QWidget {
    Q_OBJECT
  public:
    SettingsView(SettingsViewModel& viewModel, QWidget* parent);

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    void refresh();
    void openTogglePicker();
    void openCancelPicker();

    SettingsViewModel& vm_;
    QLabel* loading_;
    QWidget* content_;
    KeyCapsView* toggleBox_;
    KeyCapsView* cancelBox_;
    QLabel* compositorNote_;
    QLabel* compositorLines_;
    QPushButton* compositorCopy_;
    QLabel* cancelNote_;
    QPushButton* addToGnome_;
    QLabel* gnomeStatus_;
    QLabel* handNote_;
    QLabel* handCommand_;
    QPushButton* handCopy_;
    QCheckBox* useDefault_;
    QComboBox* devices_;
    QLabel* deviceNote_;
    QLabel* toggleWarning_;
    QLabel* cancelWarning_;
    QCheckBox* soundEffects_;
    QSlider* volume_;
    QCheckBox* startAtLogin_;
    QCheckBox* livePreview_;
    QLabel* error_;
    bool refreshing_ = false;
    Subscription changed_;
    Subscription pickerRequest_;
};

}  // namespace vocle
