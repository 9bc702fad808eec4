#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/ModeDetailViewModel.h"

#include <QWidget>

#include <string>

class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;

namespace vocle {

// The mode editor. Changes stay in the view model's working copy until "Save".
class ModeDetailView : public QWidget {
    Q_OBJECT
  public:
    ModeDetailView(ModeDetailViewModel& viewModel, QWidget* parent);

  private:
    void refresh();
    void rebuildTypeList();
    void chooseApplication();
    void confirmDelete();

    ModeDetailViewModel& vm_;
    QLineEdit* name_;
    QPushButton* typeTrigger_;
    QLabel* typeDescription_;
    QFrame* typeList_;
    QVBoxLayout* typeRows_;
    QPlainTextEdit* prompt_;
    QComboBox* language_;
    QCheckBox* mute_;
    QCheckBox* systemAudio_;
    QPushButton* addApplication_;
    QWidget* applicationRow_;
    QLabel* applicationName_;
    QLineEdit* website_;
    QPushButton* delete_;
    bool refreshing_ = false;
    bool listOpen_ = false;
    std::string listSelection_;
    Subscription changed_;
};

}  // namespace vocle
