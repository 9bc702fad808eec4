#include "ui/screens/PermissionsView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

#include "ui/screens/ScreenKit.h"

namespace vocle {

using namespace screens;

PermissionsView::PermissionsView(PermissionsViewModel& vm, QWidget* parent) : QWidget(parent), vm_(vm) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(12);
    layout->addWidget(label(PermissionsViewModel::kTitle, "title"));
    layout->addWidget(paragraph(PermissionsViewModel::kText, "secondary"));
    auto* card = new QFrame;
    setRole(card, "card");
    items_ = new QVBoxLayout(card);
    items_->setContentsMargins(14, 10, 14, 10);
    items_->setSpacing(12);
    layout->addWidget(card);
    problem_ = paragraph("", "warning");
    layout->addWidget(problem_);
    layout->addStretch();
    footer_ = paragraph("", "caption");
    layout->addWidget(footer_);
    subscriptions_.push_back(vm_.changed.subscribe([this] { rebuild(); }));
    subscriptions_.push_back(vm_.alert.subscribe([this](const auto& alert) {
        if (alert)
            QMetaObject::invokeMethod(
                this, [this] { showAlertIfAny(); }, Qt::QueuedConnection);
    }));
    rebuild();
}

void PermissionsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    vm_.refresh();
}

void PermissionsView::rebuild() {
    problem_->setText(qs(vm_.openProblem.get().value_or("")));
    problem_->setVisible(vm_.openProblem.get().has_value());
    footer_->setText(qs(vm_.footerText()));
    while (auto* item = items_->takeAt(0)) {
        if (auto* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    struct Item {
        const char* title;
        std::string description;
        const char* icon;
        bool authorized;
        void (PermissionsViewModel::*action)();
        // The desktop's dialog is open: nothing to press until it is answered.
        bool waiting = false;
    };
    std::vector<Item> items = {
        {"Microphone", "To record your voice", "mic.fill", vm_.microphoneAuthorized.get(),
         &PermissionsViewModel::enableMicrophone},
        {"Accessibility", "To let modes follow the website you are on", "keyboard",
         vm_.accessibilityAuthorized.get(), &PermissionsViewModel::enableAccessibility},
    };
    if (const auto remote = vm_.remoteInputState.get()) {
        items.push_back({PermissionsViewModel::kRemoteInputTitle, vm_.remoteInputDescription(),
                         "doc.on.clipboard", *remote == RemoteInputState::granted,
                         &PermissionsViewModel::enableRemoteInput, *remote == RemoteInputState::asking});
    }
    for (const auto& item : items) {
        auto* row = new QWidget;
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        h->setSpacing(12);
        auto* icon = new QLabel;
        icon->setPixmap(symbolPixmap(item.icon, 24));
        icon->setFixedWidth(28);
        h->addWidget(icon);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(2);
        texts->addWidget(label(item.title, "rowTitle"));
        texts->addWidget(paragraph(qs(item.description), "caption"));
        h->addLayout(texts, 1);
        if (item.authorized) {
            auto* ok = new QLabel;
            ok->setPixmap(symbolPixmap("checkmark.circle.fill", 22, QColor(0x34, 0xc7, 0x59)));
            h->addWidget(ok);
        } else if (item.waiting) {
            auto* asking = button("Asking…");
            asking->setEnabled(false);
            h->addWidget(asking);
        } else {
            auto* enable = button("Enable", "primary");
            enable->setAccessibleName(QString("Enable ") + item.title);
            connect(enable, &QPushButton::clicked, this, [this, action = item.action] { (vm_.*action)(); });
            h->addWidget(enable);
        }
        items_->addWidget(row);
    }
}

void PermissionsView::showAlertIfAny() {
    const auto alert = vm_.alert.get();
    if (!alert) return;
    QMessageBox box(QMessageBox::Information, qs(alert->title), qs(alert->title), QMessageBox::Ok, this);
    box.setInformativeText(qs(alert->text));
    box.exec();
    vm_.dismissAlert();
}

}  // namespace vocle
