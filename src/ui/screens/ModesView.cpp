#include "ui/screens/ModesView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QVBoxLayout>

#include "screens/ModeDetailViewModel.h"
#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

namespace {

class ModeRow : public QFrame {
  public:
    ModeRow(const Mode& mode, bool active, std::function<void()> open) : open_(std::move(open)) {
        setRole(this, "listRow");
        setAttribute(Qt::WA_Hover);
        setCursor(Qt::PointingHandCursor);
        setAccessibleName(qs(mode.name));
        setAccessibleDescription(active ? "Active" : "");
        auto* h = new QHBoxLayout(this);
        h->setContentsMargins(12, 10, 12, 10);
        h->setSpacing(10);
        auto* icon = new QLabel;
        icon->setPixmap(symbolPixmap(qs(ModeDetailViewModel::typeIcon(mode.type.value_or(""))), 20));
        h->addWidget(icon);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(1);
        texts->addWidget(label(qs(mode.name), "rowTitle"));
        texts->addWidget(label(qs(mode.type.value_or("Custom")), "caption"));
        h->addLayout(texts, 1);
        if (active) {
            auto* badge = label("Active", "badge");
            badge->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
            h->addWidget(badge, 0, Qt::AlignVCenter);
        }
    }

  protected:
    void mouseReleaseEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton) open_();
    }

  private:
    std::function<void()> open_;
};

}  // namespace

ModesView::ModesView(ModesViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* page = scrollingPage(this);
    auto* top = new QHBoxLayout;
    auto* titles = new QVBoxLayout;
    titles->addWidget(label("Modes", "title"));
    titles->addWidget(label("Templates for processing transcribed text", "secondary"));
    top->addLayout(titles, 1);
    auto* create = button("Create Mode", "primary");
    top->addWidget(create, 0, Qt::AlignTop);
    page->addLayout(top);
    page->addSpacing(8);
    connect(create, &QPushButton::clicked, this, [this] {
        QMetaObject::invokeMethod(this, [this] { vm_.modeManager.createNewMode(); }, Qt::QueuedConnection);
    });
    auto* card = new QFrame;
    setRole(card, "card");
    rows_ = new QVBoxLayout(card);
    rows_->setContentsMargins(4, 4, 4, 4);
    rows_->setSpacing(2);
    page->addWidget(card);
    page->addStretch();
    changed_ = vm_.changed.subscribe([this] { rebuild(); });
    rebuild();
}

void ModesView::rebuild() {
    while (auto* item = rows_->takeAt(0)) {
        if (auto* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    const auto& active = vm_.activeMode.get();
    for (const auto& mode : vm_.modes.get()) {
        rows_->addWidget(new ModeRow(mode, active && active->id == mode.id, [this, mode] {
            QMetaObject::invokeMethod(this, [this, mode] { vm_.modeManager.startEditing(mode); }, Qt::QueuedConnection);
        }));
    }
    rows_->parentWidget()->setVisible(!vm_.modes.get().empty());
}

}  // namespace vocle
