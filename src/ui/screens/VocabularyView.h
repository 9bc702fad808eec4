#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/VocabularyViewModel.h"

#include <QWidget>

class QLabel;
class QPlainTextEdit;

namespace vocle {

class VocabularyView : public QWidget {
    Q_OBJECT
  public:
    VocabularyView(VocabularyViewModel& viewModel, QWidget* parent);

  protected:
    void hideEvent(QHideEvent* event) override;

  private:
    void refresh();

    VocabularyViewModel& vm_;
    QPlainTextEdit* editor_;
    QLabel* status_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vocle
