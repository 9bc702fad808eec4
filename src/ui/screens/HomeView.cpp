#include "ui/screens/HomeView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QVBoxLayout>

#include "ui/screens/KeyCapsView.h"
#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

// One checklist row; clickable rows highlight on hover and run their step's action.
class ChecklistRow : public QFrame {
  public:
    ChecklistRow(const ChecklistItem& item, std::function<void()> action) : action_(std::move(action)) {
        setRole(this, "checkRow");
        setProperty("clickable", item.isClickable);
        setProperty("completed", item.isCompleted);
        setAttribute(Qt::WA_Hover, item.isClickable);
        if (item.isClickable) setCursor(Qt::PointingHandCursor);
        auto* layout = new QHBoxLayout(this);
        layout->setContentsMargins(10, 8, 10, 8);
        layout->setSpacing(10);
        auto* box = new QLabel;
        setRole(box, "checkbox");
        box->setProperty("completed", item.isCompleted);
        box->setFixedSize(20, 20);
        box->setAlignment(Qt::AlignCenter);
        if (item.isCompleted) box->setPixmap(symbolPixmap("checkmark", 14, Qt::white));
        layout->addWidget(box);
        layout->addWidget(label(qs(item.title), item.isCompleted ? "done" : nullptr), 1);
        clickable_ = item.isClickable;
        trailing_ = layout;
    }
    void addTrailing(QWidget* w) { trailing_->addWidget(w); }

  protected:
    void mouseReleaseEvent(QMouseEvent* e) override {
        if (clickable_ && e->button() == Qt::LeftButton && action_) action_();
    }

  private:
    std::function<void()> action_;
    bool clickable_ = false;
    QHBoxLayout* trailing_ = nullptr;
};

}  // namespace

HomeView::HomeView(HomeViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    header(page, HomeViewModel::kTitle);
    progressText_ = label("", "secondary");
    page->addWidget(progressText_);
    progress_ = new QProgressBar;
    progress_->setTextVisible(false);
    progress_->setFixedHeight(8);
    page->addWidget(progress_);
    page->addSpacing(8);
    auto* card = new QFrame;
    setRole(card, "card");
    rows_ = new QVBoxLayout(card);
    rows_->setContentsMargins(6, 6, 6, 6);
    rows_->setSpacing(2);
    page->addWidget(card);
    problem_ = paragraph("", "warning");
    page->addWidget(problem_);
    page->addStretch();
    changed_ = vm_.changed.subscribe([this] { rebuild(); });
    rebuild();
}

void HomeView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    vm_.refresh();
}

void HomeView::rebuild() {
    progressText_->setText(qs(vm_.progressText()));
    progress_->setRange(0, vm_.totalSteps());
    progress_->setValue(vm_.completedCount());
    problem_->setText(qs(vm_.openProblem.get().value_or("")));
    problem_->setVisible(vm_.openProblem.get().has_value());
    while (auto* item = rows_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto& items = vm_.items.get();
    for (int i = 0; i < static_cast<int>(items.size()); ++i) {
        const auto step = vm_.stepAt(i);
        // The action may rebuild the rows; run it after this click has been handled.
        auto* row = new ChecklistRow(items[i], [this, step] {
            QMetaObject::invokeMethod(
                this, [this, step] { vm_.activate(step); }, Qt::QueuedConnection);
        });
        if (step == HomeViewModel::firstRecording) {
            auto* caps = new KeyCapsView;
            caps->setKeyMetrics(24, 22, 11);
            caps->setParts(vm_.toggleShortcutParts());
            row->addTrailing(caps);
        }
        rows_->addWidget(row);
    }
}

}  // namespace vocle
