#pragma once

// Our headers come before Qt's: Qt defines "emit" and "slots" as macros, which are also member
// names of the foundation's signals.
#include "foundation/Signal.h"
#include "screens/ReplacementsViewModel.h"

#include <QWidget>

class QFrame;
class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace vocle {

class ReplacementsView : public QWidget {
    Q_OBJECT
  public:
    ReplacementsView(ReplacementsViewModel& viewModel, QWidget* parent);

  protected:
    void resizeEvent(QResizeEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    void refresh();
    void rebuildRows();
    void placeDrawer();

    ReplacementsViewModel& vm_;
    QWidget* empty_;
    QFrame* table_;
    QVBoxLayout* rows_;
    QFrame* drawer_;
    QLabel* drawerTitle_;
    QLineEdit* original_;
    QLineEdit* replacement_;
    QLabel* drawerError_;
    QPushButton* drawerSave_;
    QPushButton* drawerDelete_;
    size_t shownCount_ = static_cast<size_t>(-1);
    std::vector<Replacement> shown_;
    Subscription changed_;
};

}  // namespace vocle
